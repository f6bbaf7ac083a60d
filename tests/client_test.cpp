#include "support/World.h"

#include <ipc/ZmqConnectorFactory.h>

#include <future>

namespace
{

struct Clients : testing::Test, World
{
};

TEST_F(Clients, PersistentTakesALateReplyForTheNextRequests)
{
    EXPECT_EQ(Send("first", 0), StatusCode::TimedOut);
    EXPECT_EQ(service.Receive(), "first");
    const std::string late(10'000, 'l'); // too large for the message itself: one that isn't closed is found as a leak
    service.Send({late});
    EXPECT_EQ(Send("second", kPatience), StatusCode::Success);
    EXPECT_EQ(Text(response), late);
}

TEST_F(Clients, PersistentHasSentItsRequestWhenWaitingIsForbiddenAndSaysNothing)
{
    log.SetLevel(7);
    mode.isForbidden = true;
    EXPECT_EQ(Send("sent", kPatience), StatusCode::BlockingForbidden);
    EXPECT_EQ(service.Receive(), "sent");
    EXPECT_EQ(Text(response), "untouched");
    EXPECT_EQ(log.Take(), Lines{});
}

TEST_F(Clients, PersistentConnectsOnFirstUseOnlyAndThenSetsLinger)
{
    faults::Record();
    ipc::ZmqClientConnector(kService, mode, context.handle());
    for (const char* body : {"first", "second"}) Send(body);
    const std::string linger = "zmq_setsockopt " + std::to_string(ZMQ_LINGER) + " 2000";
    EXPECT_EQ(faults::Recorded(), (Lines{"zmq_socket DEALER", "zmq_close DEALER", "zmq_connect " + kService, linger,
                                         "zmq_send first", "zmq_poll 1", "zmq_send second", "zmq_poll 1"}));
}

TEST_F(Clients, PersistentReadsNoErrorNumberForASuppressedLine)
{
    for (const int level : {3, 2})
    {
        log.SetLevel(level);
        ipc::ZmqClientConnector client(kService, mode, context.handle());
        faults::Fail("zmq_setsockopt", ENOMEM);
        faults::Record();
        EXPECT_EQ(client.SendRequest({}, response, 0), StatusCode::TimedOut);
        EXPECT_EQ(faults::Recorded("zmq_errno").size(), level == 3 ? 1U : 0U);
    }
}

TEST_F(Clients, OfTheFactoryAreIndependentAndGiveTheirDescriptorsBack)
{
    const TempFolder folder;
    Peer router(context, zmq::socket_type::router, folder.Endpoint("router"));
    auto& factory = ipc::ZmqConnectorFactory::GetInstance();
    const auto create = [&] { return factory.CreateZmqClientConnector(folder.Endpoint("router"), mode); };
    const auto keeper = create(); // from here on ZeroMQ's threads have their descriptors
    const DescriptorsComeBack guard;
    const auto first = create();
    const auto second = create();
    for (auto* client : {first.get(), second.get()})
        EXPECT_EQ(client->SendRequest(Bytes("request"), response, 0), StatusCode::TimedOut);
    EXPECT_NE(router.Receive(), router.Receive());
}

TEST_F(Clients, DealerUsesFreshSocketsInOrderForEachRequest)
{
    auto answered = std::async(std::launch::async, [&] { service.Send({service.Receive() + " answered"}); });
    faults::Record();
    ASSERT_EQ(dealer.SendRequest(Bytes("one"), response, kPatience), StatusCode::Success);
    EXPECT_EQ(Text(response), "one answered");
    const std::string subscribe = "zmq_setsockopt " + std::to_string(ZMQ_SUBSCRIBE);
    EXPECT_EQ(faults::Recorded("zmq_socket|zmq_connect|zmq_setsockopt|zmq_poll|zmq_close"),
              (Lines{"zmq_socket SUB", "zmq_connect " + kInterrupt, subscribe, "zmq_socket DEALER",
                     "zmq_connect " + kService, "zmq_poll 2", "zmq_close DEALER", "zmq_close SUB"}));
}

TEST_F(Clients, DealerIsInterruptedSilently)
{
    log.SetLevel(7);
    auto waiting = std::async(std::launch::async, [&] { return dealer.SendRequest({}, response, -1); });
    EXPECT_EQ(service.Receive(), ""); // its subscriber has connected before
    interrupter.Send({""});
    EXPECT_EQ(waiting.get(), StatusCode::Interrupted);
    EXPECT_EQ(Text(response), "untouched");
    EXPECT_EQ(log.Take(), Lines{});
}

TEST_F(Clients, DealerGivesEachOfEightThreadsItsOwnAnswers)
{
    Peer router(context, zmq::socket_type::router, "inproc://shared");
    ipc::ZmqClientDealerConnector shared(context.handle(), "inproc://shared", kInterrupt);
    constexpr int kRequests = 50;
    const auto call = [&](int thread) {
        for (int request = 0; request < kRequests; ++request)
        {
            const std::string body = std::to_string(thread) + ":" + std::to_string(request);
            ByteVector reply;
            ASSERT_EQ(shared.SendRequest(Bytes(body), reply, kPatience), StatusCode::Success) << body;
            ASSERT_EQ(Text(reply), body);
        }
    };
    std::vector<std::future<void>> callers;
    for (int thread = 0; thread < 8; ++thread) callers.push_back(std::async(std::launch::async, call, thread));
    for (int request = 0; request < 8 * kRequests; ++request)
    {
        zmq::message_t caller, body;
        ASSERT_TRUE(router.recv(caller)) << request << " requests came";
        ASSERT_TRUE(router.recv(body));
        router.Send({caller.to_string(), body.to_string()});
    }
    for (std::future<void>& finished : callers) finished.get();
}

} // namespace
