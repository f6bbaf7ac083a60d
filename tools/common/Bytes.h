#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zeb::tolvo::desk
{

/// @return whether the byte is printable ASCII, a space included.
constexpr bool IsPrintable(char byte) { return byte >= ' ' && byte <= '~'; }

/// @return how many bytes at the beginning of `text` are a character that a terminal shows as it is: printable ASCII,
/// or UTF-8 but for control and formatting characters; 0 when there is none.
std::size_t ShownCharacter(std::string_view text);

/// @return how many columns `text` takes where each of its characters takes one.
std::size_t Columns(std::string_view text);

/// Two lower-case digits for each byte.
std::string Hex(std::string_view bytes);

} // namespace zeb::tolvo::desk
