#include "common/CommandLine.h"
#include "common/StandardDescriptors.h"
#include "quillmere/Lines.h"
#include "quillmere/RegistrationService.h"
#include "quillmere/StopSignals.h"

#include <chrono>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

namespace
{

using namespace zeb::tolvo::desk;

constexpr int kUsualQuietMs = 200;

void Serve(const std::string& servers, const std::string& clients, std::chrono::milliseconds quietTime)
{
    RequireStandardDescriptors();
    const StopSignals stop;
    zmq::context_t context;
    RegistrationService service(context, servers, clients, quietTime);
    std::cout << "tolvo-quillmere: serving " << servers << ", clients in "
              << std::filesystem::absolute(clients).native() << std::endl;
    service.Run(stop.GetDescriptor());
}

} // namespace

int main(int argc, char** argv)
{
    std::string servers;
    std::string clients;
    int quietMs = kUsualQuietMs;
    CLI::App app("The registration service for a desk, where no device is at hand: services register at ENDPOINT, and\n"
                 "clients reach each of them at its address in DIRECTORY. A desk tool; a device has its own.",
                 "tolvo-quillmere");
    app.add_option("--servers", servers, "ZeroMQ endpoint for the services, such as ipc:///tmp/desk/servers")
        ->required()
        ->type_name("ENDPOINT");
    app.add_option("--clients", clients, "existing directory; address A is served at ipc://DIRECTORY/A")
        ->required()
        ->type_name("DIRECTORY");
    app.add_option("--quiet", quietMs, "how long a service must be silent after it registered, before it gets requests")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str()
        ->type_name("MS");
    if (const auto exitCode = ParseCommandLine(app, argc, argv)) return *exitCode;

    try
    {
        Serve(servers, clients, std::chrono::milliseconds(quietMs));
        return 0;
    }
    catch (const std::exception& failure)
    {
        Complain(failure.what());
        return kExitFailure;
    }
}
