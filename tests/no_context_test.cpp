#include "support/CapturedLog.h"

#include <ipc/ZmqConnectorFactory.h>
#include <ipc/ZmqServerSequentialTwoPriorities.h>

// The library gets no context while it is loaded.
extern "C" void* zmq_ctx_new()
{
    errno = EMFILE;
    return nullptr;
}

TEST(FactoryWithoutContext, BuildsEachKindOfConnectorThatReportsTheFailureWhenUsed)
{
    const CapturedLog log;
    auto& factory = ipc::ZmqConnectorFactory::GetInstance();
    OperatingMode mode;
    ByteVector response;
    EXPECT_EQ(factory.CreateZmqClientConnector("inproc://a", mode)->SendRequest({}, response, 0),
              MakeStatusCodeFromErrno(ENOTSOCK));
    for (const int type : {0, 1, 2, -1})
    {
        const std::unique_ptr<ipc::ZmqServerConnector> server(
            factory.CreateZmqServerConnector("inproc://a", "id", static_cast<ipc::ServerType>(type)));
        EXPECT_EQ(dynamic_cast<ipc::ZmqServerSequentialTwoPriorities*>(server.get()) != nullptr, type == 1) << type;
        EXPECT_EQ(server->StartListening(), MakeStatusCodeFromErrno(EFAULT));
        EXPECT_EQ(server->StopListening(), StatusCode::Success);
    }
}
