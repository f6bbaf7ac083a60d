#include "support/ServerThread.h"

#include <algorithm>
#include <future>
#include <locale>
#include <map>
#include <regex>

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
                ASSERT_EQ(service.Receive(), frontEnd + "|for " + frontEnd);
            }
            ASSERT_EQ(both.StopListening(), StatusCode::Success);
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
        ASSERT_EQ(again.Receive(), Registration("id", "svc"));
        ASSERT_TRUE(log.Await(kTag + "Registered to Quillmere"));
    }
    ASSERT_EQ(lonely.StopListening(), StatusCode::Success);
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
    for (int round = 0; round < 4; ++round)
    {
        const DescriptorsComeBack guard;
        for (int life = 0; life < 50; ++life)
        {
            StartAndRegister();
            service.Send({"id", "first of " + std::to_string(life), "second"});
            ASSERT_EQ(service.Receive(), "id|first of " + std::to_string(life));
            ASSERT_EQ(service.Receive(), "id|second");
            Stop();
        }
    }
}

void LiveTwice(int owner, zmq::context_t& shared, const std::string& endpoint)
{
    SCOPED_TRACE("owner " + std::to_string(owner));
    zmq::context_t elsewhere;
    Peer registry(elsewhere, zmq::socket_type::router, endpoint);
    OnePriority one(endpoint, shared.handle(), "one"), other(endpoint, shared.handle(), "other");
    TwoPriorities two(endpoint, shared.handle(), "two"), four(endpoint, shared.handle(), "four");
    OnePriority failing(endpoint, shared.handle(), "");
    const std::map<std::string, ipc::ZmqServerConnector*> servers = {
        {"one", &one}, {"other", &other}, {"two", &two}, {"four", &four}};
    for (const auto& [id, server] : servers)
    {
        server->RegisterCallback(Echo);
        server->SetStartupMessage("svc");
    }
    for (const char* life : {"first life", "second life"})
    {
        SCOPED_TRACE(life);
        ASSERT_EQ(failing.StartListening(), MakeStatusCodeFromErrno(EINVAL));
        for (const auto& [id, server] : servers) ASSERT_EQ(server->StartListening(), StatusCode::Success) << id;
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
        for (int owner = 0; owner < 8; ++owner)
            owners.push_back(std::async(std::launch::async, LiveTwice, owner, std::ref(shared),
                                        folder.Endpoint("owner" + std::to_string(owner))));
        for (std::future<void>& owner : owners) owner.get();
    }
}

} // namespace
