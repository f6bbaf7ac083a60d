#include "quillmere/RequestOrder.h"

#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;
using zeb::tolvo::desk::RequestOrder;

constexpr RequestOrder::TimePoint kStart{1h};

int SendAll(RequestOrder& order, RequestOrder::TimePoint when)
{
    int sent = 0;
    for (; order.Next(when) != nullptr; ++sent) order.Sent(when);
    return sent;
}

TEST(RequestOrder, FramesProlongTheHoldUntilItHasEnded)
{
    RequestOrder order(200ms, kStart);
    order.Add({"client", {}});
    EXPECT_EQ(order.Next(kStart + 199ms), nullptr);
    EXPECT_FALSE(order.TakeReply(kStart + 250ms));
    EXPECT_EQ(order.Next(kStart + 449ms), nullptr);
    EXPECT_NE(order.Next(kStart + 450ms), nullptr);
    EXPECT_FALSE(order.TakeReply(kStart + 451ms));
    EXPECT_NE(order.Next(kStart + 451ms), nullptr);
}

TEST(RequestOrder, IsLimitedAndForgetsWhatIsUnderWayAtARestart)
{
    RequestOrder order(200ms, kStart);
    for (int number = 0; number <= 10'000; ++number)
        EXPECT_EQ(order.Add({std::to_string(number), {}}), number < 10'000) << number;
    EXPECT_NE(order.Next(kStart + 1s), nullptr);
    order.Drop(); // so no reply is for "0"
    EXPECT_EQ(SendAll(order, kStart + 1s), 256);
    EXPECT_EQ(order.TakeReply(kStart + 1s).value().client, "1");
    EXPECT_EQ(SendAll(order, kStart + 1s), 1);
    EXPECT_EQ(order.Restart(kStart + 2s), 256U);
    EXPECT_FALSE(order.TakeReply(kStart + 2s));
    EXPECT_EQ(SendAll(order, kStart + 2199ms), 0);
    EXPECT_EQ(SendAll(order, kStart + 2200ms), 256);
    EXPECT_EQ(order.TakeReply(kStart + 3s).value().client, "258");
}

} // namespace
