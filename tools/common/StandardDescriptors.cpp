#include "common/StandardDescriptors.h"

#include <array>
#include <cerrno>
#include <sys/stat.h>
#include <system_error>

namespace zeb::tolvo::desk
{

void RequireStandardDescriptors()
{
    constexpr std::array kNames{"standard input", "standard output", "standard error"};
    int descriptor = 0;
    for (const char* name : kNames)
    {
        // ZeroMQ may have opened descriptors while it was loaded; those have no file type.
        struct stat file = {};
        if (fstat(descriptor++, &file) != 0 || (file.st_mode & S_IFMT) == 0)
            throw std::system_error(EBADF, std::generic_category(), name);
    }
}

} // namespace zeb::tolvo::desk
