#include "quillmere/Access.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <grp.h>
#include <system_error>

namespace zeb::tolvo::desk
{

mode_t ReadMode(const std::string& text)
{
    constexpr int kOctal = 8;
    constexpr mode_t kLargest = 0777;
    const char* const end = text.data() + text.size();
    mode_t mode = 0;
    const auto [last, error] = std::from_chars(text.data(), end, mode, kOctal);
    if (error != std::errc() || last != end || mode > kLargest)
        throw CLI::ValidationError("--mode", '"' + text + "\" is no octal mode up to 0777");
    return mode;
}

gid_t ReadGroup(const std::string& name)
{
    const struct group* const known = getgrnam(name.c_str());
    if (known == nullptr) throw CLI::ValidationError("--group", "there is no group \"" + name + '"');
    return known->gr_gid;
}

} // namespace zeb::tolvo::desk
