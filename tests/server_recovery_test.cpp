#include "support/ServerThread.h"

#include <sys/resource.h>

const StatusCode kNoMemory = MakeStatusCodeFromErrno(ENOMEM);

using FailedStarts = ServerThread;

bool IsShortage(StatusCode status)
{
    return status == MakeStatusCodeFromErrno(EMFILE) || status == StatusCode::Failure; // of the monitor
}

TEST_F(FailedStarts, ForWantOfDescriptorsKeepNone)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer that comes with it takes descriptors itself when it looks at a virtual call";
#endif
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    TwoPriorities two(folder.Endpoint("nobody"), context.handle(), "id");
    for (ipc::ZmqServerConnector* needy : std::initializer_list<ipc::ZmqServerConnector*>{&lonely, &two})
    {
        rlim_t most = 3;
        for (StatusCode status{1}; status != StatusCode::Success; ++most)
        {
            const DescriptorsComeBack guard;
            const rlimit few{most, usual.rlim_max};
            setrlimit(RLIMIT_NOFILE, &few);
            status = needy->StartListening();
            setrlimit(RLIMIT_NOFILE, &usual);
            if (status != StatusCode::Success)
            {
                EXPECT_PRED1(IsShortage, status) << most;
            }
            EXPECT_EQ(needy->StopListening(), StatusCode::Success); // where it listens
        }
        EXPECT_GT(most, static_cast<rlim_t>(DescriptorsComeBack::Open()));
    }
}

TEST_F(FailedStarts, ForWantOfSocketsLetTheirContextEnd)
{
    // The sockets of a start: control, and of each front-end itself, ZeroMQ's end of its monitor and ours.
    for (int most = 1; most < 7; ++most)
    {
        zmq::context_t small;
        small.set(zmq::ctxopt::max_sockets, most);
        OnePriority one(folder.Endpoint("nobody"), small.handle(), "id");
        TwoPriorities two(folder.Endpoint("nobody"), small.handle(), "id");
        for (const StatusCode status : {two.StartListening(), most < 4 ? one.StartListening() : StatusCode::Failure})
            EXPECT_PRED1(IsShortage, status) << most;
    }
}

// Once in a few starts the first front-end's connection stands only when its monitor is being closed.
TEST_F(FailedStarts, OfASecondFrontEndDoNotFreezeTheContext)
{
    TwoPriorities tooLong(endpoint, context.handle(), std::string(254, 'i'));
    for (int start = 0; start < 100; ++start)
        ASSERT_EQ(tooLong.StartListening(), MakeStatusCodeFromErrno(EINVAL)) << start;
    StartAndRegister();
    EXPECT_EQ(Exchange("request"), "id|request");
    Stop();
}

// ZeroMQ goes on trying to deliver the replies, and would tell of its connections.
TEST_F(ServerThread, StopsThatLeaveRepliesDoNotFreezeTheContext)
{
    const std::string elsewhere = folder.Endpoint("elsewhere");
    std::optional<Peer> registry(std::in_place, outside, zmq::socket_type::router, elsewhere);
    const DescriptorsComeBack guard; // once all replies are taken or lost
    for (const char* id : {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j"})
    {
        SCOPED_TRACE(id);
        std::promise<void> hasCome, hasGone;
        OnePriority one(elsewhere, context.handle(), id);
        TwoPriorities two(elsewhere, context.handle(), id);
        const bool isUrgent = *id > 'e'; // then the reply is left at the urgent front-end
        ipc::ZmqServerConnector& leaving = isUrgent ? static_cast<ipc::ZmqServerConnector&>(two) : one;
        const std::string frontEnd = id + std::string(isUrgent ? "RT" : "");
        leaving.RegisterCallback([&](const ByteVector& request, ByteVector& response) {
            hasCome.set_value();
            hasGone.get_future().wait();
            response = request;
        });
        leaving.SetStartupMessage("svc");
        ASSERT_EQ(leaving.StartListening(), StatusCode::Success);
        while (registry->Receive() != Registration(frontEnd, isUrgent ? "RTsvc" : "svc"))
            continue; // replies that were left may come before
        registry->Send({frontEnd, "request"});
        hasCome.get_future().wait();
        registry.reset();
        hasGone.set_value();
        ASSERT_EQ(leaving.StopListening(), StatusCode::Success);
        registry.emplace(outside, zmq::socket_type::router, elsewhere);
    }
    StartAndRegister();
    EXPECT_EQ(Exchange("request"), "id|request");
    Stop();
}

using FailedStop = ServerThread;

TEST_F(FailedStop, IsCompletedByTheNextStart)
{
    const DescriptorsComeBack guard;
    for (const auto& [function, line] : {std::pair("zmq_socket", "Failed to create socket of type 1, 12"),
                                         {"zmq_bind", "Failed to bind socket inproc://server/control//"}})
    {
        StartAndRegister();
        faults::Fail(function, ENOMEM);
        EXPECT_EQ(server.StopListening(), kNoMemory);
        log.Await(kTag + line);
        Stop(); // listens no more
        faults::Fail(function, ENOMEM);
        EXPECT_EQ(server.StartListening(), kNoMemory);
        StartAndRegister();
        EXPECT_EQ(Exchange("served again"), "id|served again");
        Stop();
    }
}

TEST_F(FailedStop, WhoseLastMessageIsRefusedIsCompletedOnceTheThreadHasEnded)
{
    for (const auto& [isLate, error] : {std::pair(false, ENOMEM), {false, 0}, {true, ENOMEM}, {true, 0}})
    {
        SCOPED_TRACE((isLate ? "by the next start, " : "by the stop, ") + std::to_string(error));
        zmq::context_t doomed;
        OnePriority unstoppable(folder.Endpoint("nobody"), doomed.handle(), "id");
        ASSERT_EQ(unstoppable.StartListening(), StatusCode::Success);
        if (isLate)
        {
            faults::Fail("zmq_bind", ENOMEM);
            EXPECT_EQ(unstoppable.StopListening(), kNoMemory);
        }
        faults::Fail("zmq_send", error);
        const StatusCode status = isLate ? unstoppable.StartListening() : unstoppable.StopListening();
        EXPECT_EQ(status, isLate && error == 0 ? StatusCode::Failure : MakeStatusCodeFromErrno(error));
        log.Await(kTag + "Failed to send TERMINATE signal on controller " + std::to_string(error));
        EXPECT_EQ(unstoppable.StartListening(), StatusCode::Failure); // it would wait for ever
        doomed.shutdown();
        ASSERT_TRUE(Await([&] {
            EXPECT_NE(unstoppable.StartListening(), StatusCode::Success);
            return !unstoppable.mServerThread.joinable();
        }));
    }
}
