#pragma once

#include <CLI/CLI.hpp>

#include <optional>

namespace zeb::tolvo::desk
{

/// Reads the command line into the options of `app` and adds `--version` to them.
/// @return the exit code when the program is to end at once: after `--help`, `--version` or bad usage.
std::optional<int> ParseCommandLine(CLI::App& app, int argc, const char* const* argv);

} // namespace zeb::tolvo::desk
