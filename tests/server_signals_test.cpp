#include "support/ServerThread.h"
#include "support/SignalStorm.h"

#include <ipc/ResponsesFIFO.h>

#include <cstring>
#include <regex>

namespace
{

template <typename Client>
void ExpectAnswerOrInterruption(const char* name, Client& client)
{
    ByteVector reply;
    const StatusCode status = client.SendRequest(Bytes("body"), reply, kPatience);
    if (status == MakeStatusCodeFromErrno(EINTR)) return;
    ASSERT_EQ(status, StatusCode::Success) << name;
    ASSERT_EQ(Text(reply), "body") << name;
}

TEST_F(ServerThread, SignalsAtAnyWaitEndNothingButRequestsOfClients)
{
    const std::string clients = folder.Endpoint("clients");
    Peer peer(outside, zmq::socket_type::router, clients);
    auto answering = std::async(std::launch::async, [&] {
        const SignalStorm::Shelter shelter;
        for (zmq::message_t client, body; peer.recv(client) && peer.recv(body) && body.to_string() != "end";)
            peer.Send({client.to_string(), body.to_string()});
    });
    ipc::ZmqClientDealerConnector dealer(context.handle(), clients, folder.Endpoint("interrupt"));
    OnePriority anonymous(endpoint, context.handle(), "");
    OperatingMode mode;
    ipc::ResponsesFIFO fifo;
    ASSERT_EQ(fifo.Initialize(), StatusCode::Success);
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
            ExpectAnswerOrInterruption("persistent", persistent);
            ExpectAnswerOrInterruption("dealer", dealer);
            ASSERT_EQ(anonymous.StartListening(), MakeStatusCodeFromErrno(EINVAL));
            fifo.PushResponse(Bytes("queued"));
            ASSERT_EQ(Text(fifo.PopResponse()), "queued");
            ASSERT_EQ(server.StopListening(), StatusCode::Success);
        } while (++life % 25 != 0);
    }
    for (const std::string& line : log.Take())
        EXPECT_TRUE(std::regex_search(line, std::regex("([ ,]4|=1022)$"))) << line;
    ByteVector reply;
    dealer.SendRequest(Bytes("end"), reply, 0);
    answering.get();
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
    ASSERT_EQ(Exchange("request"), "id|request");
    for (const auto& [signal, isBlocked] : {std::pair(SIGABRT, 1), {SIGTERM, 1}, {SIGSEGV, 0}})
        EXPECT_EQ(sigismember(&blocked, signal), isBlocked) << strsignal(signal);
    for (int signal = 0; signal < 20; ++signal)
    {
        ASSERT_EQ(Exchange("request"), "id|request");
        pthread_kill(thread, SIGUSR1);
    }
    EXPECT_EQ(server.mControlEndpoint, "inproc://server/control//" + std::to_string(thread));
    EXPECT_EQ(log.Take(), Lines{});

    faults::Fail("zmq_poll", ENOMEM);
    service.Send({"id", "last"});
    ASSERT_TRUE(log.Await("[ipc::ZmqServerSequentialOnePriority] zmq_poll exited with error 12"));
    Stop();
    std::signal(SIGUSR1, usual);
}

} // namespace
