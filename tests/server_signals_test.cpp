#include "support/ServerThread.h"
#include "support/SignalStorm.h"

#include <cstring>
#include <locale>

TEST_F(ServerThread, SignalsAtAnyWaitEndNothingButRequestsOfClients)
{
    const std::string clients = folder.Endpoint("clients");
    Peer peer(outside, zmq::socket_type::router, clients);
    auto answering = std::async(std::launch::async, [&] {
        const SignalStorm::Shelter shelter;
        while (peer.Answer() != "end") continue;
    });
    ipc::ZmqClientDealerConnector dealer(context.handle(), clients, folder.Endpoint("interrupt"));
    OnePriority anonymous(endpoint, context.handle(), "");
    OperatingMode mode;
    ByteVector reply;
    const auto call = [&reply](const char* name, auto& client) {
        const StatusCode status = client.SendRequest(Bytes("body"), reply, kPatience);
        if (status == MakeStatusCodeFromErrno(EINTR)) return;
        ASSERT_EQ(status, StatusCode::Success) << name;
        ASSERT_EQ(Text(reply), "body") << name;
    };
    for (int life = 0; life < 500;)
    {
        const DescriptorsComeBack guard; // 25 lives make some 300 sockets
        const SignalStorm storm;
        do {
            SCOPED_TRACE("life " + std::to_string(life));
            ASSERT_EQ(server.StartListening(), StatusCode::Success);
            {
                const SignalStorm::Shelter shelter; // the registration service's
                ASSERT_EQ(service.Receive(), Registration("id", "svc"));
                for (int request = 0; request < 300; ++request) service.Send({"id", std::to_string(request)});
                for (int request = 0; request < 300; ++request)
                    ASSERT_EQ(service.Receive(), "id|" + std::to_string(request));
            }
            ipc::ZmqClientConnector persistent(clients, mode, context.handle());
            call("persistent", persistent);
            call("dealer", dealer);
            ASSERT_EQ(anonymous.StartListening(), MakeStatusCodeFromErrno(EINVAL));
            ASSERT_EQ(server.StopListening(), StatusCode::Success);
        } while (++life % 25 != 0);
    }
    for (const std::string& line : log.Take())
    {
        const std::string number = line.substr(line.find_last_of(" ,=") + 1);
        EXPECT_TRUE(number == "4" || number == "1022") << line; // EINTR, or the status of the anonymous one
    }
    dealer.SendRequest(Bytes("end"), reply, 0);
    answering.get();
}

/// Digits that a locale groups would break endpoint names.
struct Grouping : std::numpunct<char>
{
    std::string do_grouping() const override { return "\1"; }
};

TEST_F(ServerThread, PollingGoesOnAfterASignalAndEndsWithAnError)
{
    pthread_t thread{};
    sigset_t abort, blocked;
    sigemptyset(&abort);
    sigaddset(&abort, SIGABRT);
    server.RegisterCallback([&](const ByteVector& request, ByteVector& response) {
        thread = pthread_self();
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        pthread_kill(thread, SIGPIPE); // as a write to a closed pipe would: blocked, it waits for the thread's end
        response = request;
    });
    static const std::locale grouping(std::locale::classic(), new Grouping); // ZeroMQ's threads may keep using it
    const std::locale usual = std::locale::global(grouping);
    pthread_sigmask(SIG_BLOCK, &abort, nullptr); // what the owner blocks stays blocked, also what a fault raises
    StartAndRegister();
    pthread_sigmask(SIG_UNBLOCK, &abort, nullptr);
    std::locale::global(usual);
    faults::Fail("zmq_poll", EINTR);
    for (int request = 0; request < 2; ++request) ASSERT_EQ(Exchange("request"), "id|request");
    for (const auto& [signal, isBlocked] : {std::pair(SIGABRT, 1), {SIGTERM, 1}, {SIGSEGV, 0}})
        EXPECT_EQ(sigismember(&blocked, signal), isBlocked) << strsignal(signal);
    EXPECT_EQ(server.mControlEndpoint, "inproc://server/control//" + std::to_string(thread));
    EXPECT_EQ(log.Take(), Lines{});

    faults::Record();
    faults::Fail("zmq_poll", ENOMEM);
    service.Send({"id", "last"});
    log.Await("[ipc::ZmqServerSequentialOnePriority] zmq_poll exited with error 12");
    // ZeroMQ's reaper must not be about to meet the subscriber while the stop binds its name.
    EXPECT_TRUE(Await([] { return !faults::Recorded("zmq_close SUB").empty(); }));
    const int reaped = first.get(zmq::sockopt::fd);
    first.close();
    EXPECT_TRUE(Await([&] { return fcntl(reaped, F_GETFD) < 0; }));
    Stop();
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_FALSE(sigismember(&blocked, SIGTERM)) << "the owner's mask is its own again";
}
