#include "support/CapturedLog.h"
#include "support/Exposed.h"
#include "support/Faults.h"
#include "support/Peers.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace
{

using Lines = std::vector<std::string>;

const std::string kRegistered = "[ipc::ZmqServerConnector] Registered to Quillmere";

/// Both ends of a socket of a server's, with room for every message.
struct Wire
{
    Wire(zmq::context_t& context, const std::string& endpoint)
        : outside{context, zmq::socket_type::dealer}, inside{context, zmq::socket_type::dealer}
    {
        outside.set(zmq::sockopt::sndhwm, 0);
        outside.set(zmq::sockopt::rcvhwm, 0);
        inside.set(zmq::sockopt::sndhwm, 0);
        inside.set(zmq::sockopt::rcvhwm, 0);
        outside.bind(endpoint);
        inside.connect(endpoint);
    }

    void Queue(int count, const std::string& body)
    {
        for (int message = 0; message < count; ++message) outside.send(zmq::buffer(body), zmq::send_flags::none);
    }

    void QueueEvent(std::uint16_t id)
    {
        outside.send(zmq::buffer(&id, sizeof id), zmq::send_flags::sndmore);
        Queue(1, "address");
    }

    /// How many of these bodies wait at the outer end, which is emptied.
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

/// Servers whose sockets belong to the test, so that queues can be filled before anything is served.
class WiredServers : public testing::Test
{
protected:
    WiredServers()
    {
        const auto serve = [this](const ByteVector& request, ByteVector& response) {
            served += Text(request);
            response = request;
            if (served.size() == stopAfter) control.Queue(1, "any message at all");
        };
        one.RegisterCallback(serve);
        two.RegisterCallback(serve);
    }

    ~WiredServers() override { faults::Reset(); }

    void Burst(unsigned short limit) { one.ReadAndProcessBurstOfRequests(frontEnd.inside.handle(), limit); }

    void RunOne() { one.RunServer(frontEnd.inside.handle(), monitor.inside.handle(), control.inside.handle()); }

    void RunTwo()
    {
        two.RunServer(frontEnd.inside.handle(), rtFrontEnd.inside.handle(), monitor.inside.handle(),
                      rtMonitor.inside.handle(), control.inside.handle());
    }

    zmq::context_t context;
    Wire frontEnd{context, "inproc://front-end"};
    Wire rtFrontEnd{context, "inproc://rt-front-end"};
    Wire monitor{context, "inproc://monitor"};
    Wire rtMonitor{context, "inproc://rt-monitor"};
    Wire control{context, "inproc://control"};
    OnePriority one{"", context.handle(), "id"};
    TwoPriorities two{"", context.handle(), "id"};
    std::string served;
    std::size_t stopAfter = 0;
};

TEST_F(WiredServers, BurstTakesWhatIsQueuedUpToItsLimit)
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
        Burst(burst.limit);
        EXPECT_EQ(frontEnd.Answers("r"), burst.answered);
        while (!frontEnd.IsEmpty()) Burst(100);
        EXPECT_EQ(frontEnd.Answers("r"), burst.queued - burst.answered);
    }
    EXPECT_EQ(log.Take(), Lines{});
}

TEST_F(WiredServers, StopDuringARequestAnswersThatOneOnlyAndNoneLater)
{
    one.RegisterCallback([this](const ByteVector&, ByteVector&) { one.StopProcessingMessages(); });
    frontEnd.Queue(3, "r");
    for (int burst = 0; burst < 2; ++burst) Burst(100);
    EXPECT_EQ(frontEnd.Answers(""), 1);
}

TEST_F(WiredServers, OnlyAConnectionEventRegistersAndOnlyWithAnAddress)
{
    CapturedLog log(5);
    ByteVector registration = Bytes("registration");
    const auto process = [&](std::uint16_t id) {
        monitor.QueueEvent(id);
        one.ProcessConnectionEvents(monitor.inside.handle(), frontEnd.inside.handle(), registration);
        EXPECT_TRUE(monitor.IsEmpty());
        return frontEnd.Answers("registration");
    };
    EXPECT_EQ(process(ZMQ_EVENT_CONNECTED), 0); // no startup message was set
    one.SetStartupMessage("svc");
    EXPECT_EQ(process(ZMQ_EVENT_CONNECTED), 1);
    EXPECT_EQ(log.Take(), (Lines{kRegistered, kRegistered}));
    EXPECT_EQ(process(ZMQ_EVENT_DISCONNECTED), 0);
    EXPECT_EQ(log.Take(), Lines{});
}

TEST_F(WiredServers, UnattachedMonitorLeavesItsHandleAndUsesUpItsNumber)
{
    const CapturedLog log;
    std::vector<int> numbers;
    for (const bool isFailing : {false, true, false})
    {
        void* socket = nullptr;
        void* attached = &numbers;
        faults::Record();
        if (isFailing) faults::Fail("zmq_socket_monitor", ENOMEM);
        const StatusCode status = two.CreateFrontEndSocket(&socket, &attached, "id");
        EXPECT_EQ(status, isFailing ? StatusCode::Failure : MakeStatusCodeFromErrno(EINVAL)); // of the empty endpoint
        const std::string attach = faults::Recorded({"zmq_socket_monitor"}).at(0);
        numbers.push_back(std::stoi(attach.substr(attach.rfind('/') + 1)));
        EXPECT_EQ(attached == &numbers, isFailing);
        zmq_close(socket);
        if (!isFailing) zmq_close(attached);
    }
    EXPECT_EQ(numbers, (std::vector<int>{numbers[0], numbers[0] + 1, numbers[0] + 2}));
}

TEST_F(WiredServers, OnePriorityServesAHundredLooksAtTheMonitorAndHeedsTheStopLast)
{
    CapturedLog log(5);
    std::string servedBeforeEvent;
    one.RegisterCallback([&](const ByteVector&, ByteVector&) {
        served += 'r';
        if (!monitor.IsEmpty()) servedBeforeEvent = served;
        if (served.size() == 150) control.Queue(1, "any message at all");
    });
    frontEnd.Queue(250, "r");
    monitor.QueueEvent(ZMQ_EVENT_CONNECTED);
    RunOne();
    EXPECT_EQ(servedBeforeEvent.size(), 100U);
    EXPECT_EQ(served.size(), 250U); // the last burst shares its wake-up with the stop
    EXPECT_FALSE(control.IsEmpty());
    EXPECT_EQ(log.Take(), Lines{kRegistered});
}

TEST_F(WiredServers, TwoPrioritiesAnswerFortyUrgentToTenOrdinaryWhileBothWait)
{
    CapturedLog log(7);
    frontEnd.Queue(100, "o");
    rtFrontEnd.Queue(100, "U");
    stopAfter = 200;
    RunTwo();
    const std::string rhythm = std::string(40, 'U') + std::string(10, 'o');
    EXPECT_EQ(served, rhythm + rhythm + std::string(20, 'U') + std::string(80, 'o'));
    EXPECT_EQ(frontEnd.Answers("o"), 100);
    EXPECT_EQ(rtFrontEnd.Answers("U"), 100);
    EXPECT_EQ(log.Take(), Lines{"[ipc::ZmqServerSequentialTwoPriorities][trace] TERMINATE message received, worker "
                                "stopping..."});
}

TEST_F(WiredServers, TwoPrioritiesHeedTheStopFirstAndRegisterAfterTheRequests)
{
    CapturedLog log;
    two.SetStartupMessage("svc");
    for (Wire* wire : {&frontEnd, &rtFrontEnd}) wire->Queue(1, wire == &frontEnd ? "o" : "U");
    for (Wire* wire : {&rtMonitor, &monitor}) wire->QueueEvent(ZMQ_EVENT_CONNECTED);
    faults::Record();
    faults::Fail("zmq_poll", ENOTSOCK, 1);
    RunTwo();
    EXPECT_EQ(faults::Recorded({"zmq_poll", "zmq_send"}),
              (Lines{"zmq_poll 5", "zmq_send U", "zmq_send o", R"(zmq_send {"address":"svc","type":"register"})",
                     R"(zmq_send {"address":"RTsvc","type":"register"})", "zmq_poll 5"}));
    EXPECT_EQ(log.Take(),
              Lines{"[ipc::ZmqServerSequentialTwoPriorities] zmq_poll exited with error " + std::to_string(ENOTSOCK)});

    for (Wire* wire : {&frontEnd, &rtFrontEnd, &control}) wire->Queue(1, "r");
    for (Wire* wire : {&rtMonitor, &monitor}) wire->QueueEvent(ZMQ_EVENT_CONNECTED);
    served.clear();
    RunTwo();
    EXPECT_EQ(served, "");
    EXPECT_FALSE(monitor.IsEmpty() || rtMonitor.IsEmpty());
}

} // namespace
