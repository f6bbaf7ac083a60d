#include "common/CommandLine.h"

#include <ipc/Version.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

namespace zeb::tolvo::desk
{

constexpr int kBadUsage = 2;

std::optional<int> ParseCommandLine(CLI::App& app, int argc, const char* const* argv)
{
    app.set_version_flag("--version", app.get_name() + ' ' + std::to_string(TOLVO_IPC_VERSION_MAJOR) + '.' +
                                          std::to_string(TOLVO_IPC_VERSION_MINOR) + '.' +
                                          std::to_string(TOLVO_IPC_VERSION_PATCH));
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return failed->get_name() + ": " + error.what() + "\nRun with --help for more information.\n";
    });
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::RequiredError& missing)
    {
        // A misspelled option is the likelier reason.
        std::vector<std::string> unknown = app.remaining();
        const auto isValue = [](const std::string& argument) { return argument.compare(0, 1, "-") != 0; };
        unknown.erase(std::remove_if(unknown.begin(), unknown.end(), isValue), unknown.end());
        app.exit(unknown.empty() ? CLI::ParseError(missing) : CLI::ExtrasError(unknown));
        return kBadUsage;
    }
    catch (const CLI::ParseError& end)
    {
        if (app.exit(end) != 0) return kBadUsage;
        if (std::cout.flush()) return 0;
        std::cerr << app.get_name() + ": standard output: " + std::generic_category().message(errno) + '\n';
        return EXIT_FAILURE;
    }
    return std::nullopt;
}

} // namespace zeb::tolvo::desk
