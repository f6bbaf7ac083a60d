#include "quillmere/Registration.h"
#include "quillmere/Switchboard.h"
#include "support/CapturedLog.h"

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace zeb::tolvo::desk;

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

bool Holds(const std::string& lines, const std::string& part) { return lines.find(part) != std::string::npos; }

/// Identities and clients are named by a letter; "x" serves address "a" over connection 1.
class SwitchboardTest : public testing::Test, private Wires
{
protected:
    SwitchboardTest()
    {
        Register("x", "a");
        Wait(200ms);
    }

    // Each returns what it was told, in lines.

    std::string Register(const std::string& identity, const std::string& address, bool isNew = true)
    {
        if (isNew) connection = switchboard.AddConnection();
        return Take(identity, ::Registration(address));
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

    std::string Told()
    {
        log.Read();
        return std::exchange(log.written, {});
    }

    void Bind(const std::string& address) override { bound.push_back(address); }

    void Restore(std::size_t) override {}

    int SendToServer(std::string_view identity, zmq::message_t body) override
    {
        if (serverError == 0) requests.push_back(std::string(identity) + ' ' + body.to_string());
        return serverError;
    }

    int SendToClient(std::size_t, std::string_view client, zmq::message_t body) override
    {
        if (clientError == 0) replies.push_back(std::string(client) + ' ' + body.to_string());
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
    Lines requests, replies; // "receiver body"
    CapturedLog log{5};
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
    Wait(200ms);
    EXPECT_EQ(hungUp, std::vector<RequestOrder::Connection>{2});
    Take("x", "late");
    Register("x", "a");
    now += 250ms;      // the hold has no end until all is taken that has come,
    Take("x", "late"); // of a server that registers before it has answered what it holds
    Wait(199ms);
    EXPECT_EQ(requests, (Lines{"x of p", "x of q"}));
    Wait(1ms);
    EXPECT_EQ(requests.back(), "x of r");
    Take("x", "to r");
    EXPECT_EQ(replies, Lines{"r to r"});
    Ask("s");
    EXPECT_EQ(requests.back(), "x of s") << "a reply must not prolong a hold that has ended";
    Take("x", "to s");
    EXPECT_FALSE(Holds(Register("x", "a", false), "connect anew")) << "it has answered all";
    Wait(200ms);
    Ask("t");
    EXPECT_PRED2(Holds, Register("x", "a", false), "connect anew");
    EXPECT_EQ(hungUp, (std::vector<RequestOrder::Connection>{2, 3}));
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
    EXPECT_EQ(requests, (Lines{"x of p", "x of r"}));
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
    for (int request = 0; request < 10'005; ++request) EXPECT_EQ(Ask("p"), "") << request;
    EXPECT_PRED2(Holds, Ask("p"), "too many wait");
    EXPECT_EQ(requests.size(), RequestOrder::kMostUnderWay);
    for (const auto time : {10ms, 20ms, 30ms})
    {
        Wait(time);
        Take("y", "reply");
    }
    serverError = EHOSTUNREACH;
    EXPECT_PRED2(Holds, Take("y", "reply"), "can't be reached");
    EXPECT_PRED2(Holds, Ask("q"), "has gone");
    EXPECT_FALSE(Holds(Register("y", "a", false), "connect anew")) << "its requests went to an earlier connection";

    const ServerReport report = switchboard.Report().at(1);
    EXPECT_EQ(report.identity + " " + report.address, "y a");
    EXPECT_EQ(report.passed, 8U);
    EXPECT_EQ(report.answered, 4U);
    EXPECT_EQ(report.dropped, 10'003U);
    EXPECT_EQ(report.waiting, 0U);
    EXPECT_EQ(report.worst, 60ms);
    EXPECT_NEAR(static_cast<double>(report.median.count()), 30e6, 0.3e6);
}

} // namespace
