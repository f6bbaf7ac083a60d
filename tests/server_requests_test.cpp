#include "support/Exposed.h"
#include "support/FailureTable.h"

#include <cerrno>
#include <numeric>

namespace
{

const std::string kTag = "[ipc::ZmqServerConnector] ";

/// A server whose sockets belong to the test, so that queues can be filled before anything is served.
template <typename Server>
struct WiredWorld
{
    /// Both ends of a socket of the server's, with room for every message.
    struct Wire
    {
        Wire(zmq::context_t& context, const std::string& endpoint)
            : outside{context, zmq::socket_type::dealer}, inside{context, zmq::socket_type::dealer}
        {
            for (zmq::socket_t* end : {&outside, &inside})
            {
                end->set(zmq::sockopt::rcvhwm, 0);
                end->set(zmq::sockopt::sndhwm, 0);
            }
            outside.bind(endpoint);
            inside.connect(endpoint);
        }

        void Queue(int count, const std::string& body)
        {
            for (int message = 0; message < count; ++message)
                outside.send(zmq::buffer(body), zmq::send_flags::none);
        }

        void QueueEvent(std::uint16_t id)
        {
            outside.send(zmq::buffer(&id, sizeof id), zmq::send_flags::sndmore);
            outside.send(zmq::buffer("address"), zmq::send_flags::none);
        }

        /// The bodies that wait at the outer end, taken.
        int Answers(const std::string& body)
        {
            int count = 0;
            for (zmq::message_t answer; outside.recv(answer, zmq::recv_flags::dontwait);)
            {
                count += answer.to_string_view() == body ? 1 : 0;
            }
            return count;
        }

        bool IsEmpty() { return (inside.get(zmq::sockopt::events) & ZMQ_POLLIN) == 0; }

        zmq::socket_t outside;
        zmq::socket_t inside;
    };

    WiredWorld()
    {
        server.RegisterCallback(
            [this](const ByteVector& request, ByteVector& response)
            {
                served += Text(request);
                response = request;
                if (static_cast<int>(served.size()) == stopAfter) control.Queue(1, "any message at all");
            });
    }

    zmq::context_t context;
    Wire frontEnd{context, "inproc://front-end"};
    Wire rtFrontEnd{context, "inproc://rt-front-end"};
    Wire monitor{context, "inproc://monitor"};
    Wire rtMonitor{context, "inproc://rt-monitor"};
    Wire control{context, "inproc://control"};
    Server server{"", context.handle(), "id"};
    ByteVector startupMessage = Bytes("registration");
    std::string served;
    int stopAfter = -1;
};

template <typename Server>
class Wired : public testing::Test, protected WiredWorld<Server>
{
protected:
    ~Wired() override { faults::Reset(); }
};

using WiredOnePriority = Wired<OnePriority>;
using WiredTwoPriorities = Wired<TwoPriorities>;
using OnePriorityWorld = WiredWorld<OnePriority>;

TEST_F(WiredOnePriority, BurstTakesWhatIsQueuedUpToItsLimit)
{
    struct
    {
        int queued;
        unsigned short limit;
        int answered;
    } const bursts[] = {{3, 0, 0}, {3, 100, 3}, {150, 100, 100}, {65'600, 65'535, 65'535}};

    CapturedLog log;
    for (const auto& burst : bursts)
    {
        SCOPED_TRACE(burst.queued);
        frontEnd.Queue(burst.queued, "r");
        server.ReadAndProcessBurstOfRequests(frontEnd.inside.handle(), burst.limit);
        EXPECT_EQ(frontEnd.Answers("r"), burst.answered);
        while (!frontEnd.IsEmpty())
            server.ReadAndProcessBurstOfRequests(frontEnd.inside.handle(), 100);
        EXPECT_EQ(frontEnd.Answers("r"), burst.queued - burst.answered);
    }
    frontEnd.Queue(1, "");
    server.ReadAndProcessBurstOfRequests(frontEnd.inside.handle(), 100);
    EXPECT_EQ(frontEnd.Answers(""), 1);
    EXPECT_EQ(log.Take(), Lines{});

    frontEnd.Queue(3, "r");
    server.StopProcessingMessages();
    server.ReadAndProcessBurstOfRequests(frontEnd.inside.handle(), 100);
    EXPECT_EQ(frontEnd.Answers("r"), 0);
}

TEST_F(WiredOnePriority, StopDuringARequestAnswersThatOneOnly)
{
    server.RegisterCallback([this](const ByteVector&, ByteVector&) { server.StopProcessingMessages(); });
    frontEnd.Queue(3, "r");
    server.ReadAndProcessBurstOfRequests(frontEnd.inside.handle(), 100);
    EXPECT_EQ(frontEnd.Answers(""), 1);
    EXPECT_FALSE(frontEnd.IsEmpty());
}

StatusCode Burst(OnePriorityWorld& world)
{
    world.server.ReadAndProcessBurstOfRequests(world.frontEnd.inside.handle(), 100);
    return StatusCode::Success;
}

TEST(RequestFailures, EndTheBurstAndCloseTheMessage)
{
    ExpectFailures<OnePriorityWorld>(
        {{{{"zmq_msg_init", ENOMEM}}, StatusCode::Success, {kTag + "Failed to init recv message, 12"}, {}},
         {{{"zmq_msg_recv", EAGAIN}}, StatusCode::Success, {}, {"zmq_msg_close"}},
         {{{"zmq_msg_recv", ENOTSOCK}},
          StatusCode::Success,
          {kTag + "Failed to receive REQUEST, " + std::to_string(ENOTSOCK)},
          {"zmq_msg_close"}},
         {{{"zmq_send", EAGAIN, 1}},
          StatusCode::Success,
          {kTag + "Failed to send RESPONSE, 11"},
          {"zmq_msg_close", "zmq_msg_close"}}},
        [](OnePriorityWorld& world) { world.frontEnd.Queue(3, "r"); },
        [](OnePriorityWorld& world)
        {
            const StatusCode status = Burst(world);
            EXPECT_FALSE(world.frontEnd.IsEmpty());
            return status;
        });
}

TEST(ConnectionEventFailures, AreLoggedAndConsumeTheAddressAsWell)
{
    const Lines both = {"zmq_msg_close", "zmq_msg_close"};
    ExpectFailures<OnePriorityWorld>(
        {{{{"zmq_send", ENOMEM}},
          StatusCode::Success,
          {kTag + "Failed to send startup message 12", kTag + "Register to Quillmere FAILED"},
          both},
         {{{"zmq_send", 0}}, StatusCode::Success, {kTag + "Failed to send startup message 0"}, both},
         {{{"zmq_msg_recv", EAGAIN}}, StatusCode::Success, {}, both},
         {{{"zmq_msg_recv", ENOMEM}}, StatusCode::Success, {kTag + "Failed to recv monitor message, 12"}, both},
         {{{"zmq_msg_recv", ENOMEM, 1}}, StatusCode::Success, {}, both},
         {{{"zmq_msg_init", ENOMEM}}, StatusCode::Success, {}, {}},
         {{{"zmq_msg_init", ENOMEM, 1}}, StatusCode::Success, {}, {"zmq_msg_close"}}},
        [](OnePriorityWorld& world)
        {
            world.server.SetStartupMessage("svc");
            world.monitor.QueueEvent(ZMQ_EVENT_CONNECTED);
        },
        [](OnePriorityWorld& world)
        {
            world.server.ProcessConnectionEvents(world.monitor.inside.handle(), world.frontEnd.inside.handle(),
                                                 world.startupMessage);
            return StatusCode::Success;
        });
}

TEST_F(WiredOnePriority, OnlyAConnectionEventRegistersAndOnlyWithAnAddress)
{
    CapturedLog log(5);
    const auto process = [&](std::uint16_t id)
    {
        monitor.QueueEvent(id);
        server.ProcessConnectionEvents(monitor.inside.handle(), frontEnd.inside.handle(), startupMessage);
        EXPECT_TRUE(monitor.IsEmpty());
        return frontEnd.Answers("registration");
    };
    EXPECT_EQ(process(ZMQ_EVENT_CONNECTED), 0); // no startup message was set
    EXPECT_EQ(log.Take(), Lines{kTag + "Registered to Quillmere"});
    server.SetStartupMessage("svc");
    EXPECT_EQ(process(ZMQ_EVENT_DISCONNECTED), 0);
    EXPECT_EQ(log.Take(), Lines{});
    EXPECT_EQ(process(ZMQ_EVENT_CONNECTED), 1);
    EXPECT_EQ(log.Take(), Lines{kTag + "Registered to Quillmere"});
}

TEST(FrontEnd, UnattachedMonitorLeavesItsHandleAndUsesUpItsNumber)
{
    const CapturedLog log;
    zmq::context_t context;
    OnePriority server("inproc://anywhere", context.handle(), "id");
    std::vector<int> numbers;
    for (const bool isFailing : {false, true, false})
    {
        void* frontEnd = nullptr;
        void* monitor = &numbers;
        faults::Record();
        if (isFailing) faults::Fail("zmq_socket_monitor", ENOMEM);
        EXPECT_EQ(server.CreateFrontEndSocket(&frontEnd, &monitor, "id"),
                  isFailing ? StatusCode::Failure : StatusCode::Success);
        const std::string attach = faults::Recorded({"zmq_socket_monitor"}).at(0);
        numbers.push_back(std::stoi(attach.substr(attach.rfind('/') + 1)));
        EXPECT_EQ(monitor == &numbers, isFailing);
        zmq_close(frontEnd);
        if (!isFailing) zmq_close(monitor);
        faults::Reset();
    }
    EXPECT_EQ(numbers, (std::vector<int>{numbers[0], numbers[0] + 1, numbers[0] + 2}));
}

TEST_F(WiredOnePriority, ServesTheFrontEndBeforeItHeedsTheStop)
{
    frontEnd.Queue(150, "r");
    monitor.QueueEvent(ZMQ_EVENT_DISCONNECTED);
    control.Queue(1, "any message at all");
    server.RunServer(frontEnd.inside.handle(), monitor.inside.handle(), control.inside.handle());
    EXPECT_EQ(frontEnd.Answers("r"), 100);
    EXPECT_TRUE(monitor.IsEmpty());
    EXPECT_FALSE(control.IsEmpty());
}

TEST_F(WiredOnePriority, LooksAtTheMonitorBetweenBursts)
{
    CapturedLog log(5);
    frontEnd.Queue(250, "r");
    monitor.QueueEvent(ZMQ_EVENT_CONNECTED);
    stopAfter = 201; // in the third burst
    server.RegisterCallback(
        [this](const ByteVector& request, ByteVector& response)
        {
            served += Text(request);
            response = Bytes(monitor.IsEmpty() ? "after" : "before");
            if (static_cast<int>(served.size()) == stopAfter) control.Queue(1, "stop");
        });
    server.RunServer(frontEnd.inside.handle(), monitor.inside.handle(), control.inside.handle());
    EXPECT_EQ(served.size(), 250U);
    int before = 0;
    for (zmq::message_t answer; frontEnd.outside.recv(answer, zmq::recv_flags::dontwait);)
    {
        before += answer.to_string_view() == "before" ? 1 : 0;
    }
    EXPECT_EQ(before, 100);
}

TEST_F(WiredTwoPriorities, AnswersFortyUrgentToTenOrdinaryWhileBothWait)
{
    frontEnd.Queue(100, "o");
    rtFrontEnd.Queue(100, "U");
    stopAfter = 200;
    CapturedLog log(7);
    server.RunServer(frontEnd.inside.handle(), rtFrontEnd.inside.handle(), monitor.inside.handle(),
                     rtMonitor.inside.handle(), control.inside.handle());
    const std::string ten(10, 'o');
    const std::string forty(40, 'U');
    EXPECT_EQ(served, forty + ten + forty + ten + std::string(20, 'U') + std::string(80, 'o'));
    EXPECT_EQ(frontEnd.Answers("o"), 100);
    EXPECT_EQ(rtFrontEnd.Answers("U"), 100);
    EXPECT_EQ(log.Take(), Lines{"[ipc::ZmqServerSequentialTwoPriorities][trace] TERMINATE message received, worker "
                                "stopping..."});
}

TEST_F(WiredTwoPriorities, HeedsTheStopBeforeAnythingElse)
{
    for (Wire* frontEndOfBoth : {&frontEnd, &rtFrontEnd})
        frontEndOfBoth->Queue(1, "r");
    for (Wire* monitorOfBoth : {&monitor, &rtMonitor})
        monitorOfBoth->QueueEvent(ZMQ_EVENT_CONNECTED);
    control.Queue(1, "any message at all");
    server.RunServer(frontEnd.inside.handle(), rtFrontEnd.inside.handle(), monitor.inside.handle(),
                     rtMonitor.inside.handle(), control.inside.handle());
    EXPECT_EQ(served, "");
    EXPECT_FALSE(monitor.IsEmpty() || rtMonitor.IsEmpty());
}

TEST_F(WiredTwoPriorities, RegistersEachFrontEndAfterTheRequestsOrdinaryFirst)
{
    server.SetStartupMessage("svc");
    frontEnd.Queue(1, "o");
    rtFrontEnd.Queue(1, "U");
    for (Wire* monitorOfBoth : {&rtMonitor, &monitor})
        monitorOfBoth->QueueEvent(ZMQ_EVENT_CONNECTED);
    faults::Record();
    // The stop comes with the last of the four: nothing but the events is left to do.
    faults::Fail("zmq_poll", ENOTSOCK, 1);
    CapturedLog log;
    server.RunServer(frontEnd.inside.handle(), rtFrontEnd.inside.handle(), monitor.inside.handle(),
                     rtMonitor.inside.handle(), control.inside.handle());
    EXPECT_EQ(faults::Recorded({"zmq_poll", "zmq_send"}),
              (Lines{"zmq_poll 5", "zmq_send U", "zmq_send o", R"(zmq_send {"address":"svc","type":"register"})",
                     R"(zmq_send {"address":"RTsvc","type":"register"})", "zmq_poll 5"}));
    EXPECT_EQ(log.Take(),
              Lines{"[ipc::ZmqServerSequentialTwoPriorities] zmq_poll exited with error " + std::to_string(ENOTSOCK)});
}

} // namespace
