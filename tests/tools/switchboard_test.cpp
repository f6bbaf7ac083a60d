#include "quillmere/Registration.h"
#include "quillmere/RequestOrder.h"
#include "quillmere/Switchboard.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace zeb::tolvo::desk;

constexpr RequestOrder::TimePoint kStart{1h};

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

TEST(RequestOrder, LimitsWhatWaits)
{
    RequestOrder order(0ms);
    order.Open(1, kStart);
    for (std::size_t number = 0; number <= 10'000; ++number)
        EXPECT_EQ(order.Add({std::to_string(number), {}}), number < 10'000) << number;
    EXPECT_NE(order.Next(kStart), nullptr);
    order.Drop(); // so no reply is for "0"
    EXPECT_NE(order.Next(kStart), nullptr);
    order.Sent(1, kStart);
    EXPECT_EQ(order.TakeReply(kStart).value().client, "1");
    EXPECT_EQ(order.Close(), 10'000U - 2);
    EXPECT_EQ(order.Unanswered(), 0U);
}

TEST(Registration, IsReadOrRefusedOrSomethingElse)
{
    constexpr std::size_t kLongestAddress = 8;
    const std::string usual = R"({"type":"register","address":"12345678"})";
    for (const auto& [frame, expected] : {
             std::pair(usual, "12345678|"s),
             std::pair(R"( {"address":"a \u00f6 名","more":[1],"type":"register"} )"s, "a ö 名|"s),
             std::pair(R"({"type":"register","address":"."})"s, ".|its address is the name of a directory"s),
             std::pair(R"({"type":"register","address":".."})"s, "..|its address is the name of a directory"s),
             std::pair(R"({"type":"register","address":"../up"})"s, "../up|its address contains a slash"s),
             std::pair(R"({"type":"register"})"s, "|it has no address in text"s),
             std::pair(R"({"type":"register","address":"a\u0000b"})"s, "a\0b|its address contains a zero byte"s),
             std::pair(R"({"type":"register","address":""})"s, "|its address is empty"s),
             std::pair(R"({"type":"register","address":7})"s, "|it has no address in text"s),
             std::pair(usual + std::string(4096, ' '), "none"s),
             std::pair("[" + usual + "]", "none"s),
             std::pair("{\"type\":\"register\",\"address\":\"\xff\"}"s, "none"s),
             std::pair(R"({"type":1,"address":"a"})"s, "none"s),
             std::pair(R"({"address":"a"})"s, "none"s),
             std::pair(std::string(4096, '{'), "none"s),
         })
    {
        const auto registration = ReadRegistration(frame, kLongestAddress);
        EXPECT_EQ(registration ? registration->address + "|" + registration->fault : "none", expected) << frame;
    }
}

using Sent = std::vector<std::pair<std::string, std::string>>; // receivers and bodies

bool Holds(const std::string& lines, const std::string& part) { return lines.find(part) != std::string::npos; }

/// Identities and clients are named by a letter; "x" serves address "a" over connection 1.
class SwitchboardTest : public testing::Test, private Wires
{
protected:
    SwitchboardTest()
    {
        testing::internal::CaptureStderr();
        Register("x", "a");
        Wait(200ms);
    }

    ~SwitchboardTest() override { testing::internal::GetCapturedStderr(); }

    /// @return what it was told, in lines.
    std::string Register(const std::string& identity, const std::string& address, bool isNew = true)
    {
        if (isNew) connection = switchboard.AddConnection();
        return Take(identity, R"({"type":"register","address":")" + address + "\"}");
    }

    std::string Take(const std::string& identity, const std::string& body)
    {
        switchboard.TakeFromServer({zmq::message_t(identity), zmq::message_t(body), 1, connection}, now);
        return Told();
    }

    std::string Ask(const std::string& client)
    {
        switchboard.TakeFromClient(0, {zmq::message_t(client), zmq::message_t("of " + client), 1}, now);
        return Told();
    }

    std::string Wait(std::chrono::milliseconds time)
    {
        switchboard.CatchUp(now += time);
        return Told();
    }

    static std::string Told()
    {
        const std::string lines = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        return lines;
    }

    void Bind(const std::string& address) override { bound.push_back(address); }

    void Restore(std::size_t) override {}

    int SendToServer(std::string_view identity, zmq::message_t body) override
    {
        if (serverError == 0) requests.emplace_back(identity, body.to_string());
        return serverError;
    }

    int SendToClient(std::size_t, std::string_view client, zmq::message_t body) override
    {
        if (clientError == 0) replies.emplace_back(client, body.to_string());
        return clientError;
    }

    void HangUp(const Message& message) override { hungUp.push_back(message.connection); }

    std::string PeerOf(const Message& message) override { return "process " + std::to_string(message.connection); }

    RequestOrder::TimePoint now{1h};
    RequestOrder::Connection connection = 0;
    int serverError = 0;
    int clientError = 0;
    std::vector<std::string> bound;
    std::vector<RequestOrder::Connection> hungUp;
    Sent requests, replies;
    Switchboard switchboard{*this, 8, 200ms, {}};
};

TEST_F(SwitchboardTest, LateRepliesReachNobodyWhateverTheConnection)
{
    Ask("p");
    connection = switchboard.AddConnection(); // from here on ZeroMQ may send to it
    Ask("q");
    EXPECT_PRED2(Holds, Take("x", "late"), "over a connection that is not registered");
    Ask("r");
    EXPECT_PRED2(Holds, Register("x", "a", false), "connect anew");
    EXPECT_FALSE(Holds(Register("x", "a", false), "connect anew")); // another connection may have its place
    EXPECT_EQ(hungUp, std::vector<RequestOrder::Connection>{2});
    Take("x", "late");
    Register("x", "a");
    now += 250ms;      // the hold has no end until all is taken that has come,
    Take("x", "late"); // of a server that registers before it has answered what it holds
    Wait(199ms);
    EXPECT_EQ(requests, (Sent{{"x", "of p"}, {"x", "of q"}}));
    Wait(1ms);
    EXPECT_EQ(requests.back(), std::pair("x"s, "of r"s));
    Take("x", "to r");
    EXPECT_EQ(replies, (Sent{{"r", "to r"}}));
    Ask("s");
    EXPECT_EQ(requests.back(), std::pair("x"s, "of s"s)) << "a reply must not prolong a hold that has ended";
    EXPECT_EQ(hungUp.size(), 1U);
}

TEST_F(SwitchboardTest, RefusedRegistrationEndsTheService)
{
    Ask("p");
    const std::string line = Register("x", "b");
    for (const char* text : {"requests to \"x\" dropped: 1", "refused: it keeps its address \"a\"; no request goes to",
                             "until it registers as \"a\"; process 2 took over from process 1"})
        EXPECT_PRED2(Holds, line, text);
    EXPECT_PRED2(Holds, Ask("q"), "registration was refused");
    EXPECT_PRED2(Holds, Register("x", "a"), "process 3 took over from process 1");
    Ask("r");
    Wait(200ms);
    EXPECT_EQ(requests, (Sent{{"x", "of p"}, {"x", "of r"}}));
    EXPECT_TRUE(hungUp.empty());

    Register("x", "b", false); // the server echoes what a client sent
    EXPECT_EQ(hungUp, std::vector<RequestOrder::Connection>{3});
    EXPECT_EQ(Ask("s"), "");
    EXPECT_PRED2(Holds, Register("\0\1\2\3\4"s, "b"), "refused"); // taken over, or without an identity
    EXPECT_EQ(bound, std::vector<std::string>{"a"});
}

TEST_F(SwitchboardTest, ReplyLostAtAFullQueueIsToldOnceASecond)
{
    const std::string line = "tolvo-quillmere: replies lost, since the queues to their clients are full: ";
    for (const auto& [error, told] : {std::pair(0, ""s), std::pair(EHOSTUNREACH, ""s), std::pair(EAGAIN, line + "1\n"),
                                      std::pair(EAGAIN, ""s), std::pair(EAGAIN, ""s)})
    {
        clientError = error;
        Ask("p");
        EXPECT_EQ(Take("x", "reply"), told);
    }
    EXPECT_EQ(switchboard.NextCatchUp(), now + 1s);
    EXPECT_EQ(Wait(999ms), "");
    EXPECT_EQ(Wait(1ms), line + "2\n");
    EXPECT_EQ(Wait(1h), "");
    EXPECT_EQ(switchboard.Report().at(0).lost, 3U);
    EXPECT_EQ(switchboard.Report().at(0).answered, 5U);
}

TEST_F(SwitchboardTest, ReportTellsWhatBecameOfEachRequest)
{
    Register("y", "a");
    EXPECT_EQ(bound, std::vector<std::string>{"a"});
    Wait(200ms);
    for (int request = 0; request < 9; ++request) Ask("p");
    EXPECT_EQ(requests.size(), RequestOrder::kMostUnderWay);
    for (const auto time : {10ms, 20ms, 30ms})
    {
        Wait(time);
        Take("y", "reply");
    }
    serverError = EHOSTUNREACH;
    EXPECT_PRED2(Holds, Take("y", "reply"), "can't be reached");
    EXPECT_PRED2(Holds, Ask("q"), "has gone");

    const ServerReport report = switchboard.Report().at(1);
    EXPECT_EQ(report.identity + " " + report.address, "y a");
    EXPECT_EQ(report.passed, 8U);
    EXPECT_EQ(report.answered, 4U);
    EXPECT_EQ(report.dropped, 6U);
    EXPECT_EQ(report.waiting, 0U);
    EXPECT_EQ(report.worst, 60ms);
    EXPECT_NEAR(static_cast<double>(report.median.count()), 30e6, 0.3e6);
}

} // namespace
