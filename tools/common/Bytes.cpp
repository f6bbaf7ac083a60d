#include "common/Bytes.h"

namespace zeb::tolvo::desk
{

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
