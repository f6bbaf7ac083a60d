#include "quillmere/Endpoint.h"

#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace zeb::tolvo::desk
{

namespace
{

constexpr std::string_view kTcp = "tcp://";
constexpr std::string_view kIpc = "ipc://";

bool BeginsWith(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

/// ZeroMQ takes any digits and keeps 16 bits of them.
bool EndsWithPort(std::string_view endpoint)
{
    const std::string_view digits = endpoint.substr(endpoint.rfind(':') + 1);
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), port);
    return error == std::errc() && end == digits.end() && port != 0;
}

} // namespace

bool IsTcp(const std::string& endpoint) { return BeginsWith(endpoint, kTcp); }

std::string SocketPathOf(const std::string& endpoint)
{
    const bool hasFile = BeginsWith(endpoint, kIpc) && !BeginsWith(endpoint, "ipc://@"); // that name is an abstract one
    return hasFile ? endpoint.substr(kIpc.size()) : std::string();
}

std::string FindEndpointFault(const std::string& endpoint)
{
    if (IsTcp(endpoint))
        return EndsWithPort(endpoint) ? std::string() : '"' + endpoint + "\" has no port from 1 to 65535";
    // ZeroMQ would make up a path for a star, and nobody would know it.
    if (!BeginsWith(endpoint, kIpc) || endpoint == kIpc || endpoint == "ipc://*")
        return '"' + endpoint + "\" is neither ipc://PATH nor tcp://ADDRESS:PORT";
    return {};
}

} // namespace zeb::tolvo::desk
