#include "ipc-call/HexText.h"

#include "common/Bytes.h"

namespace zeb::tolvo::desk
{

std::string HexText(const ipc::ByteVector& reply)
{
    std::string hex;
    std::string text;
    for (const unsigned char byte : reply)
    {
        const auto character = static_cast<char>(byte);
        if (!hex.empty()) hex += ' ';
        hex += Hex({&character, 1});
        text += IsPrintable(character) ? character : '.';
    }
    return hex + "  |" + text + '|';
}

} // namespace zeb::tolvo::desk
