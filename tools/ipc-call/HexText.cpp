#include "ipc-call/HexText.h"

#include <string_view>

namespace zeb::tolvo::desk
{

std::string HexText(const ipc::ByteVector& reply)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    std::string text;
    for (const unsigned char byte : reply)
    {
        if (!hex.empty()) hex += ' ';
        hex.append({kDigits[byte / 16], kDigits[byte % 16]});
        text += byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
    }
    return hex + "  |" + text + '|';
}

} // namespace zeb::tolvo::desk
