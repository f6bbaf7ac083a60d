#pragma once

#include <string>
#include <string_view>

namespace zeb::tolvo::desk
{

/// @return whether the byte is printable ASCII, a space included.
constexpr bool IsPrintable(char byte) { return byte >= ' ' && byte <= '~'; }

/// Two lower-case digits for each byte.
std::string Hex(std::string_view bytes);

} // namespace zeb::tolvo::desk
