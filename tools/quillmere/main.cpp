#include "common/CommandLine.h"
#include "common/StandardDescriptors.h"
#include "quillmere/Endpoint.h"
#include "quillmere/Lines.h"
#include "quillmere/RegistrationService.h"
#include "quillmere/Report.h"
#include "quillmere/Signals.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <filesystem>
#include <limits>
#include <string>
#include <sys/resource.h>
#include <system_error>

namespace
{

using namespace zeb::tolvo::desk;

constexpr int kUsualQuietMs = 200;

struct Options
{
    std::string servers;
    std::string clients;
    int quietMs = kUsualQuietMs;
    bool isTracing = false;
};

void PrintPassage(const Passage& passage) { Print(TraceLine(passage, std::chrono::system_clock::now()) + '\n'); }

/// ZeroMQ ends the process when a connection finds no descriptor left.
void RaiseDescriptorLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

void Serve(const Options& options)
{
    RequireStandardDescriptors();
    StopWaitingForReaders();
    RaiseDescriptorLimit();
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN)); // a closed output must not leave sockets behind
    const Signals signals;
    zmq::context_t context;
    context.set(zmq::ctxopt::max_sockets, context.get(zmq::ctxopt::socket_limit)); // one for each address
    RegistrationService service(context, options.servers, options.clients, std::chrono::milliseconds(options.quietMs),
                                options.isTracing ? PrintPassage : Tracer());
    const int error = Print("tolvo-quillmere: serving " + options.servers + ", clients in " +
                            std::filesystem::absolute(options.clients).native() + '\n');
    if (error != 0 && error != EAGAIN) throw std::system_error(error, std::generic_category(), "standard output");
    int signal = SIGUSR1;
    while (signal == SIGUSR1)
    {
        service.Run(signals.GetDescriptor());
        signal = signals.Take();
        Print(Table(service.Report()));
    }
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("The registration service for a desk, where no device is at hand: services\n"
                 "register at ENDPOINT, and clients reach each of them at its address in\n"
                 "DIRECTORY. A desk tool; a device has its own.",
                 "tolvo-quillmere");
    app.add_option("--servers", options.servers, "ZeroMQ endpoint for the services, such as\nipc:///tmp/desk/servers")
        ->required()
        ->check(FindEndpointFault)
        ->type_name("ENDPOINT");
    app.add_option("--clients", options.clients, "existing directory; address A is served at\nipc://DIRECTORY/A")
        ->required()
        ->type_name("DIRECTORY");
    app.add_option("--quiet", options.quietMs,
                   "how long a service must be silent after it\nregistered, before it gets requests")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()))
        ->capture_default_str()
        ->type_name("MS");
    app.add_flag("--trace", options.isTracing, "write a line for each frame that passes");
    app.footer("SIGUSR1 makes it write a table of the services and their requests; the end does\nso too.");
    if (const auto exitCode = ParseCommandLine(app, argc, argv)) return *exitCode;

    try
    {
        Serve(options);
        return 0;
    }
    catch (const OutputClosed&)
    {
        return 0;
    }
    catch (const std::exception& failure)
    {
        Complain(failure.what());
        return kExitFailure;
    }
}
