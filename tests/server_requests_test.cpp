#include "support/World.h"

/// Servers whose queues are filled before anything is served.
struct WiredServers : testing::Test, World
{
    WiredServers()
    {
        const auto serve = [this](const ByteVector& request, ByteVector& reply) {
            served += Text(request);
            reply = request;
            if (!monitor.IsEmpty()) servedBeforeEvent = served.size();
            if (served.size() == stopAfter) control.Queue(1, "any message at all");
        };
        one.RegisterCallback(serve);
        two.RegisterCallback(serve);
    }

    void RunTwo()
    {
        two.RunServer(frontEnd.inside.handle(), rtFrontEnd.inside.handle(), monitor.inside.handle(),
                      rtMonitor.inside.handle(), control.inside.handle());
    }

    Wire rtFrontEnd{context, "inproc://rt-front-end"};
    Wire rtMonitor{context, "inproc://rt-monitor"};
    Wire control{context, "inproc://control"};
    std::string served;
    std::size_t servedBeforeEvent = 0;
    std::size_t stopAfter = 0;
};

TEST_F(WiredServers, BurstTakesWhatIsQueuedUpToItsLimit)
{
    using Row = std::tuple<std::size_t, unsigned short, std::size_t>;
    for (const auto& [queued, limit, answered] : {Row{3, 0, 0}, {3, 100, 3}, {150, 100, 100}, {65'600, 65'535, 65'535}})
    {
        SCOPED_TRACE(queued);
        frontEnd.Queue(queued, "r");
        Burst(limit);
        EXPECT_EQ(Drain(frontEnd.outside), Lines(answered, "r"));
        EXPECT_EQ(Drain(frontEnd.inside), Lines(queued - answered, "r"));
    }
    EXPECT_EQ(log.Take(), Lines{});
}

TEST_F(WiredServers, StopDuringARequestAnswersThatOneOnlyAndNoneLater)
{
    one.RegisterCallback([this](const ByteVector&, ByteVector&) { one.StopProcessingMessages(); });
    frontEnd.Queue(3, "r");
    for (int burst = 0; burst < 2; ++burst) Burst(100);
    EXPECT_EQ(Drain(frontEnd.outside), Lines{""});
}

TEST_F(WiredServers, OnlyAConnectionEventRegistersAndOnlyWithAnAddress)
{
    monitor.QueueEvent(ZMQ_EVENT_CONNECTED);
    ProcessEvent(); // no startup message was set
    one.SetStartupMessage("svc");
    monitor.QueueEvent(ZMQ_EVENT_DISCONNECTED);
    monitor.QueueEvent(ZMQ_EVENT_CONNECTED);
    ProcessEvent();
    EXPECT_EQ(Drain(frontEnd.outside), Lines{});
    ProcessEvent();
    EXPECT_EQ(Drain(frontEnd.outside), Lines{"registration"});
    EXPECT_TRUE(monitor.IsEmpty());
}

TEST_F(WiredServers, OnePriorityServesAHundredLooksAtTheMonitorAndHeedsTheStopLast)
{
    frontEnd.Queue(250, "r");
    monitor.QueueEvent(ZMQ_EVENT_CONNECTED);
    stopAfter = 150;
    one.RunServer(frontEnd.inside.handle(), monitor.inside.handle(), control.inside.handle());
    EXPECT_EQ(servedBeforeEvent, 100U);
    EXPECT_EQ(served.size(), 250U); // the last burst shares its wake-up with the stop
    EXPECT_TRUE(monitor.IsEmpty());
}

TEST_F(WiredServers, TwoPrioritiesAnswerFortyUrgentToTenOrdinaryWhileBothWait)
{
    log.SetLevel(7);
    frontEnd.Queue(100, "o");
    rtFrontEnd.Queue(100, "U");
    stopAfter = 200;
    RunTwo();
    const std::string rhythm = std::string(40, 'U') + std::string(10, 'o');
    EXPECT_EQ(served, rhythm + rhythm + std::string(20, 'U') + std::string(80, 'o'));
    EXPECT_EQ(Drain(frontEnd.outside), Lines(100, "o"));
    EXPECT_EQ(Drain(rtFrontEnd.outside), Lines(100, "U"));
    EXPECT_EQ(log.Take(), Lines{"[ipc::ZmqServerSequentialTwoPriorities][trace] TERMINATE message received, worker "
                                "stopping..."});
}

TEST_F(WiredServers, TwoPrioritiesHeedTheStopFirstAndRegisterAfterTheRequests)
{
    two.SetStartupMessage("svc");
    frontEnd.Queue(1, "o");
    rtFrontEnd.Queue(1, "U");
    for (Wire* wire : {&rtMonitor, &monitor}) wire->QueueEvent(ZMQ_EVENT_CONNECTED);
    faults::Record();
    faults::Fail("zmq_poll", ENOTSOCK, 1);
    RunTwo();
    EXPECT_EQ(faults::Recorded("zmq_poll|zmq_send"),
              (Lines{"zmq_poll 5", "zmq_send U", "zmq_send o", R"(zmq_send {"address":"svc","type":"register"})",
                     R"(zmq_send {"address":"RTsvc","type":"register"})", "zmq_poll 5"}));
    EXPECT_EQ(log.Take(), Lines{"[ipc::ZmqServerSequentialTwoPriorities] zmq_poll exited with error 88"});

    rtFrontEnd.Queue(1, "U");
    rtMonitor.QueueEvent(ZMQ_EVENT_CONNECTED);
    control.Queue(1, "any message at all");
    RunTwo();
    EXPECT_EQ(served, "Uo"); // as before
    EXPECT_FALSE(rtMonitor.IsEmpty());
}
