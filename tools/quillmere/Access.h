#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace zeb::tolvo::desk
{

/// Who may connect to the sockets that are bound: nothing leaves it to the umask.
struct Access
{
    mode_t mode = 0;
    std::optional<gid_t> group; ///< the process's when there is none
};

// Each reads an option, and throws CLI::ValidationError when it can't.
mode_t ReadMode(const std::string& text);
gid_t ReadGroup(const std::string& name);

} // namespace zeb::tolvo::desk
