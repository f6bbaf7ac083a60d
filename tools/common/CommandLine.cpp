#include "common/CommandLine.h"

#include <ipc/Version.h>

#include <string>

namespace zeb::tolvo::desk
{

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
    catch (const CLI::ParseError& end)
    {
        return app.exit(end) == 0 ? 0 : kExitBadUsage;
    }
    return std::nullopt;
}

} // namespace zeb::tolvo::desk
