#include "support/CapturedLog.h"
#include "support/Peers.h"

#include <ipc/ZmqConnectorFactory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

// The library gets no context while it is loaded.
extern "C" void* zmq_ctx_new()
{
    errno = EMFILE;
    return nullptr;
}

namespace
{

TEST(FactoryWithoutContextDeathTest, LogsWithItsTagAtLoad)
{
    testing::GTEST_FLAG(death_test_style) =
        "threadsafe"; // starts the program anew and reads what it prints from load on
    EXPECT_EXIT(
        _exit(0), testing::ExitedWithCode(0),
        "\\]\\[zeb.ipc.transport.connectors.rpc.library\\] ZmqConnectorFactory: Failed to create ZMQ context, 24");
}

TEST(FactoryWithoutContext, BuildsConnectorsThatReportTheFailureWhenUsed)
{
    const CapturedLog log;
    auto& factory = ipc::ZmqConnectorFactory::GetInstance();
    OperatingMode mode;
    ByteVector response;
    EXPECT_EQ(factory.CreateZmqClientConnector("inproc://a", mode)->SendRequest({}, response, 0),
              MakeStatusCodeFromErrno(ENOTSOCK));
    const std::unique_ptr<ipc::ZmqServerConnector> server(
        factory.CreateZmqServerConnector("inproc://a", "id", ipc::ServerType::TwoPriorities));
    EXPECT_EQ(server->StartListening(), MakeStatusCodeFromErrno(EFAULT));
    EXPECT_EQ(server->StopListening(), StatusCode::Success);
}

} // namespace
