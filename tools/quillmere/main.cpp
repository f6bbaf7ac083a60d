#include "common/CommandLine.h"
#include "common/StandardDescriptors.h"
#include "quillmere/Endpoint.h"
#include "quillmere/Lines.h"
#include "quillmere/RegistrationService.h"
#include "quillmere/Report.h"
#include "quillmere/Signals.h"
#include "quillmere/Timeline.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <grp.h>
#include <limits>
#include <memory>
#include <optional>
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
    std::optional<Access> access;
    int quietMs = kUsualQuietMs;
    bool isTracing = false;
    std::string timeline;
};

mode_t ReadMode(const std::string& text)
{
    constexpr int kOctal = 8;
    constexpr mode_t kLargest = 0777;
    const char* const end = text.data() + text.size();
    mode_t mode = 0;
    const auto [last, error] = std::from_chars(text.data(), end, mode, kOctal);
    if (error != std::errc() || last != end || mode > kLargest)
        throw CLI::ValidationError("--mode", '"' + text + "\" is no octal mode up to 0777");
    return mode;
}

gid_t ReadGroup(const std::string& name)
{
    const struct group* const known = getgrnam(name.c_str());
    if (known == nullptr) throw CLI::ValidationError("--group", "there is no group \"" + name + '"');
    return known->gr_gid;
}

void PrintPassage(const Passage& passage)
{
    const std::string line = TraceLine(passage, std::chrono::system_clock::now());
    if (!line.empty()) Print(line + '\n');
}

Tracer MakeTracer(const Options& options)
{
    if (options.timeline.empty()) return options.isTracing ? PrintPassage : Tracer();
    const auto timeline = std::make_shared<Timeline>(options.timeline);
    return [timeline, isTracing = options.isTracing](const Passage& passage) {
        timeline->Add(passage);
        if (isTracing) PrintPassage(passage);
    };
}

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
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN)); // a limit for files is like a full disk
    const Signals signals;
    zmq::context_t context;
    context.set(zmq::ctxopt::max_sockets, context.get(zmq::ctxopt::socket_limit)); // one for each address
    RegistrationService service(context, options.servers, options.clients, options.access,
                                std::chrono::milliseconds(options.quietMs), MakeTracer(options));
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
    CLI::Option* const mode =
        app.add_option_function<std::string>(
               "--mode", [&](const std::string& text) { options.access.emplace().mode = ReadMode(text); },
               "of each socket file, such as 0660; by default\nthe umask decides")
            ->type_name("MODE");
    app.add_option_function<std::string>(
           "--group",
           [&](const std::string& name) { // called before the missing --mode is noticed
               if (options.access) options.access->group = ReadGroup(name);
           },
           "of each socket file")
        ->needs(mode)
        ->type_name("GROUP");
    app.add_option("--quiet", options.quietMs,
                   "how long a service must be silent after it\nregistered, before it gets requests")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()))
        ->capture_default_str()
        ->type_name("MS");
    app.add_flag("--trace", options.isTracing, "write a line for each frame that passes");
    app.add_option("--timeline", options.timeline,
                   "write what passes as trace events for Perfetto,\nchrome://tracing or speedscope")
        ->type_name("FILE");
    app.footer("SIGUSR1 makes it write a table of the services and their requests; the end does\n"
               "so too, and it answers the request \"services\" at ipc://DIRECTORY/.registry.");
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
        Note(failure.what());
        return EXIT_FAILURE;
    }
}
