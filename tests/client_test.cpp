#include "support/CapturedLog.h"
#include "support/Exposed.h"
#include "support/Faults.h"
#include "support/Peers.h"

#include <ipc/ZmqClientConnector.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <memory>
#include <numeric>

namespace
{

using Lines = std::vector<std::string>;

const std::string kService = "inproc://service";
const std::string kInterrupt = "inproc://interrupt";

/// Both clients opposite a bound ZMQ_DEALER.
class Clients : public testing::Test
{
protected:
    Clients()
    {
        peer.bind(kService);
        interrupter.bind(kInterrupt);
        peer.set(zmq::sockopt::rcvtimeo, kPatience);
    }

    ~Clients() override { faults::Reset(); }

    StatusCode SendPersistent(const std::string& body, int timeout)
    {
        return persistent.SendRequest(Bytes(body), response, timeout);
    }

    std::string NextRequest()
    {
        zmq::message_t request;
        return peer.recv(request) ? request.to_string() : "nothing";
    }

    void Answer(const std::string& body) { peer.send(zmq::buffer(body), zmq::send_flags::none); }

    OperatingMode mode;
    zmq::context_t context;
    zmq::socket_t peer{context, zmq::socket_type::dealer};
    zmq::socket_t interrupter{context, zmq::socket_type::pub};
    ipc::ZmqClientConnector persistent{kService, mode, context.handle()};
    ExposedDealerClient dealer{context.handle(), kService, kInterrupt};
    const ByteVector untouched = Bytes("longer than any reply of these tests");
    ByteVector response = untouched;
};

TEST_F(Clients, PersistentTakesALateReplyForTheNextRequests)
{
    CapturedLog log;
    EXPECT_EQ(SendPersistent("first", 0), StatusCode::TimedOut);
    EXPECT_EQ(response, untouched);
    EXPECT_EQ(log.Take(), Lines{"[ipc::ZmqClientConnector] zmq_poll exited in timeout"});
    EXPECT_EQ(NextRequest(), "first");
    Answer("late");
    EXPECT_EQ(SendPersistent("second", kPatience), StatusCode::Success);
    EXPECT_EQ(Text(response), "late");
}

TEST_F(Clients, PersistentHasSentItsRequestWhenWaitingIsForbiddenAndSaysNothing)
{
    CapturedLog log(7);
    mode.isForbidden = true;
    EXPECT_EQ(SendPersistent("sent", kPatience), StatusCode::BlockingForbidden);
    EXPECT_EQ(NextRequest(), "sent");
    EXPECT_EQ(response, untouched);
    EXPECT_EQ(log.Take(), Lines{});
}

TEST_F(Clients, PersistentConnectsOnFirstUseOnlyAndThenSetsLinger)
{
    const CapturedLog log;
    faults::Record();
    std::make_unique<ipc::ZmqClientConnector>(kService, mode, context.handle()).reset();
    SendPersistent("", 0);
    SendPersistent("", 0);
    const std::string linger = "zmq_setsockopt " + std::to_string(ZMQ_LINGER) + " 2000";
    EXPECT_EQ(faults::Recorded(), (Lines{"zmq_socket DEALER", "zmq_close DEALER", "zmq_connect " + kService, linger,
                                         "zmq_send", "zmq_poll 1", "zmq_send", "zmq_poll 1"}));
}

TEST_F(Clients, PersistentWithoutASocketFailsEachRequestAndLogsIt)
{
    CapturedLog log;
    const std::string tag = "[zeb.ipc.transport.connectors.rpc.library] ";
    ipc::ZmqClientConnector orphan(kService, mode, nullptr);
    EXPECT_EQ(log.Take(), Lines{tag + "ZmqClientConnector: Failed to create ZMQ socket type ZMQ_REQ, 14"});
    for (int request = 0; request < 2; ++request)
    {
        EXPECT_EQ(orphan.SendRequest({}, response, 0), MakeStatusCodeFromErrno(ENOTSOCK));
        EXPECT_EQ(log.Take(), Lines{tag + "Failed to connect to RPC REPLY server!, " + std::to_string(ENOTSOCK)});
    }
}

TEST_F(Clients, DealerUsesFreshSocketsInOrderForEachRequest)
{
    auto answered = std::async(std::launch::async, [&] { Answer(NextRequest() + " answered"); });
    faults::Record();
    EXPECT_EQ(dealer.SendRequest(Bytes("one"), response, kPatience), StatusCode::Success);
    EXPECT_EQ(Text(response), "one answered");
    const std::string subscribe = "zmq_setsockopt " + std::to_string(ZMQ_SUBSCRIBE);
    EXPECT_EQ(faults::Recorded({"zmq_socket", "zmq_connect", "zmq_setsockopt", "zmq_poll", "zmq_close"}),
              (Lines{"zmq_socket SUB", "zmq_connect " + kInterrupt, subscribe, "zmq_socket DEALER",
                     "zmq_connect " + kService, "zmq_poll 2", "zmq_close DEALER", "zmq_close SUB"}));
}

TEST_F(Clients, DealerIsInterruptedSilentlyAndEvenWithAReplyInHand)
{
    CapturedLog log(7);
    auto waiting = std::async(std::launch::async, [&] { return dealer.SendRequest({}, response, -1); });
    EXPECT_EQ(NextRequest(), ""); // its subscriber has connected before
    interrupter.send(zmq::message_t(), zmq::send_flags::none);
    EXPECT_EQ(waiting.get(), StatusCode::Interrupted);
    EXPECT_EQ(response, untouched);
    EXPECT_EQ(log.Take(), Lines{});

    zmq::socket_t requester(context, zmq::socket_type::dealer);
    zmq::socket_t subscriber(context, zmq::socket_type::sub);
    requester.connect(kService);
    subscriber.connect(kInterrupt);
    subscriber.set(zmq::sockopt::subscribe, "");
    Answer("reply");
    static_cast<void>(interrupter.get(zmq::sockopt::events)); // makes it take note of the new subscriber
    interrupter.send(zmq::message_t(), zmq::send_flags::none);
    EXPECT_EQ(dealer.WaitForResponse(requester.handle(), subscriber.handle(), response, 0), StatusCode::Interrupted);
    EXPECT_EQ(Text(response), "reply");
}

TEST_F(Clients, DealerGivesEachOfEightThreadsItsOwnAnswers)
{
    zmq::socket_t router(context, zmq::socket_type::router);
    router.bind("inproc://shared");
    ipc::ZmqClientDealerConnector shared(context.handle(), "inproc://shared", kInterrupt);
    constexpr int kRequests = 50;
    std::vector<std::future<int>> callers;
    for (int thread = 0; thread < 8; ++thread)
    {
        callers.push_back(std::async(std::launch::async, [&, thread] {
            int right = 0;
            for (int request = 0; request < kRequests; ++request)
            {
                const ByteVector body = Bytes(std::to_string(thread) + ":" + std::to_string(request));
                ByteVector reply;
                right += shared.SendRequest(body, reply, kPatience) == StatusCode::Success && reply == body ? 1 : 0;
            }
            return right;
        }));
    }
    for (int request = 0; request < 8 * kRequests; ++request)
    {
        zmq::message_t caller;
        zmq::message_t body;
        ASSERT_TRUE(router.recv(caller) && router.recv(body));
        router.send(caller, zmq::send_flags::sndmore);
        router.send(body, zmq::send_flags::none);
    }
    for (std::future<int>& finished : callers) EXPECT_EQ(finished.get(), kRequests);
}

} // namespace
