#include <zebl/QuillmereDataScheme.h>

namespace zebl
{

const std::string QuillmereDataScheme::KEY_TYPE = "type";
const std::string QuillmereDataScheme::KEY_ADDRESS = "address";
const std::string QuillmereDataScheme::VALUE_TYPE_REGISTER = "register";

void QuillmereDataScheme::DumpToByteVector(std::vector<unsigned char>& bytes) const
{
    constexpr int kCompact = -1;
    const std::string text = mMessage.dump(kCompact, ' ', false, nlohmann::json::error_handler_t::replace);
    bytes.assign(text.begin(), text.end());
}

} // namespace zebl
