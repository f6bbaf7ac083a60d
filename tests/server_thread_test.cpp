#include "support/ServerThread.h"

#include <ipc/ResponsesFIFO.h>
#include <ipc/ZmqConnectorFactory.h>

#include <algorithm>
#include <csignal>
#include <future>
#include <regex>
#include <sys/prctl.h>
#include <sys/syscall.h>

namespace
{

const std::string kTag = "[ipc::ZmqServerConnector] ";
const std::string kTrace = "[ipc::ZmqServerConnector][trace] ";

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
            Lines registrations = {service.Receive(), service.Receive()};
            std::sort(registrations.begin(), registrations.end());
            EXPECT_EQ(registrations, (Lines{Registration(identity + "RT", "RT" + name), Registration(identity, name)}));
            for (const std::string& frontEnd : {identity, identity + "RT"})
            {
                service.Send({frontEnd, "for " + frontEnd});
                EXPECT_EQ(service.Receive(), frontEnd + "|for " + frontEnd);
            }
            EXPECT_EQ(both.StopListening(), StatusCode::Success);
        }
    }
}

TEST_F(ServerThread, RegistersAgainWhenTheRegistrationServiceComesBack)
{
    log.SetLevel(5);
    lonely.SetStartupMessage("svc");
    ASSERT_EQ(lonely.StartListening(), StatusCode::Success);
    for (int life = 0; life < 3; ++life)
    {
        Peer again(outside, zmq::socket_type::router, folder.Endpoint("nobody"));
        EXPECT_EQ(again.Receive(), Registration("id", "svc"));
        EXPECT_TRUE(log.Await(kTag + "Registered to Quillmere"));
    }
    EXPECT_EQ(lonely.StopListening(), StatusCode::Success);
}

TEST_F(ServerThread, AnswersByAnEmptyResponseWithoutAHandler)
{
    server.RegisterCallback({});
    StartAndRegister();
    EXPECT_EQ(Exchange("nobody handles this"), "id|");
    EXPECT_EQ(log.Take(), Lines{"[ipc::AbstractServerConnector] Callback for request is null"});
    Stop();
}

/// Digits that a locale groups would break endpoint names.
struct Grouping : std::numpunct<char>
{
    std::string do_grouping() const override { return "\1"; }
};

TEST_F(ServerThread, MakesItsCallsInOrderAndClosesEachSocketOnTheThreadThatMadeIt)
{
    static const std::locale grouping(std::locale::classic(), new Grouping); // ZeroMQ's threads may keep using it
    const std::locale usual = std::locale::global(grouping);
    faults::Record();
    ASSERT_EQ(server.StartListening(), StatusCode::Success);
    std::locale::global(usual);
    EXPECT_EQ(server.StartListening(), StatusCode::Success); // listens already
    Lines calls = faults::Recorded("zmq_(socket|connect|setsockopt|bind)");
    for (std::string& call : calls) call = std::regex_replace(call, std::regex("/[0-9]+$"), "/#");
    EXPECT_EQ(calls, (Lines{"zmq_socket SUB", "zmq_connect inproc://server/control//#",
                            "zmq_setsockopt " + std::to_string(ZMQ_SUBSCRIBE), "zmq_socket DEALER",
                            "zmq_socket_monitor inproc://server/monitor/#", "zmq_socket PAIR",
                            "zmq_connect inproc://server/monitor/#", "zmq_setsockopt " + std::to_string(ZMQ_ROUTING_ID),
                            "zmq_connect " + endpoint}));

    const std::string& control = server.mControlEndpoint;
    faults::Record();
    Stop();
    Stop(); // has stopped already
    EXPECT_EQ(faults::Recorded("zmq_socket|zmq_bind|nanosleep|zmq_send TERM|zmq_unbind|zmq_close PUB"),
              (Lines{"zmq_socket PUB", "zmq_bind " + control, "nanosleep 500000000", "nanosleep 300000000",
                     "zmq_send TERMINATE", "zmq_unbind " + control, "zmq_close PUB"}));
    EXPECT_EQ(faults::Recorded("zmq_close (DEALER|PAIR|SUB)"),
              (Lines{"zmq_close DEALER", "zmq_close PAIR", "zmq_close SUB"}));
}

TEST_F(ServerThread, TracesItsLifeAtLevelSevenOnly)
{
    const auto live = [&](int level) {
        log.SetLevel(level);
        EXPECT_EQ(lonely.StartListening(), StatusCode::Success);
        EXPECT_EQ(lonely.StopListening(), StatusCode::Success);
        return log.Take();
    };
    EXPECT_EQ(live(6), Lines{});
    Lines lines = live(7);
    ASSERT_EQ(lines.size(), 8U);
    std::sort(lines.begin() + 5, lines.begin() + 7); // the thread's end and the wait for it are not ordered
    const std::string nobody = folder.Endpoint("nobody");
    EXPECT_EQ(lines, (Lines{kTrace + "Server thread - Start thread", kTrace + "Server thread startup status=0",
                            kTrace + "Stop listening for " + nobody,
                            kTrace + "Stop processing outstanding messages for " + nobody,
                            kTrace + "Send TERMINATE signal to all threads", kTrace + "Server thread - Exit thread",
                            kTrace + "Waiting for server thread...",
                            kTrace + "Server thread execution has completed, server stopped"}));
}

TEST_F(ServerThread, RefusedIdentityAndEndpointsCostNoDescriptorHoweverOften)
{
    log.SetLevel(2);
    OnePriority anonymous(endpoint, context.handle(), "");
    OnePriority lost("nonsense", context.handle(), "id");
    OnePriority orphan(endpoint, nullptr, "id");
    const DescriptorsComeBack guard;
    for (int start = 0; start < 200; ++start)
    {
        EXPECT_EQ(anonymous.StartListening(), MakeStatusCodeFromErrno(EINVAL));
        EXPECT_EQ(lost.StartListening(), MakeStatusCodeFromErrno(EINVAL));
        EXPECT_EQ(orphan.StartListening(), MakeStatusCodeFromErrno(EFAULT));
    }
}

TEST_F(ServerThread, ThrowsWhenNoThreadCanBeCreatedAndStartsOnceOneCan)
{
    pthread_attr_t usual, huge;
    pthread_getattr_default_np(&usual);
    pthread_getattr_default_np(&huge);
    ASSERT_EQ(pthread_attr_setstacksize(&huge, SIZE_MAX / 8 * 7), 0); // more than there is
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    EXPECT_THROW(server.StartListening(), std::system_error);
    pthread_setattr_default_np(&usual);
    StartAndRegister();
    Stop();
}

TEST_F(ServerThread, RestartsAnswerFrameForFrameAndStopEachTime)
{
    const DescriptorsComeBack guard;
    for (int life = 0; life < 200; ++life)
    {
        StartAndRegister();
        service.Send({"id", "first of " + std::to_string(life), "second"});
        EXPECT_EQ(service.Receive(), "id|first of " + std::to_string(life));
        EXPECT_EQ(service.Receive(), "id|second");
        ASSERT_EQ(server.StopListening(), StatusCode::Success);
    }
}

// Threads whose numbers come again, failed starts between the good ones, 32 servers of both kinds on one context.
TEST_F(ServerThread, OwnersOnEightThreadsDoNotDisturbEachOther)
{
    log.SetLevel(2);
    const auto live = [&](int owner) {
        auto& factory = ipc::ZmqConnectorFactory::GetInstance();
        const std::string own = folder.Endpoint("owner" + std::to_string(owner));
        zmq::context_t elsewhere;
        Peer registry(elsewhere, zmq::socket_type::router, own);
        std::vector<std::unique_ptr<ipc::ZmqServerConnector>> servers;
        for (int number = 0; number < 4; ++number)
        {
            const auto type = static_cast<ipc::ServerType>(number % 2);
            servers.emplace_back(factory.CreateZmqServerConnector(own, "id" + std::to_string(number), type));
            servers.back()->RegisterCallback(Echo);
            servers.back()->SetStartupMessage("svc");
        }
        const std::unique_ptr<ipc::ZmqServerConnector> failing(
            factory.CreateZmqServerConnector(own, "", static_cast<ipc::ServerType>(owner % 2)));
        int right = 0;
        for (int life = 0; life < 25; ++life)
        {
            failing->StartListening();
            for (const auto& each : servers) right += each->StartListening() == StatusCode::Success ? 1 : 0;
            for (int frontEnd = 0; frontEnd < 6; ++frontEnd) registry.Receive(); // its registration
            for (const std::string id : {"id0", "id1", "id2", "id3"})
            {
                registry.Send({id, "request"});
                right += registry.Receive() == id + "|request" ? 1 : 0;
            }
            for (const auto& each : servers) right += each->StopListening() == StatusCode::Success ? 1 : 0;
        }
        return right;
    };
    std::vector<std::future<int>> owners;
    for (int owner = 0; owner < 8; ++owner) owners.push_back(std::async(std::launch::async, live, owner));
    for (std::future<int>& owner : owners) EXPECT_EQ(owner.get(), 25 * 4 * 3);
}

/// While it lives, each thread that doesn't block SIGUSR2 gets it again and again, without SA_RESTART.
struct SignalStorm
{
    ~SignalStorm() { isOver = true; }

    static void Block()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR2);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }

    void Send()
    {
        Block();
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR2, &action, nullptr);
        prctl(PR_SET_TIMERSLACK, 1); // or the pause, without which nobody gets anywhere, grows
        constexpr timespec kPause{0, 10'000};
        for (; !isOver; nanosleep(&kPause, nullptr))
            for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
                syscall(SYS_tgkill, getpid(), std::stoi(task.path().filename()), SIGUSR2);
    }

    std::atomic<bool> isOver{false};
    std::future<void> sender = std::async(std::launch::async, [this] { Send(); });
};

TEST_F(ServerThread, SignalsAtAnyWaitEndNothingButRequestsOfClients)
{
    constexpr int kRequests = 300;
    std::atomic<int> servedLives{0};
    auto peer = std::async(std::launch::async, [&] {
        SignalStorm::Block();
        int replies = 0;
        zmq::message_t sender, body;
        while (service.recv(sender) && service.recv(body) && body.to_string() != "end")
        {
            if (sender.to_string() != "id") // a client
                service.Send({sender.to_string(), body.to_string()});
            else if ("id|" + body.to_string() == Registration("id", "svc"))
                for (replies = 0; replies < kRequests; ++replies) service.Send({"id", std::to_string(replies)});
            else if (body.to_string() == std::to_string(replies - kRequests) && ++replies == 2 * kRequests)
                ++servedLives;
        }
    });
    ipc::ZmqClientDealerConnector dealer(context.handle(), endpoint, folder.Endpoint("interrupt"));
    ipc::ResponsesFIFO fifo;
    EXPECT_EQ(fifo.Initialize(), StatusCode::Success);
    OperatingMode mode;
    const auto isFine = [](auto& client) {
        ByteVector reply;
        const StatusCode status = client.SendRequest(Bytes("body"), reply, kPatience);
        return status == StatusCode::Success ? Text(reply) == "body" : status == MakeStatusCodeFromErrno(EINTR);
    };
    OnePriority anonymous(endpoint, context.handle(), "");
    {
        const DescriptorsComeBack guard;
        const SignalStorm storm;
        for (int life = 1; life <= 500 && !HasFailure(); ++life)
        {
            EXPECT_EQ(server.StartListening(), StatusCode::Success);
            EXPECT_TRUE(Await([&] { return servedLives == life; }));
            ipc::ZmqClientConnector persistent(endpoint, mode, context.handle());
            EXPECT_TRUE(isFine(persistent) && isFine(dealer));
            EXPECT_EQ(anonymous.StartListening(), MakeStatusCodeFromErrno(EINVAL));
            fifo.PushResponse(Bytes("queued"));
            EXPECT_EQ(Text(fifo.PopResponse()), "queued");
            EXPECT_EQ(server.StopListening(), StatusCode::Success);
        }
    }
    for (const std::string& line : log.Take())
        EXPECT_TRUE(std::regex_search(line, std::regex("([ ,]4|=1022)$"))) << line;
    ByteVector reply;
    dealer.SendRequest(Bytes("end"), reply, 0);
    peer.get();
}

TEST_F(ServerThread, PollingGoesOnAfterASignalAndEndsWithAnError)
{
    const auto usual = std::signal(SIGUSR1, [](int) {});
    pthread_t thread{};
    sigset_t none, abort, blocked;
    sigemptyset(&none);
    sigemptyset(&abort);
    sigemptyset(&blocked);
    sigaddset(&abort, SIGABRT);
    server.RegisterCallback([&](const ByteVector& request, ByteVector& response) {
        thread = pthread_self();
        pthread_sigmask(SIG_SETMASK, &none, &blocked); // or no signal would come
        response = request;
    });
    pthread_sigmask(SIG_BLOCK, &abort, nullptr); // what the owner blocks stays blocked, also what a fault raises
    StartAndRegister();
    pthread_sigmask(SIG_UNBLOCK, &abort, nullptr);
    EXPECT_EQ(Exchange("request"), "id|request");
    EXPECT_TRUE(sigismember(&blocked, SIGABRT) == 1 && sigismember(&blocked, SIGTERM) == 1);
    EXPECT_EQ(sigismember(&blocked, SIGSEGV), 0);
    for (int signal = 0; signal < 20; ++signal)
    {
        EXPECT_EQ(Exchange("request"), "id|request");
        pthread_kill(thread, SIGUSR1);
    }
    EXPECT_EQ(server.mControlEndpoint, "inproc://server/control//" + std::to_string(thread));
    EXPECT_EQ(log.Take(), Lines{});

    faults::Fail("zmq_poll", ENOMEM);
    service.Send({"id", "last"});
    EXPECT_TRUE(log.Await("[ipc::ZmqServerSequentialOnePriority] zmq_poll exited with error 12"));
    Stop();
    std::signal(SIGUSR1, usual);
}

} // namespace
