#pragma once

#include <zebl/RootLogger.h>

#include <cstdint>
#include <optional>
#include <string>

namespace zeb::tolvo::desk
{

/// What the command line says.
struct Options
{
    std::string endpoint;
    std::optional<std::string> interruptEndpoint;
    int timeoutMs = 5000;
    bool isByLine = false;
    bool isHex = false;
    std::optional<std::uint64_t> repeat;
    std::optional<unsigned int> parallel;
    TolvoLogLevel logLevel = TolvoLogLevel::Critical;

    /// Whether the run is summed up, instead of each reply being written.
    bool IsSummed() const { return repeat || parallel; }
};

/// @return the exit code when the program is to end at once, as `ParseCommandLine`.
std::optional<int> ReadOptions(int argc, const char* const* argv, Options& options);

} // namespace zeb::tolvo::desk
