#pragma once

#include <string>

namespace zeb::tolvo::desk
{

bool IsTcp(const std::string& endpoint);

/// @return the path of an ipc endpoint's socket file, empty when it has none.
std::string SocketPathOf(const std::string& endpoint);

/// @return what is wrong with an endpoint to bind, empty when nothing is.
std::string FindEndpointFault(const std::string& endpoint);

} // namespace zeb::tolvo::desk
