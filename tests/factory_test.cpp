#include "support/CapturedLog.h"
#include "support/Peers.h"

#include <ipc/ZmqConnectorFactory.h>
#include <ipc/ZmqServerSequentialOnePriority.h>
#include <ipc/ZmqServerSequentialTwoPriorities.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <memory>

namespace
{

ipc::ZmqConnectorFactory& Factory() { return ipc::ZmqConnectorFactory::GetInstance(); }

TEST(Factory, BuildsTwoPrioritiesForOneAndOnePriorityForAllElse)
{
    EXPECT_EQ(&Factory(), std::async(std::launch::async, [] { return &Factory(); }).get());
    for (const int type : {0, 1, 2, -1})
    {
        const std::unique_ptr<ipc::ZmqServerConnector> server(
            Factory().CreateZmqServerConnector("inproc://a", "id", static_cast<ipc::ServerType>(type)));
        const bool isTwo = dynamic_cast<ipc::ZmqServerSequentialTwoPriorities*>(server.get()) != nullptr;
        const bool isOne = dynamic_cast<ipc::ZmqServerSequentialOnePriority*>(server.get()) != nullptr;
        EXPECT_EQ(isTwo, type == 1) << type;
        EXPECT_EQ(isOne, type != 1) << type;
    }
}

TEST(Factory, ClientsAreIndependentAndGiveTheirDescriptorsBack)
{
    const CapturedLog log;
    const TempFolder folder;
    RouterPeer service(folder.Endpoint("service"));
    OperatingMode mode;
    ByteVector response;
    const auto create = [&] { return Factory().CreateZmqClientConnector(folder.Endpoint("service"), mode); };
    const auto keeper = create();
    const std::size_t descriptors = OpenDescriptors();
    {
        const auto first = create();
        const auto second = create();
        for (const auto& client : {first.get(), second.get()})
        {
            EXPECT_EQ(client->SendRequest(Bytes("request"), response, 0), StatusCode::TimedOut);
        }
        const std::string one = service.Receive();
        const std::string two = service.Receive();
        EXPECT_NE(one, two);
    }
    EXPECT_EQ(AwaitDescriptors(descriptors), descriptors);
}

} // namespace
