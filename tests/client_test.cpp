#include "support/FailureTable.h"

#include <ipc/ZmqClientConnector.h>
#include <ipc/ZmqClientDealerConnector.h>

#include <cerrno>
#include <future>
#include <memory>
#include <numeric>
#include <optional>

namespace
{

const std::string kSharedTag = "[zeb.ipc.transport.connectors.rpc.library] ";
const std::string kPersistentTag = "[ipc::ZmqClientConnector] ";
const std::string kDealerTag = "[ipc::ZmqClientDealerConnector] ";
const StatusCode kNoMemory = MakeStatusCodeFromErrno(ENOMEM);

struct ExposedDealerClient : ipc::ZmqClientDealerConnector
{
    using ZmqClientDealerConnector::WaitForResponse;
    using ZmqClientDealerConnector::ZmqClientDealerConnector;
};

const std::string kService = "inproc://service";
const std::string kInterrupt = "inproc://interrupt";

/// A bound ZMQ_DEALER as the service, and what else a client needs.
struct World
{
    World()
    {
        peer.bind(kService);
        interrupter.bind(kInterrupt);
        peer.set(zmq::sockopt::rcvtimeo, kPatience);
    }

    std::string NextRequest()
    {
        zmq::message_t request;
        return peer.recv(request) ? request.to_string() : "nothing";
    }

    void Answer(const std::string& body) { peer.send(zmq::buffer(body), zmq::send_flags::none); }

    void Interrupt() { interrupter.send(zmq::message_t(), zmq::send_flags::none); }

    OperatingMode mode;
    zmq::context_t context;
    zmq::socket_t peer{context, zmq::socket_type::dealer};
    zmq::socket_t interrupter{context, zmq::socket_type::pub};
    const ByteVector untouched = Bytes("longer than any reply of these tests");
    ByteVector response = untouched;
};

struct PersistentWorld : World
{
    StatusCode Send(const std::string& body, int timeout) { return client.SendRequest(Bytes(body), response, timeout); }

    ipc::ZmqClientConnector client{kService, mode, context.handle()};
};

struct DealerWorld : World
{
    StatusCode Send(const std::string& body, int timeout) { return client.SendRequest(Bytes(body), response, timeout); }

    ExposedDealerClient client{context.handle(), kService, kInterrupt};
};

/// The sockets of one request that has a reply waiting.
struct WaitingDealerWorld : DealerWorld
{
    WaitingDealerWorld()
    {
        requester.connect(kService);
        interrupt.connect(kInterrupt);
        interrupt.set(zmq::sockopt::subscribe, "");
        Answer("reply");
    }

    StatusCode Wait() { return client.WaitForResponse(requester.handle(), interrupt.handle(), response, 0); }

    zmq::socket_t requester{context, zmq::socket_type::dealer};
    zmq::socket_t interrupt{context, zmq::socket_type::sub};
};

/// The status of an exchange that has left the response as it was.
StatusCode Unanswered(const World& world, StatusCode status)
{
    EXPECT_EQ(world.response, world.untouched);
    return status;
}

template <typename Kind>
class ClientTest : public testing::Test, protected Kind
{
protected:
    ~ClientTest() override { faults::Reset(); }
};

using PersistentClient = ClientTest<PersistentWorld>;
using DealerClient = ClientTest<DealerWorld>;
using WaitingDealerClient = ClientTest<WaitingDealerWorld>;

TEST_F(PersistentClient, BodiesArriveUnchangedInBothDirections)
{
    ByteVector big(8 << 20);
    std::iota(big.begin(), big.end(), static_cast<unsigned char>(0));
    for (const ByteVector& body : {ByteVector{}, ByteVector{0}, big, ByteVector{}})
    {
        auto echoed = std::async(std::launch::async, [&] { Answer(NextRequest()); });
        EXPECT_EQ(client.SendRequest(body, response, kPatience), StatusCode::Success);
        echoed.get();
        EXPECT_EQ(response, body);
    }
}

TEST_F(PersistentClient, LateReplyIsTheNextRequestsResponse)
{
    CapturedLog log;
    EXPECT_EQ(Send("first", 0), StatusCode::TimedOut);
    EXPECT_EQ(response, untouched);
    EXPECT_EQ(log.Take(), Lines{kPersistentTag + "zmq_poll exited in timeout"});
    EXPECT_EQ(NextRequest(), "first");
    Answer("late");
    EXPECT_EQ(Send("second", kPatience), StatusCode::Success);
    EXPECT_EQ(Text(response), "late");
}

TEST_F(PersistentClient, ForbiddenWaitHasSentItsRequestAndSaysNothing)
{
    CapturedLog log(7);
    mode.isForbidden = true;
    EXPECT_EQ(Send("sent", kPatience), StatusCode::BlockingForbidden);
    EXPECT_EQ(NextRequest(), "sent");
    EXPECT_EQ(response, untouched);
    EXPECT_EQ(log.Take(), Lines{});
}

TEST_F(PersistentClient, ConnectsOnFirstUseOnlyAndThenSetsLinger)
{
    const CapturedLog log;
    faults::Record();
    std::make_unique<ipc::ZmqClientConnector>(kService, mode, context.handle()).reset();
    Send("", 0);
    Send("", 0);
    EXPECT_EQ(faults::Recorded(), (Lines{"zmq_socket DEALER", "zmq_close DEALER", "zmq_connect " + kService,
                                         "zmq_setsockopt " + std::to_string(ZMQ_LINGER) + " 2000", "zmq_send",
                                         "zmq_poll 1", "zmq_send", "zmq_poll 1"}));
}

TEST_F(PersistentClient, WithoutASocketFailsEachRequestAndLogsIt)
{
    CapturedLog log;
    ipc::ZmqClientConnector orphan(kService, mode, nullptr);
    const std::string refused = kSharedTag + "Failed to connect to RPC REPLY server!, " + std::to_string(ENOTSOCK);
    for (int request = 0; request < 2; ++request)
    {
        EXPECT_EQ(orphan.SendRequest({}, response, 0), MakeStatusCodeFromErrno(ENOTSOCK));
    }
    EXPECT_EQ(log.Take(), (Lines{kSharedTag + "ZmqClientConnector: Failed to create ZMQ socket type ZMQ_REQ, 14",
                                 refused, refused}));
}

// An error number of 0 converts to success: the request then goes on where it can.
TEST(PersistentClientFailures, WhileConnecting)
{
    ExpectFailures<PersistentWorld>(
        {{{{"zmq_connect", ENOMEM}}, kNoMemory, {kSharedTag + "Failed to connect to RPC REPLY server!, 12"}, {}},
         {{{"zmq_connect", 0}, {"zmq_send", ENOMEM}},
          kNoMemory,
          {kSharedTag + "Failed to connect to RPC REPLY server!, 0", kSharedTag + "Failed to send REQUEST, 12"},
          {}},
         {{{"zmq_setsockopt", ENOMEM}},
          StatusCode::TimedOut,
          {kSharedTag + "Failed to set zmq LINGER value, 12", kPersistentTag + "zmq_poll exited in timeout"},
          {}},
         {{{"zmq_send", 0}}, StatusCode::Success, {kSharedTag + "Failed to send REQUEST, 0"}, {}}},
        [](PersistentWorld&) {}, [](PersistentWorld& world) { return Unanswered(world, world.Send("", 0)); });
}

TEST(PersistentClientFailures, WithAReplyWaiting)
{
    const Lines messageClosed = {"zmq_msg_close"};
    ExpectFailures<PersistentWorld>(
        {{{{"zmq_poll", EINTR}}, MakeStatusCodeFromErrno(EINTR), {kPersistentTag + "zmq_poll exited with error 4"}, {}},
         {{{"zmq_poll", 0}}, StatusCode::Success, {kPersistentTag + "zmq_poll exited with error 0"}, {}},
         {{{"zmq_msg_init", ENOMEM}}, kNoMemory, {kPersistentTag + "Failed to init recv message, 12"}, {}},
         {{{"zmq_msg_recv", ENOMEM}}, kNoMemory, {kPersistentTag + "Failed to receive RESPONSE, 12"}, messageClosed},
         {{{"zmq_msg_recv", 0}},
          StatusCode::Success,
          {kPersistentTag + "Failed to receive RESPONSE, 0"},
          messageClosed},
         {{{"zmq_msg_init", 0}, {"zmq_msg_recv", ENOMEM}},
          kNoMemory,
          {kPersistentTag + "Failed to init recv message, 0", kPersistentTag + "Failed to receive RESPONSE, 12"},
          messageClosed}},
        [](PersistentWorld& world)
        {
            world.Send("prime", 0);
            EXPECT_EQ(world.NextRequest(), "prime");
            world.Answer("reply");
        },
        [](PersistentWorld& world) { return Unanswered(world, world.Send("failing", 0)); });
}

TEST_F(DealerClient, UsesFreshSocketsInOrderForEachRequest)
{
    auto answered = std::async(std::launch::async, [&] { Answer(NextRequest() + " answered"); });
    faults::Record();
    EXPECT_EQ(Send("one", kPatience), StatusCode::Success);
    EXPECT_EQ(
        faults::Recorded({"zmq_socket", "zmq_connect", "zmq_setsockopt", "zmq_poll", "zmq_close"}),
        (Lines{"zmq_socket SUB", "zmq_connect " + kInterrupt, "zmq_setsockopt " + std::to_string(ZMQ_SUBSCRIBE),
               "zmq_socket DEALER", "zmq_connect " + kService, "zmq_poll 2", "zmq_close DEALER", "zmq_close SUB"}));
    EXPECT_EQ(Text(response), "one answered");

    const CapturedLog log;
    EXPECT_EQ(Send("two", 0), StatusCode::TimedOut);
    EXPECT_EQ(NextRequest(), "two");
}

TEST_F(DealerClient, InterruptEndsTheWaitSilently)
{
    CapturedLog log(7);
    auto waiting = std::async(std::launch::async, [&] { return Send("", -1); });
    EXPECT_EQ(NextRequest(), ""); // its subscriber has connected before
    Interrupt();
    EXPECT_EQ(waiting.get(), StatusCode::Interrupted);
    EXPECT_EQ(log.Take(), Lines{});
}

TEST_F(DealerClient, ThreadsSharingOneConnectorGetTheirOwnAnswers)
{
    zmq::socket_t router(context, zmq::socket_type::router);
    router.bind("inproc://shared");
    ipc::ZmqClientDealerConnector shared(context.handle(), "inproc://shared", kInterrupt);
    constexpr int kThreads = 8;
    constexpr int kRequests = 50;
    std::vector<std::future<int>> callers;
    for (int thread = 0; thread < kThreads; ++thread)
    {
        callers.push_back(std::async(
            std::launch::async,
            [&, thread]
            {
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
    for (int request = 0; request < kThreads * kRequests; ++request)
    {
        zmq::message_t caller;
        zmq::message_t body;
        ASSERT_TRUE(router.recv(caller) && router.recv(body));
        router.send(caller, zmq::send_flags::sndmore);
        router.send(body, zmq::send_flags::none);
    }
    for (std::future<int>& caller : callers)
        EXPECT_EQ(caller.get(), kRequests);
}

TEST(DealerClientFailures, CloseWhatWasOpened)
{
    const std::string create = kDealerTag + "Failed to create socket of type ";
    const std::string connect = kDealerTag + "Failed to connect socket to ";
    const Lines both = {"zmq_close DEALER", "zmq_close SUB"};
    const Lines interruptOnly = {"zmq_close SUB"};
    ExpectFailures<DealerWorld>(
        {{{{"zmq_socket", ENOMEM}}, kNoMemory, {create + "2, 12"}, {}},
         {{{"zmq_connect", ENOMEM}}, kNoMemory, {connect + kInterrupt + ", 12"}, interruptOnly},
         {{{"zmq_setsockopt", ENOMEM}}, kNoMemory, {kDealerTag + "Set socket option failed 12"}, interruptOnly},
         {{{"zmq_socket", ENOMEM, 1}}, kNoMemory, {create + "5, 12"}, interruptOnly},
         {{{"zmq_connect", ENOMEM, 1}}, kNoMemory, {connect + kService + ", 12"}, both},
         {{{"zmq_send", ENOMEM}}, kNoMemory, {kDealerTag + "Failed to send REQUEST, 12"}, both},
         {{{"zmq_send", 0}},
          StatusCode::TimedOut,
          {kDealerTag + "Failed to send REQUEST, 0", kDealerTag + "zmq_poll exited in timeout"},
          both},
         {{{"zmq_poll", EINTR}}, MakeStatusCodeFromErrno(EINTR), {kDealerTag + "zmq_poll exited with error 4"}, both}},
        [](DealerWorld&) {}, [](DealerWorld& world) { return Unanswered(world, world.Send("", 0)); });
}

TEST_F(WaitingDealerClient, InterruptOutweighsTheReplyReceivedWithIt)
{
    Interrupt();
    EXPECT_EQ(Wait(), StatusCode::Interrupted);
    EXPECT_EQ(Text(response), "reply");
}

TEST(DealerClientFailures, AreOutweighedByAnInterruptButForAFailedPoll)
{
    const Lines closed = {"zmq_msg_close"};
    const Lines init = {kDealerTag + "Failed to init recv message, 12"};
    const Lines receive = {kDealerTag + "Failed to receive RESPONSE, 12"};
    const Lines poll = {kDealerTag + "zmq_poll exited with error 12"};
    for (const bool isInterrupted : {false, true})
    {
        const StatusCode status = isInterrupted ? StatusCode::Interrupted : kNoMemory;
        ExpectFailures<WaitingDealerWorld>(
            {{{{"zmq_poll", ENOMEM}}, kNoMemory, poll, {}},
             {{{"zmq_poll", 0}}, StatusCode::Success, {kDealerTag + "zmq_poll exited with error 0"}, {}},
             {{{"zmq_msg_init", ENOMEM}}, status, init, {}},
             {{{"zmq_msg_recv", ENOMEM}}, status, receive, closed}},
            [&](WaitingDealerWorld& world)
            {
                if (isInterrupted) world.Interrupt();
            },
            [](WaitingDealerWorld& world) { return Unanswered(world, world.Wait()); });
    }
}

} // namespace
