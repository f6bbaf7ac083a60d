#include "quillmere/Switchboard.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace zeb::tolvo::desk;

using Sent = std::vector<std::pair<std::string, std::string>>; // receivers and bodies

/// Identities and clients are named by a letter; "x" serves address "a" over connection 1.
class SwitchboardTest : public testing::Test, private Wires
{
protected:
    SwitchboardTest() { Register("x", "a"); }

    /// @return what it was told, in lines.
    std::string Register(const std::string& identity, const std::string& address, bool isNew = true)
    {
        if (isNew) connection = switchboard.AddConnection();
        return Take(identity, R"({"type":"register","address":")" + address + "\"}");
    }

    std::string Take(const std::string& identity, const std::string& body)
    {
        testing::internal::CaptureStderr();
        switchboard.TakeFromServer({zmq::message_t(identity), zmq::message_t(body), 1, connection}, now);
        return testing::internal::GetCapturedStderr();
    }

    std::string Ask(const std::string& client, std::size_t address = 0)
    {
        testing::internal::CaptureStderr();
        switchboard.TakeFromClient(address, {zmq::message_t(client), zmq::message_t("of " + client), 1}, now);
        return testing::internal::GetCapturedStderr();
    }

    std::string Wait(std::chrono::milliseconds time)
    {
        testing::internal::CaptureStderr();
        switchboard.CatchUp(now += time);
        return testing::internal::GetCapturedStderr();
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
    Wait(200ms);
    Ask("p");
    connection = switchboard.AddConnection(); // from here on ZeroMQ may send to it
    Ask("q");
    EXPECT_NE(Take("x", "late").find("over a connection that is not registered"), std::string::npos);
    Ask("r");
    EXPECT_NE(Register("x", "a", false).find("connect anew"), std::string::npos);
    EXPECT_EQ(Register("x", "a", false).find("connect anew"),
              std::string::npos); // another connection may have its place
    EXPECT_EQ(hungUp, std::vector<RequestOrder::Connection>{2});
    Take("x", "late");
    Register("x", "a");
    Take("x", "late"); // of a server that registers before it has answered what it holds
    Wait(199ms);
    EXPECT_EQ(requests, (Sent{{"x", "of p"}, {"x", "of q"}}));
    Wait(1ms);
    EXPECT_EQ(requests.back(), std::pair("x"s, "of r"s));
    Take("x", "to r");
    EXPECT_EQ(replies, (Sent{{"r", "to r"}}));
    EXPECT_EQ(hungUp.size(), 1U);
}

TEST_F(SwitchboardTest, RefusedRegistrationEndsTheService)
{
    Wait(200ms);
    Ask("p");
    const std::string line = Register("x", "b");
    for (const char* text : {"requests to \"x\" dropped: 1", "refused: it keeps its address \"a\"; no request goes to",
                             "until it registers as \"a\"; process 2 took over from process 1"})
        EXPECT_NE(line.find(text), std::string::npos) << text << " in " << line;
    EXPECT_NE(Ask("q").find("registration was refused"), std::string::npos);
    EXPECT_NE(Register("x", "a").find("process 3 took over from process 1"), std::string::npos);
    Ask("r");
    Wait(200ms);
    EXPECT_EQ(requests, (Sent{{"x", "of p"}, {"x", "of r"}}));
    EXPECT_TRUE(hungUp.empty());

    Register("x", "b", false); // the server echoes what a client sent
    EXPECT_EQ(hungUp, std::vector<RequestOrder::Connection>{3});
    EXPECT_EQ(Ask("s"), "");
    EXPECT_EQ(bound, std::vector<std::string>{"a"});
}

TEST_F(SwitchboardTest, ConnectionThatWasTakenOverOrHasNoIdentityServesNothing)
{
    EXPECT_NE(Register("\0\1\2\3\4"s, "b").find("refused"), std::string::npos);
    EXPECT_EQ(bound, std::vector<std::string>{"a"});
}

TEST_F(SwitchboardTest, ReplyLostAtAFullQueueIsToldOnceASecond)
{
    Wait(200ms);
    for (const auto& [error, line] : {std::pair(0, ""), std::pair(EHOSTUNREACH, ""), std::pair(EAGAIN, "full: 1\n"),
                                      std::pair(EAGAIN, ""), std::pair(EAGAIN, "")})
    {
        clientError = error;
        Ask("p");
        const std::string told = Take("x", "reply");
        EXPECT_NE(told.find(line), std::string::npos) << told;
        EXPECT_EQ(told.empty(), *line == '\0') << told;
    }
    EXPECT_EQ(switchboard.NextCatchUp(), now + 1s);
    EXPECT_EQ(Wait(999ms), "");
    EXPECT_NE(Wait(1ms).find("full: 2\n"), std::string::npos);
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
    EXPECT_NE(Take("y", "reply").find("can't be reached"), std::string::npos);
    EXPECT_NE(Ask("q").find("has gone"), std::string::npos);

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
