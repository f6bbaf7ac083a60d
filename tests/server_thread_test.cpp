#include "support/CapturedLog.h"
#include "support/Exposed.h"
#include "support/Faults.h"
#include "support/Peers.h"

#include <ipc/ZmqConnectorFactory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <future>
#include <memory>
#include <regex>

namespace
{

using Lines = std::vector<std::string>;

const std::string kTag = "[ipc::ZmqServerConnector] ";
const std::string kTrace = "[ipc::ZmqServerConnector][trace] ";
const StatusCode kNoMemory = MakeStatusCodeFromErrno(ENOMEM);

void Echo(const ByteVector& request, ByteVector& response) { response = request; }

std::string Registration(const std::string& identity, const std::string& address)
{
    return identity + R"(|{"address":")" + address + R"(","type":"register"})";
}

class ServerThread : public testing::Test
{
protected:
    ServerThread()
    {
        faults::ShortenSleeps();
        server.RegisterCallback(Echo);
    }

    ~ServerThread() override { faults::Reset(); }

    void StartAndRegister()
    {
        server.SetStartupMessage("svc");
        ASSERT_EQ(server.StartListening(), StatusCode::Success);
        ASSERT_EQ(peer.Receive(), Registration("id", "svc"));
    }

    std::string Exchange(const std::string& body)
    {
        peer.Send("id", body);
        return peer.Receive();
    }

    TempFolder folder;
    const std::string endpoint = folder.Endpoint("servers");
    RouterPeer peer{endpoint};
    zmq::context_t context;
    zmq::socket_t first{context, zmq::socket_type::pair}; // from here on ZeroMQ's threads have their descriptors
    OnePriority server{endpoint, context.handle(), "id"};
};

TEST_F(ServerThread, RegistersAndAnswersUnderAnyIdentityAndAddress)
{
    using namespace std::string_literals;
    for (const std::string& name : {"svc"s, "with space"s, "überwachung ✓"s})
    {
        for (const std::string& identity : {name, name + "\0zero"s, std::string(253, 'i')})
        {
            TwoPriorities both(endpoint + "\0cut"s, context.handle(), identity);
            both.RegisterCallback(Echo);
            both.SetStartupMessage("replaced by the next");
            both.SetStartupMessage(name);
            ASSERT_EQ(both.StartListening(), StatusCode::Success);
            std::vector<std::string> registrations = {peer.Receive(), peer.Receive()};
            std::sort(registrations.begin(), registrations.end());
            EXPECT_EQ(registrations, (Lines{Registration(identity + "RT", "RT" + name), Registration(identity, name)}));
            for (const std::string& frontEnd : {identity, identity + "RT"})
            {
                peer.Send(frontEnd, "for " + frontEnd);
                EXPECT_EQ(peer.Receive(), frontEnd + "|for " + frontEnd);
            }
            EXPECT_EQ(both.StopListening(), StatusCode::Success);
        }
    }
}

TEST_F(ServerThread, RegistersAgainWhenTheRegistrationServiceComesBack)
{
    CapturedLog log(5);
    const std::string again = folder.Endpoint("again");
    OnePriority persistent(again, context.handle(), "id");
    persistent.SetStartupMessage("svc");
    ASSERT_EQ(persistent.StartListening(), StatusCode::Success);
    for (int life = 0; life < 3; ++life)
    {
        RouterPeer service(again);
        EXPECT_EQ(service.Receive(), Registration("id", "svc"));
        EXPECT_TRUE(log.Await(kTag + "Registered to Quillmere"));
    }
    EXPECT_EQ(persistent.StopListening(), StatusCode::Success);
}

TEST_F(ServerThread, AnswersFrameForFrameAndWithoutHandlerByAnEmptyOne)
{
    CapturedLog log;
    server.RegisterCallback({});
    StartAndRegister();
    EXPECT_EQ(Exchange("nobody handles this"), "id|");
    EXPECT_EQ(log.Take(), Lines{"[ipc::AbstractServerConnector] Callback for request is null"});
    EXPECT_EQ(server.StopListening(), StatusCode::Success);

    server.RegisterCallback(Echo);
    StartAndRegister();
    peer.Send("id", "first", "second");
    EXPECT_EQ(peer.Receive(), "id|first");
    EXPECT_EQ(peer.Receive(), "id|second");
    EXPECT_EQ(server.StopListening(), StatusCode::Success);
}

/// Digits that a locale groups would break endpoint names.
struct Grouping : std::numpunct<char>
{
    char do_thousands_sep() const override { return '.'; }

    std::string do_grouping() const override { return "\1"; }
};

TEST_F(ServerThread, MakesItsCallsInOrderAndClosesEachSocketOnTheThreadThatMadeIt)
{
    const std::locale usual = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    faults::Record();
    ASSERT_EQ(server.StartListening(), StatusCode::Success);
    std::locale::global(usual);
    EXPECT_EQ(server.StartListening(), StatusCode::Success); // listens already
    Lines calls = faults::Recorded();
    ASSERT_GE(calls.size(), 9U);
    const std::string monitor = calls[4].substr(calls[4].find("inproc"));
    EXPECT_TRUE(std::regex_match(monitor, std::regex("inproc://server/monitor/[0-9]+"))) << monitor;
    EXPECT_TRUE(std::regex_match(server.mControlEndpoint, std::regex("inproc://server/control//[0-9]{5,}")))
        << server.mControlEndpoint;
    calls.resize(9); // polling follows
    EXPECT_EQ(calls, (Lines{"zmq_socket SUB", "zmq_connect " + server.mControlEndpoint,
                            "zmq_setsockopt " + std::to_string(ZMQ_SUBSCRIBE), "zmq_socket DEALER",
                            "zmq_socket_monitor " + monitor, "zmq_socket PAIR", "zmq_connect " + monitor,
                            "zmq_setsockopt " + std::to_string(ZMQ_ROUTING_ID), "zmq_connect " + endpoint}));

    faults::Record();
    EXPECT_EQ(server.StopListening(), StatusCode::Success);
    EXPECT_EQ(server.StopListening(), StatusCode::Success); // has stopped already
    EXPECT_EQ(
        faults::Recorded({"zmq_socket", "zmq_bind", "nanosleep", "zmq_send", "zmq_unbind", "zmq_close PUB"}),
        (Lines{"zmq_socket PUB", "zmq_bind " + server.mControlEndpoint, "nanosleep 500000000", "nanosleep 300000000",
               "zmq_send TERMINATE", "zmq_unbind " + server.mControlEndpoint, "zmq_close PUB"}));
    EXPECT_EQ(faults::Recorded({"zmq_close DEALER", "zmq_close PAIR", "zmq_close SUB"}),
              (Lines{"zmq_close DEALER", "zmq_close PAIR", "zmq_close SUB"}));
}

TEST_F(ServerThread, TracesItsLifeAtLevelSevenOnly)
{
    const std::string nobody = folder.Endpoint("nobody");
    OnePriority lonely(nobody, context.handle(), "id");
    for (const int level : {6, 7})
    {
        CapturedLog log(level);
        EXPECT_EQ(lonely.StopListening(), StatusCode::Success);
        EXPECT_EQ(lonely.StartListening(), StatusCode::Success);
        EXPECT_EQ(lonely.StopListening(), StatusCode::Success);
        Lines lines = log.Take();
        if (level == 6)
        {
            EXPECT_EQ(lines, Lines{});
            continue;
        }
        // The thread's end and the wait for it are not ordered.
        ASSERT_EQ(lines.size(), 8U);
        std::sort(lines.begin() + 5, lines.begin() + 7);
        EXPECT_EQ(lines, (Lines{kTrace + "Server thread - Start thread", kTrace + "Server thread startup status=0",
                                kTrace + "Stop listening for " + nobody,
                                kTrace + "Stop processing outstanding messages for " + nobody,
                                kTrace + "Send TERMINATE signal to all threads", kTrace + "Server thread - Exit thread",
                                kTrace + "Waiting for server thread...",
                                kTrace + "Server thread execution has completed, server stopped"}));
    }
}

TEST_F(ServerThread, RefusedIdentityAndEndpointsCostNoDescriptorHoweverOften)
{
    const CapturedLog log(2);
    OnePriority anonymous(endpoint, context.handle(), "");
    OnePriority lost("nonsense", context.handle(), "id");
    OnePriority orphan(endpoint, nullptr, "id");
    const std::size_t descriptors = OpenDescriptors();
    for (int start = 0; start < 200; ++start)
    {
        EXPECT_EQ(anonymous.StartListening(), MakeStatusCodeFromErrno(EINVAL));
        EXPECT_EQ(lost.StartListening(), MakeStatusCodeFromErrno(EINVAL));
        EXPECT_EQ(orphan.StartListening(), MakeStatusCodeFromErrno(EFAULT));
    }
    EXPECT_EQ(AwaitDescriptors(descriptors), descriptors);
}

TEST_F(ServerThread, FailedStopIsCompletedByTheNextStart)
{
    for (const std::string function : {"zmq_socket", "zmq_bind"})
    {
        CapturedLog log;
        StartAndRegister();
        faults::Fail(function, ENOMEM);
        EXPECT_EQ(server.StopListening(), kNoMemory);
        EXPECT_EQ(server.StopListening(), StatusCode::Success); // listens no more
        faults::Fail(function, ENOMEM);
        EXPECT_EQ(server.StartListening(), kNoMemory);
        const std::string line = function == "zmq_socket"
                                     ? kTag + "Failed to create socket of type 1, 12"
                                     : kTag + "Failed to bind socket " + server.mControlEndpoint + ", 12";
        EXPECT_EQ(log.Take(), (Lines{line, line}));
        EXPECT_EQ(server.StartListening(), StatusCode::Success);
        EXPECT_EQ(peer.Receive(), Registration("id", "svc"));
        EXPECT_EQ(Exchange("served again"), "id|served again");
        EXPECT_EQ(server.StopListening(), StatusCode::Success);
    }
}

TEST_F(ServerThread, RefusedTerminateIsCompletedOnceItsContextHasEnded)
{
    for (const int error : {ENOMEM, 0})
    {
        zmq::context_t doomed;
        OnePriority unstoppable(folder.Endpoint("nobody"), doomed.handle(), "id");
        CapturedLog log;
        ASSERT_EQ(unstoppable.StartListening(), StatusCode::Success);
        faults::Fail("zmq_send", error);
        EXPECT_EQ(unstoppable.StopListening(), MakeStatusCodeFromErrno(error));
        EXPECT_EQ(log.Take(), Lines{kTag + "Failed to send TERMINATE signal on controller " + std::to_string(error)});
        doomed.shutdown();
        EXPECT_EQ(unstoppable.StartListening(), MakeStatusCodeFromErrno(ETERM));
        EXPECT_TRUE(log.Await("zmq_poll exited with error " + std::to_string(ETERM)));
    }
}

TEST_F(ServerThread, RestartsServeAndStopEachTime)
{
    const std::size_t descriptors = OpenDescriptors();
    for (int life = 0; life < 200; ++life)
    {
        StartAndRegister();
        ASSERT_EQ(Exchange(std::to_string(life)), "id|" + std::to_string(life));
        ASSERT_EQ(server.StopListening(), StatusCode::Success);
    }
    EXPECT_EQ(AwaitDescriptors(descriptors), descriptors);
}

// Threads whose numbers come again, failed starts between the good ones, all on one context.
TEST_F(ServerThread, OwnersOnEightThreadsDoNotDisturbEachOther)
{
    const CapturedLog log(2);
    const auto live = [&](int owner) {
        auto& factory = ipc::ZmqConnectorFactory::GetInstance();
        const std::string own = folder.Endpoint("owner" + std::to_string(owner));
        RouterPeer service(own);
        const auto type = static_cast<ipc::ServerType>(owner % 2);
        const std::unique_ptr<ipc::ZmqServerConnector> served(factory.CreateZmqServerConnector(own, "id", type));
        const std::unique_ptr<ipc::ZmqServerConnector> failing(factory.CreateZmqServerConnector(own, "", type));
        served->RegisterCallback(Echo);
        served->SetStartupMessage("svc");
        int right = 0;
        for (int life = 0; life < 25; ++life)
        {
            failing->StartListening();
            if (served->StartListening() != StatusCode::Success) break;
            for (int frontEnd = 0; frontEnd <= owner % 2; ++frontEnd) service.Receive(); // its registration
            service.Send("id", "request");
            right += service.Receive() == "id|request" ? 1 : 0;
            if (served->StopListening() != StatusCode::Success) break;
        }
        return right;
    };
    std::vector<std::future<int>> owners;
    for (int owner = 0; owner < 8; ++owner) owners.push_back(std::async(std::launch::async, live, owner));
    for (std::future<int>& owner : owners) EXPECT_EQ(owner.get(), 25);
}

TEST_F(ServerThread, PollingGoesOnAfterASignalAndEndsWithAnError)
{
    struct sigaction action = {};
    struct sigaction usual = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &usual);
    CapturedLog log;
    pthread_t thread{};
    server.RegisterCallback([&](const ByteVector& request, ByteVector& response) {
        thread = pthread_self();
        response = request;
    });
    StartAndRegister();
    for (int signal = 0; signal < 20; ++signal)
    {
        EXPECT_EQ(Exchange("request"), "id|request");
        pthread_kill(thread, SIGUSR1);
    }
    EXPECT_EQ(server.mControlEndpoint, "inproc://server/control//" + std::to_string(thread));
    EXPECT_EQ(log.Take(), Lines{});

    faults::Fail("zmq_poll", ENOMEM);
    peer.Send("id", "last");
    EXPECT_TRUE(log.Await("[ipc::ZmqServerSequentialOnePriority] zmq_poll exited with error 12"));
    EXPECT_EQ(server.StopListening(), StatusCode::Success);
    sigaction(SIGUSR1, &usual, nullptr);
}

} // namespace
