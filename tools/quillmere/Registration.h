#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zeb::tolvo::desk
{

/// A message of type register.
struct Registration
{
    std::string address; ///< empty when the message has none
    std::string fault;   ///< what is wrong with the address; empty when it can be served
};

/// Reads a frame from a server.
/// @param longestAddress number of bytes an address may have.
/// @return nothing when the frame is something else: it has more than 4096 bytes or is no JSON object of that type.
std::optional<Registration> ReadRegistration(std::string_view frame, std::size_t longestAddress);

} // namespace zeb::tolvo::desk
