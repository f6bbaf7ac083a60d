#pragma once

#include <string>
#include <string_view>

namespace zeb::tolvo::desk
{

/// A name from the wire for a line: every byte but printable ASCII as \xHH, quotes and backslashes too; cut when it is
/// long.
std::string Escape(std::string_view name);

/// The same in quotes.
std::string Quote(std::string_view name);

/// Each writes one line to standard error.
void Note(const std::string& line);
void Warn(const std::string& line);
void Complain(const std::string& line);

/// Nobody reads standard output any more.
struct OutputClosed
{
};

/// Writes to standard output, all at once.
/// @throws OutputClosed
/// @throws std::system_error
void Print(std::string_view lines);

} // namespace zeb::tolvo::desk
