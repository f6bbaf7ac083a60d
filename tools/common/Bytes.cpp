#include "common/Bytes.h"

#include <algorithm>
#include <array>

namespace zeb::tolvo::desk
{

std::size_t ShownCharacter(std::string_view text)
{
    const auto byte = [text](std::size_t position) -> unsigned int {
        return position < text.size() ? static_cast<unsigned char>(text[position]) : 0;
    };
    const unsigned int lead = byte(0);
    if (lead < 0x80) return text.empty() || !IsPrintable(text.front()) ? 0 : 1;
    if (lead < 0xc2 || lead > 0xf4) return 0;

    const std::size_t size = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    char32_t code = lead & (0xffU >> (size + 1));
    for (std::size_t position = 1; position < size; ++position)
    {
        if ((byte(position) & 0xc0U) != 0x80) return 0;
        code = code << 6U | (byte(position) & 0x3fU);
    }
    constexpr std::array<char32_t, 5> kLeast{0, 0, 0xa0, 0x800,
                                             0x10000}; // below: controls, or more bytes than it takes
    const bool isSurrogate = code >= 0xd800 && code <= 0xdfff;
    const bool isFormatting = (code >= 0x2000 && code <= 0x206f) || code == 0xfeff; // they may turn a line around
    return code < kLeast[size] || code > 0x10ffff || isSurrogate || isFormatting ? 0 : size;
}

std::size_t Columns(std::string_view text)
{
    const auto isFirst = [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) != 0x80; };
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isFirst));
}

std::string Hex(std::string_view bytes)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string digits;
    for (const char character : bytes)
    {
        const auto byte = static_cast<unsigned char>(character);
        digits.append({kDigits[byte / 16], kDigits[byte % 16]});
    }
    return digits;
}

} // namespace zeb::tolvo::desk
