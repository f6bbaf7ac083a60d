// A service that answers "uptime", "loadavg", "meminfo" and "cpuinfo" with the state of the running machine.
//
// What to look at: this one keeps to the library alone. `HandleRequest` lets no exception out, and `Stop` takes the
// library's way out of a stop that has failed. ipc/convenience has both as `Guarded` and `ServerHandle`.

#include "DeviceStatus.h"

#include <ipc/ZmqConnectorFactory.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

namespace
{

namespace ipc = zeb::tolvo::ipc;
using zeb::tolvo::StatusCode;

// An exception that left the handler would end the process.
void HandleRequest(const ipc::ByteVector& request, ipc::ByteVector& response)
{
    try
    {
        const std::string answer = AnswerDeviceStatus(request);
        response.assign(answer.begin(), answer.end());
    }
    catch (const std::exception& error)
    {
        std::cerr << "device_status_service: " << error.what() << "\n";
        response.clear();
    }
}

bool Report(StatusCode status, const std::string& what)
{
    if (status == StatusCode::Success) return true;
    std::cerr << "device_status_service: can't " << what << ", status " << static_cast<unsigned int>(status) << "\n";
    return false;
}

/// Stops and deletes the server. One that can't be stopped is kept: its thread still runs, so that deleting it would
/// end the process.
bool Stop(std::unique_ptr<ipc::ZmqServerConnector> server)
{
    StatusCode status = server->StopListening();
    if (status == StatusCode::Success) return true;
    status = server->StartListening(); // ends the earlier thread
    if (status == StatusCode::Success) status = server->StopListening();
    if (Report(status, "stop")) return true;
    static_cast<void>(server.release());
    return false;
}

bool Serve(const std::string& servers, const std::string& address)
{
    // Blocked before there are other threads, which inherit it: the signals then wait for sigwait below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    auto& factory = ipc::ZmqConnectorFactory::GetInstance();
    const std::string& identity = address; // any that no other server has
    std::unique_ptr<ipc::ZmqServerConnector> server(
        factory.CreateZmqServerConnector(servers, identity, ipc::ServerType::OnePriority));
    server->RegisterCallback(HandleRequest);
    server->SetStartupMessage(address); // sent at each connection, so also to a restarted registration service
    if (!Report(server->StartListening(), "serve at " + servers)) return false;
    std::cout << "device_status_service: serving " << address << " at " << servers << std::endl;

    int signal = 0;
    sigwait(&stopSignals, &signal);
    return Stop(std::move(server));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3)
    {
        std::cerr << "usage: device_status_service ENDPOINT [ADDRESS]\n"
                     "ENDPOINT of the registration service, ADDRESS of this service\n";
        return 2;
    }
    return Serve(argv[1], argc == 3 ? argv[2] : "device-status") ? 0 : 1;
}
