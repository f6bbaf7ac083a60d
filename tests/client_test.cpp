#include "support/World.h"

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

// No error number is read for the line that tells of the option: it is suppressed.
TEST_F(Clients, PersistentConnectsOnFirstUseOnlyAndThenSetsLinger)
{
    log.SetLevel(2);
    faults::Record();
    faults::Fail("zmq_setsockopt", ENOMEM);
    ipc::ZmqClientConnector(kService, mode, context.handle());
    for (const char* body : {"first", "second"}) Send(body);
    const std::string linger = "zmq_setsockopt " + std::to_string(ZMQ_LINGER) + " 2000";
    EXPECT_EQ(faults::Recorded("zmq_"),
              (Lines{"zmq_socket DEALER", "zmq_close DEALER", "zmq_connect " + kService, linger, "zmq_send first",
                     "zmq_poll 1", "zmq_send second", "zmq_poll 1"}));
}

TEST_F(Clients, DealerGivesEachOfEightThreadsItsOwnAnswers)
{
    Peer router(context, zmq::socket_type::router, "inproc://shared");
    ipc::ZmqClientDealerConnector shared(context.handle(), "inproc://shared", kInterrupt);
    const auto call = [&](int thread) {
        for (int request = 0; request < 50; ++request)
        {
            const std::string body = std::to_string(thread) + ":" + std::to_string(request);
            ByteVector reply;
            ASSERT_EQ(shared.SendRequest(Bytes(body), reply, kPatience), StatusCode::Success) << body;
            ASSERT_EQ(Text(reply), body);
        }
    };
    std::vector<std::future<void>> callers;
    for (int thread = 0; thread < 8; ++thread) callers.push_back(std::async(std::launch::async, call, thread));
    for (int request = 0; request < 8 * 50; ++request) router.Answer();
    for (std::future<void>& finished : callers) finished.get();
}
