// A service that answers "uptime", "loadavg", "meminfo" and "cpuinfo" with the state of the running machine.

#include "DeviceStatus.h"

#include <ipc/ZmqConnectorFactory.h>

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

namespace
{

namespace ipc = zeb::tolvo::ipc;
using zeb::tolvo::StatusCode;

constexpr int kBadUsage = 2;

struct StopAndDelete
{
    void operator()(ipc::ZmqServerConnector* server) const
    {
        if (server->StopListening() != StatusCode::Success)
        {
            std::cerr << "device_status_service: can't stop\n";
            std::_Exit(EXIT_FAILURE); // the server thread still runs: its connector can't be deleted
        }
        delete server;
    }
};

using Server = std::unique_ptr<ipc::ZmqServerConnector, StopAndDelete>;

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

int Serve(const std::string& servers, const std::string& address, const std::string& identity)
{
    // Blocked before there are other threads, which inherit it: the signals then wait for sigwait below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    auto& factory = ipc::ZmqConnectorFactory::GetInstance();
    const Server server(factory.CreateZmqServerConnector(servers, identity, ipc::ServerType::OnePriority));
    server->RegisterCallback(HandleRequest);
    server->SetStartupMessage(address); // sent at each connection, so also to a restarted registration service

    if (const StatusCode status = server->StartListening(); status != StatusCode::Success)
    {
        std::cerr << "device_status_service: can't serve at " << servers << ", status "
                  << static_cast<unsigned int>(status) << "\n";
        return EXIT_FAILURE;
    }
    std::cout << "device_status_service: serving " << address << " at " << servers << std::endl;

    int signal = 0;
    sigwait(&stopSignals, &signal);
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    std::string servers;
    std::string address = "device-status";
    std::string identity;

    CLI::App app("Answers uptime, loadavg, meminfo and cpuinfo with the state of this machine.");
    app.add_option("--servers", servers, "Endpoint of the registration service")->required();
    app.add_option("--address", address, "Address where clients find the service")->capture_default_str();
    app.add_option("--identity", identity, "Routing identity, unique at the endpoint; the address unless told");
    try
    {
        app.parse(argc, argv);
        return Serve(servers, address, identity.empty() ? address : identity);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kBadUsage;
    }
    catch (const std::exception& error)
    {
        std::cerr << "device_status_service: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
