#include "quillmere/RequestOrder.h"

#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;
using zeb::tolvo::desk::RequestOrder;

constexpr RequestOrder::TimePoint kStart{1h};

std::size_t SendAll(RequestOrder& order)
{
    std::size_t sent = 0;
    for (; order.Next(kStart) != nullptr; ++sent) order.Sent(1, kStart);
    return sent;
}

TEST(RequestOrder, OpensOnlyOnAConnectionThatWasSentNothingThatIsForgotten)
{
    // Steps: a digit sends a request while that connection is the newest, r is a reply, p a pause, l the server's loss.
    for (const auto& [steps, connection, isOpen] : {
             std::tuple("p", 2, true),     // it has a new connection
             std::tuple("1p", 2, true),    // the request went to the earlier one
             std::tuple("2p", 2, false),   // it may have gone to this one
             std::tuple("12p", 2, false),  //
             std::tuple("2rp", 2, true),   // it did not: it has been answered
             std::tuple("2p", 3, true),    // connected anew
             std::tuple("23p", 3, false),  //
             std::tuple("2pp", 2, false),  //
             std::tuple("2l", 2, true),    // nobody had the identity, so it went to an earlier one
             std::tuple("p", 1, true),     // registered twice
             std::tuple("1p", 1, false),   // the same, or an echo
             std::tuple("11rp", 1, false), //
         })
    {
        RequestOrder order(0ms);
        EXPECT_TRUE(order.Open(1, kStart));
        for (const char step : std::string(steps))
        {
            if (step == 'r')
                EXPECT_TRUE(order.TakeReply(kStart));
            else if (step == 'p')
                order.Pause();
            else if (step == 'l')
                order.Lose();
            else if (order.Add({"client", {}}) && order.Next(kStart) != nullptr)
                order.Sent(static_cast<RequestOrder::Connection>(step - '0'), kStart);
        }
        EXPECT_FALSE(order.IsOpenOn(1)) << steps;
        EXPECT_EQ(order.Open(static_cast<RequestOrder::Connection>(connection), kStart), isOpen) << steps;
    }
}

TEST(RequestOrder, FramesProlongTheHoldUntilItHasEnded)
{
    RequestOrder order(200ms);
    order.Open(1, kStart);
    order.Add({"client", {}});
    EXPECT_EQ(order.Next(kStart + 199ms), nullptr);
    EXPECT_FALSE(order.TakeReply(kStart + 250ms));
    EXPECT_EQ(order.Next(kStart + 449ms), nullptr);
    EXPECT_NE(order.Next(kStart + 450ms), nullptr);
    EXPECT_FALSE(order.TakeReply(kStart + 451ms));
    EXPECT_NE(order.Next(kStart + 451ms), nullptr);
}

TEST(RequestOrder, IsLimitedAndForgetsWhatIsUnderWay)
{
    constexpr std::size_t kMost = RequestOrder::kMostUnderWay;
    RequestOrder order(0ms);
    order.Open(1, kStart);
    for (std::size_t number = 0; number <= 10'000; ++number)
        EXPECT_EQ(order.Add({std::to_string(number), {}}), number < 10'000) << number;
    EXPECT_NE(order.Next(kStart), nullptr);
    order.Drop(); // so no reply is for "0"
    EXPECT_EQ(SendAll(order), kMost);
    EXPECT_EQ(order.TakeReply(kStart).value().client, "1");
    EXPECT_EQ(SendAll(order), 1U);
    EXPECT_EQ(order.Pause(), kMost);
    EXPECT_EQ(SendAll(order), 0U);
    order.Open(2, kStart);
    EXPECT_FALSE(order.TakeReply(kStart));
    EXPECT_EQ(SendAll(order), kMost);
    EXPECT_EQ(order.TakeReply(kStart).value().client, std::to_string(kMost + 2));
    EXPECT_EQ(order.Close(), 10'000 - kMost - 3);
    EXPECT_EQ(order.Unanswered(), 0U);
}

} // namespace
