#include "support/World.h"

#include <ipc/convenience/Guarded.h>
#include <ipc/convenience/ServerHandle.h>

namespace
{

using ipc::convenience::Guarded;
using ipc::convenience::MakeServer;
using ipc::convenience::ServerHandle;
using ipc::convenience::UnknownException;

/// A server whose stop fails in its first attempts, for want of a socket, wherever they are made.
struct Stubborn : OnePriority
{
    Stubborn(zmq::context_t& context, bool& isGone) : Exposed(kService, context.handle(), "id"), isDeleted(isGone) {}

    ~Stubborn() override { isDeleted = true; }

    StatusCode StartListening() override
    {
        if (--failures > 0) faults::Fail("zmq_socket", EMFILE);
        return OnePriority::StartListening();
    }

    int failures = 0;
    bool& isDeleted;
};

struct ServerHandles : testing::TestWithParam<int>
{
    ServerHandles() { faults::areSleepsShort = true; }

    ~ServerHandles() override
    {
        faults::Reset();
        faults::areSleepsShort = false;
    }

    CapturedLog log;
    zmq::context_t context;
    Peer service{context, zmq::socket_type::dealer, kService};
    bool isDeleted = false;
    Stubborn* const server = new Stubborn(context, isDeleted); // the handle's
    ServerHandle handle{server};
};

TEST_P(ServerHandles, EndStopsAndDeletes)
{
    ASSERT_EQ(handle->StartListening(), StatusCode::Success);
    server->failures = GetParam();
    if (GetParam() > 0) faults::Fail("zmq_socket", EMFILE);
    handle.reset();
    EXPECT_TRUE(isDeleted);
}

INSTANTIATE_TEST_SUITE_P(AfterFailures, ServerHandles, testing::Values(0, 1, 3), testing::PrintToStringParamName());

TEST_F(ServerHandles, EndIsNotFooledByAStopThatHasFailedBefore)
{
    ASSERT_EQ(handle->StartListening(), StatusCode::Success);
    faults::Fail("zmq_socket", EMFILE);
    EXPECT_EQ(handle->StopListening(), MakeStatusCodeFromErrno(EMFILE));
    handle.reset();
    EXPECT_TRUE(isDeleted);
}

TEST_F(ServerHandles, EndDeletesAServerThatNeverStartedOrCannotStartAgain)
{
    ASSERT_EQ(handle->StartListening(), StatusCode::Success);
    faults::Fail("zmq_socket", EMFILE);
    EXPECT_NE(handle->StopListening(), StatusCode::Success);
    faults::Fail("zmq_socket", EMFILE, 1); // after that stop's publisher the new thread's first socket
    handle.reset();
    EXPECT_TRUE(isDeleted);
    const ServerHandle unused = MakeServer(kService, "id");
}

TEST_F(ServerHandles, EndKeepsAServerThatNothingStops)
{
    ASSERT_EQ(handle->StartListening(), StatusCode::Success);
    server->failures = 1000;
    faults::Fail("zmq_socket", EMFILE);
    handle.reset();
    ASSERT_FALSE(isDeleted);
    server->failures = 0;
    faults::Reset();
    handle.reset(server);
    EXPECT_EQ(handle->StartListening(), StatusCode::Success);
}

TEST_F(ServerHandles, EndDeletesAServerWhoseContextHasEnded)
{
    ASSERT_EQ(handle->StartListening(), StatusCode::Success);
    context.shutdown();
    handle.reset();
    EXPECT_TRUE(isDeleted);
}

TEST_F(ServerHandles, GuardedHandlerAnswersWhateverIsThrown)
{
    const TempFolder folder;
    Peer router(context, zmq::socket_type::router, folder.Endpoint("servers"));
    handle = MakeServer(folder.Endpoint("servers"), "id");
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
    ASSERT_NE(router.Receive().find("register"), std::string::npos);
    for (const auto& [request, reply] : {std::pair("fine", "half a reply"), std::pair("error", "no such file"),
                                         std::pair("number", "unknown"), std::pair("twice", "")})
    {
        router.Send({"id", request});
        EXPECT_EQ(router.Receive(), std::string("id|") + reply);
    }
}

} // namespace
