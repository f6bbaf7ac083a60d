#include <ipc/ZmqConnectorFactory.h>

#include <csignal>
#include <memory>

using namespace zeb::tolvo;

int main()
{
    sigset_t stop; // blocked, so that sigwait gets it
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    auto& factory = ipc::ZmqConnectorFactory::GetInstance();
    const std::unique_ptr<ipc::ZmqServerConnector> server(
        factory.CreateZmqServerConnector("ipc:///tmp/desk/servers", "greeter", ipc::ServerType::OnePriority));
    server->RegisterCallback([](const ipc::ByteVector& request, ipc::ByteVector& response) {
        response = request;
        response.insert(response.end(), {' ', 't', 'o', 'o', '\n'});
    });
    server->SetStartupMessage("greeter");
    if (server->StartListening() != StatusCode::Success) return 1;

    int signal = 0;
    sigwait(&stop, &signal);
    return server->StopListening() == StatusCode::Success ? 0 : 1;
}
