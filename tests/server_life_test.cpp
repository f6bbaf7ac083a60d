#include "support/ServerThread.h"

TEST_F(ServerThread, RegistersAndAnswersFrameForFrameUnderAnyIdentityAndAddress)
{
    using namespace std::string_literals;
    for (const auto& [identity, name] :
         {std::pair("id"s, "svc"s), {"with space\0zero"s, "überwachung ✓"s}, {std::string(253, 'i'), "with space"s}})
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
            service.Send({frontEnd, "for " + frontEnd, "second"});
            ASSERT_EQ(service.Receive(), frontEnd + "|for " + frontEnd);
            ASSERT_EQ(service.Receive(), frontEnd + "|second");
        }
        ASSERT_EQ(both.StopListening(), StatusCode::Success);
    }
}

TEST_F(ServerThread, RegistersAgainWhenTheRegistrationServiceComesBack)
{
    log.SetLevel(6);
    lonely.SetStartupMessage("svc");
    ASSERT_EQ(lonely.StartListening(), StatusCode::Success);
    for (int life = 0; life < 3; ++life)
    {
        Peer again(outside, zmq::socket_type::router, folder.Endpoint("nobody"));
        ASSERT_EQ(again.Receive(), Registration("id", "svc"));
        log.Await(kTag + "Registered to Quillmere");
    }
    ASSERT_EQ(lonely.StopListening(), StatusCode::Success);
    EXPECT_EQ(log.Take(), Lines{}); // its life is traced at level seven only
}

TEST_F(ServerThread, StopsInOrderTracingItAndClosesEachSocketOnTheThreadThatMadeIt)
{
    log.SetLevel(7);
    faults::Record();
    for (int start = 0; start < 2; ++start) ASSERT_EQ(lonely.StartListening(), StatusCode::Success);
    for (int stop = 0; stop < 2; ++stop) ASSERT_EQ(lonely.StopListening(), StatusCode::Success);
    const std::string& control = lonely.mControlEndpoint;
    EXPECT_EQ(faults::Recorded("zmq_socket |zmq_bind|nanosleep|zmq_send|zmq_unbind|zmq_close PUB"),
              (Lines{"zmq_socket SUB", "zmq_socket DEALER", "zmq_socket PAIR", "zmq_socket PUB", "zmq_bind " + control,
                     "nanosleep 500000000", "nanosleep 300000000", "zmq_send TERMINATE", "zmq_unbind " + control,
                     "zmq_close PUB"}));
    EXPECT_EQ(faults::Recorded("zmq_close (DEALER|PAIR|SUB)"),
              (Lines{"zmq_close DEALER", "zmq_close PAIR", "zmq_close SUB"}));
    Lines lines = log.Take();
    ASSERT_EQ(lines.size(), 8U);
    std::sort(lines.begin() + 5, lines.begin() + 7); // the thread's end and the wait for it are not ordered
    const std::string nobody = folder.Endpoint("nobody");
    Lines expected = {"Server thread - Start thread",         "Server thread startup status=0",
                      "Stop listening for " + nobody,         "Stop processing outstanding messages for " + nobody,
                      "Send TERMINATE signal to all threads", "Server thread - Exit thread",
                      "Waiting for server thread...",         "Server thread execution has completed, server stopped"};
    for (std::string& line : expected) line.insert(0, "[ipc::ZmqServerConnector][trace] ");
    EXPECT_EQ(lines, expected);
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

void LiveTwice(zmq::context_t& shared, const std::string& endpoint)
{
    SCOPED_TRACE(endpoint);
    zmq::context_t elsewhere;
    Peer registry(elsewhere, zmq::socket_type::router, endpoint);
    OnePriority one(endpoint, shared.handle(), "one"), other(endpoint, shared.handle(), "other");
    TwoPriorities two(endpoint, shared.handle(), "two"), four(endpoint, shared.handle(), "four");
    OnePriority failing(endpoint, shared.handle(), "");
    const std::map<std::string, ipc::ZmqServerConnector*> servers = {
        {"one", &one}, {"other", &other}, {"two", &two}, {"four", &four}};
    for (const char* life : {"first life", "second life"})
    {
        SCOPED_TRACE(life);
        ASSERT_EQ(failing.StartListening(), MakeStatusCodeFromErrno(EINVAL));
        for (const auto& [id, server] : servers)
        {
            server->RegisterCallback(Echo);
            server->SetStartupMessage("svc");
            ASSERT_EQ(server->StartListening(), StatusCode::Success) << id;
        }
        for (int frontEnd = 0; frontEnd < 6; ++frontEnd) registry.Receive(); // its registration
        for (const auto& [id, server] : servers)
        {
            registry.Send({id, "request"});
            ASSERT_EQ(registry.Receive(), id + "|request");
        }
        for (const auto& [id, server] : servers) ASSERT_EQ(server->StopListening(), StatusCode::Success) << id;
    }
}

// Threads whose numbers come again, failed starts between the good ones, 32 servers of both kinds on one context. That
// has room for 1,023 sockets: two lives make half as many, should ZeroMQ close none of them before the context ends.
TEST_F(ServerThread, OwnersOnEightThreadsDoNotDisturbEachOther)
{
    log.SetLevel(2);
    for (int round = 0; round < 12; ++round)
    {
        SCOPED_TRACE("round " + std::to_string(round));
        zmq::context_t shared;
        std::vector<std::future<void>> owners;
        for (const char* owner : {"a", "b", "c", "d", "e", "f", "g", "h"})
            owners.push_back(std::async(std::launch::async, LiveTwice, std::ref(shared), folder.Endpoint(owner)));
        for (std::future<void>& owner : owners) owner.get();
    }
}
