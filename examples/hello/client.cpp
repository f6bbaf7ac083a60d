#include <iostream>
#include <ipc/ZmqConnectorFactory.h>
#include <string>

struct MayWait : zeb::tolvo::ipc::OperatingModeInterface
{
    bool IsBlockingForbidden() override { return false; }
} mode;

int main()
{
    auto& factory = zeb::tolvo::ipc::ZmqConnectorFactory::GetInstance();
    const auto client = factory.CreateZmqClientConnector("ipc:///tmp/desk/clients/greeter", mode);
    zeb::tolvo::ipc::ByteVector reply;
    if (client->SendRequest({'h', 'i'}, reply, 2000) != zeb::tolvo::StatusCode::Success) return 1;
    std::cout << std::string(reply.begin(), reply.end());
}
