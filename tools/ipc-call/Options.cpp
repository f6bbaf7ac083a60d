#include "ipc-call/Options.h"

#include "common/CommandLine.h"

#include <array>
#include <limits>
#include <string_view>

namespace zeb::tolvo::desk
{

namespace
{

constexpr std::uint64_t kMostRepeats = 1'000'000'000;
constexpr unsigned int kMostCallers = 100; // each may hold six descriptors, and a process often has no more than 1,024

constexpr std::array<std::string_view, 8> kLevels{"emergency", "alert",  "critical", "error",
                                                  "warning",   "notice", "info",     "debug"};

std::optional<TolvoLogLevel> FindLevel(const std::string& text)
{
    for (std::size_t number = 0; number < kLevels.size(); ++number)
        if (text == kLevels[number] || text == std::to_string(number)) return static_cast<TolvoLogLevel>(number);
    return std::nullopt;
}

CLI::callback_t LevelReader(TolvoLogLevel& level)
{
    return [&level](const CLI::results_t& texts) {
        const auto found = FindLevel(texts.back());
        if (!found)
            throw CLI::ValidationError(
                "--log",
                '"' + texts.back() +
                    "\" is no level: 0 to 7 or emergency, alert, critical, error, warning, notice, info, debug");
        level = *found;
        return true;
    };
}

/// @return the fault of an endpoint that no service can have, or an empty text.
std::string EndpointFault(const std::string& text)
{
    if (text.find("://") == std::string::npos)
        return '"' + text + "\" is no endpoint, which looks like ipc:///tmp/desk/clients/status";
    if (text.find("inproc://") == 0) return "inproc:// reaches only this process itself";
    return {};
}

} // namespace

std::optional<int> ReadOptions(int argc, const char* const* argv, Options& options)
{
    CLI::App app("Sends standard input as one request to the service at ENDPOINT and writes its\n"
                 "reply to standard output.",
                 "tolvo-ipc-call");
    app.add_option("ENDPOINT", options.endpoint, "ZeroMQ endpoint, such as\nipc:///tmp/desk/clients/status")
        ->required()
        ->check(EndpointFault)
        ->type_name("");
    app.add_option("--timeout", options.timeoutMs, "how long to wait for each reply;\n-1 waits without limit")
        ->check(CLI::Range(-1, std::numeric_limits<int>::max()))
        ->capture_default_str()
        ->type_name("MS");
    app.add_flag("--lines", options.isByLine, "send each line as a request and write each reply\non a line");
    auto* const hex = app.add_flag("--hex", options.isHex,
                                   "write each reply on a line of its own: its bytes\n"
                                   "in hex, two spaces, and its printable ASCII\n"
                                   "between bars, a dot for every other byte");
    auto* const repeat = app.add_option("--repeat", options.repeat,
                                        "send it N times, with --lines all lines N times;\n"
                                        "instead of the replies, write how many came, how\n"
                                        "fast, and what failed")
                             ->check(CLI::Range(std::uint64_t{1}, kMostRepeats))
                             ->type_name("N");
    auto* const parallel = app.add_option("--parallel", options.parallel,
                                          "let N callers, each with a connector of its own,\n"
                                          "share the requests of --repeat or --lines; write\n"
                                          "what --repeat writes")
                               ->check(CLI::Range(1U, kMostCallers))
                               ->type_name("N");
    hex->excludes(repeat)->excludes(parallel);
    app.add_option("--interrupt", options.interruptEndpoint,
                   "use a dealer client: its wait ends when a message\n"
                   "is published at ENDPOINT; it makes fresh sockets\n"
                   "for each request")
        ->check(EndpointFault)
        ->type_name("ENDPOINT");
    app.add_option("--log", LevelReader(options.logLevel),
                   "how much the library says on standard error:\n"
                   "0 to 7, or emergency, alert, critical, error,\n"
                   "warning, notice, info, debug")
        ->default_str("critical")
        ->type_name("LEVEL");
    app.callback([&options] {
        if (options.parallel && !options.repeat && !options.isByLine)
            throw CLI::ValidationError("--parallel", "one request is all there is: give --repeat or --lines as well");
    });
    return ParseCommandLine(app, argc, argv);
}

} // namespace zeb::tolvo::desk
