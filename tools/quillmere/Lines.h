#pragma once

#include <string>
#include <string_view>

namespace zeb::tolvo::desk
{

/// A name from the wire for a line: in quotes, every byte but printable ASCII as \xHH, cut when it is long.
std::string Quote(std::string_view name);

/// Each writes one line to standard error.
void Note(const std::string& line);
void Warn(const std::string& line);
void Complain(const std::string& line);

} // namespace zeb::tolvo::desk
