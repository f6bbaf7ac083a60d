#include "quillmere/SocketFolder.h"

#include "quillmere/Lines.h"

#include <filesystem>
#include <stdexcept>
#include <sys/un.h>

namespace zeb::tolvo::desk
{

namespace
{

constexpr std::size_t kLongestPath = sizeof(sockaddr_un::sun_path) - 1;

} // namespace

SocketFolder::SocketFolder(const std::string& directory)
{
    std::error_code ignored;
    if (!std::filesystem::is_directory(directory, ignored))
        throw std::runtime_error(Quote(directory) + " is no directory");
    mPrefix = (std::filesystem::absolute(directory) / "").string();
    if (mPrefix.size() >= kLongestPath) throw std::runtime_error(Quote(directory) + " is too long for socket paths");
}

std::size_t SocketFolder::LongestName() const { return kLongestPath - mPrefix.size(); }

} // namespace zeb::tolvo::desk
