#include "support/ServerThread.h"

#include <ipc/convenience/Describe.h>
#include <ipc/convenience/Guarded.h>
#include <ipc/convenience/ServerHandle.h>

using namespace ipc::convenience;

/// A server whose end is seen.
struct Mortal : OnePriority
{
    using OnePriority::OnePriority;

    ~Mortal() override { sIsDeleted = true; }

    static inline bool sIsDeleted = false;
};

struct ServerHandles : ServerThread
{
    /// At an endpoint without a peer: ZeroMQ leaks a connection's event that comes while its socket closes.
    void Start()
    {
        Mortal::sIsDeleted = false;
        handle.reset(new Mortal(folder.Endpoint("nobody"), context.handle(), "id"));
        ASSERT_EQ(handle->StartListening(), StatusCode::Success);
    }

    /// A stop, or the start that completes it, fails for want of its only socket.
    static void FailStops(int count) { faults::Fail("zmq_socket", EMFILE, 0, count); }

    ServerHandle handle = MakeServer(endpoint, "id");
};

TEST_F(ServerHandles, EndDeletesAServerWhateverHasFailed)
{
    const auto failStop = [&] {
        FailStops(1);
        EXPECT_EQ(handle->StopListening(), MakeStatusCodeFromErrno(EMFILE));
    };
    const auto failStopAndStart = [&] {
        failStop();
        faults::Fail("zmq_socket", EMFILE, 1); // after that stop's publisher the new thread's first socket
    };
    const auto endContext = [&] {
        context.shutdown();
        EXPECT_EQ(Describe(handle->StopListening()), "the ZeroMQ context has ended");
    };
    using Case = std::pair<const char*, std::function<void()>>;
    for (const auto& [failing, fail] :
         {Case("nothing", [] {}), Case("one stop", [&] { FailStops(1); }), Case("three stops", [&] { FailStops(3); }),
          Case("a stop before", failStop), Case("and the next start", failStopAndStart), Case("all", endContext)})
    {
        SCOPED_TRACE(failing);
        Start();
        fail();
        handle.reset();
        EXPECT_TRUE(Mortal::sIsDeleted);
    }
}

TEST_F(ServerHandles, EndKeepsAServerThatNothingStops)
{
    Start();
    FailStops(1000);
    ipc::ZmqServerConnector* const kept = handle.get();
    handle.reset();
    ASSERT_FALSE(Mortal::sIsDeleted);
    faults::Reset();
    handle.reset(kept);
    EXPECT_EQ(handle->StartListening(), StatusCode::Success);
}

TEST_F(ServerHandles, GuardedHandlerAnswersWhateverIsThrown)
{
    handle->SetStartupMessage("svc");
    handle->RegisterCallback(Guarded(
        [](const ByteVector& request, ByteVector& response) {
            response = Bytes("half a reply");
            if (request == Bytes("error")) throw std::runtime_error("no such file");
            if (request == Bytes("number")) throw 1;
            if (request == Bytes("twice")) throw std::invalid_argument("again");
        },
        [](const std::exception& error) {
            if (dynamic_cast<const std::invalid_argument*>(&error) != nullptr) throw 2;
            return dynamic_cast<const UnknownException*>(&error) == nullptr ? error.what() : std::string("unknown");
        }));
    ASSERT_EQ(handle->StartListening(), StatusCode::Success);
    service.Receive(); // its registration
    EXPECT_EQ(Exchange("fine"), "id|half a reply");
    EXPECT_EQ(Exchange("error"), "id|no such file");
    EXPECT_EQ(Exchange("number"), "id|unknown");
    EXPECT_EQ(Exchange("twice"), "id|");
}
