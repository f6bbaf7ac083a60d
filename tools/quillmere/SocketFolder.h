#pragma once

#include <cstddef>
#include <string>

namespace zeb::tolvo::desk
{

/// The directory where clients find a socket for each address.
class SocketFolder
{
public:
    /// @throws std::runtime_error when `directory` is none, or its path leaves no room for a socket's name.
    explicit SocketFolder(const std::string& directory);

    /// @return number of bytes a socket's name may have.
    std::size_t LongestName() const;

    std::string EndpointOf(const std::string& name) const { return "ipc://" + mPrefix + name; }

private:
    std::string mPrefix; // absolute, ends with a slash
};

} // namespace zeb::tolvo::desk
