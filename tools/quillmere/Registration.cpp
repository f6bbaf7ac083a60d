#include "quillmere/Registration.h"

#include <zebl/QuillmereDataScheme.h>

#include <nlohmann/json.hpp>

namespace zeb::tolvo::desk
{

namespace
{

using zebl::QuillmereDataScheme;

constexpr std::size_t kLargestFrame = 4096;

/// @return null when `object` is no object, or has no such text.
const std::string* FindText(const nlohmann::json& object, const std::string& key)
{
    const auto found = object.find(key);
    return found == object.end() ? nullptr : found->get_ptr<const std::string*>();
}

std::string FindFault(const std::string& address, std::size_t longest)
{
    if (address.empty()) return "its address is empty";
    if (address == "." || address == "..") return "its address is the name of a directory";
    if (address.find('/') != std::string::npos) return "its address contains a slash";
    if (address.find('\0') != std::string::npos) return "its address contains a zero byte";
    if (address.size() > longest)
        return "its address is too long for a socket path: more than " + std::to_string(longest) + " bytes";
    return {};
}

} // namespace

std::optional<Registration> ReadRegistration(std::string_view frame, std::size_t longestAddress)
{
    // Most frames are replies: the brace tells without parsing.
    if (frame.size() > kLargestFrame || frame.find('{') == std::string_view::npos) return std::nullopt;

    const auto message = nlohmann::json::parse(frame.begin(), frame.end(), nullptr, false);
    const std::string* type = FindText(message, QuillmereDataScheme::KEY_TYPE);
    if (type == nullptr || *type != QuillmereDataScheme::VALUE_TYPE_REGISTER) return std::nullopt;

    const std::string* address = FindText(message, QuillmereDataScheme::KEY_ADDRESS);
    if (address == nullptr) return Registration{{}, "it has no address in text"};
    return Registration{*address, FindFault(*address, longestAddress)};
}

} // namespace zeb::tolvo::desk
