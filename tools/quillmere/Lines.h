#pragma once

#include <string>
#include <string_view>

namespace zeb::tolvo::desk
{

/// A name from the wire for a line: what a terminal would not show as it is, quotes and backslashes as \xHH; cut when
/// it is long.
std::string Escape(std::string_view name);

/// The same in quotes.
std::string Quote(std::string_view name);

/// From now on no reader of standard output or standard error can make this process wait for more than a moment: what
/// can't be written is dropped and counted.
void StopWaitingForReaders();

/// Writes one line to standard error.
void Note(const std::string& line);

/// Nobody reads standard output any more.
struct OutputClosed
{
};

/// Writes whole lines to standard output.
/// @return 0, or the error number when they were dropped.
/// @throws OutputClosed
int Print(std::string_view lines);

} // namespace zeb::tolvo::desk
