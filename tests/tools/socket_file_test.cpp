#include "quillmere/SocketFile.h"
#include "support/Basics.h"

#include <dlfcn.h>
#include <future>
#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

using zeb::tolvo::desk::Access;
using zeb::tolvo::desk::SocketFile;

std::string watched;
mode_t seen = 0;

void Look()
{
    struct stat file = {};
    if (!watched.empty() && lstat(watched.c_str(), &file) == 0) seen |= file.st_mode & 0777;
}

template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// Each step of a socket file on its way to be open.
extern "C" int listen(int socket, int backlog) noexcept
{
    Look();
    return Real<int(int, int)>("listen")(socket, backlog);
}

extern "C" int fchownat(int folder, const char* path, uid_t user, gid_t group, int flags) noexcept
{
    Look();
    return Real<int(int, const char*, uid_t, gid_t, int)>("fchownat")(folder, path, user, group, flags);
}

extern "C" int chmod(const char* path, mode_t mode) noexcept
{
    Look();
    return Real<int(const char*, mode_t)>("chmod")(path, mode);
}

namespace
{

TEST(SocketFile, IsNeverMoreOpenThanToldAndGoesWithItsOwner)
{
    const TempFolder folder;
    const mode_t before = umask(0);
    watched = folder.Path("socket");
    {
        const SocketFile file(watched, Access{0660, getegid()});
        EXPECT_EQ(seen, mode_t{0}) << "before it is open";
        Look();
        EXPECT_EQ(seen, mode_t{0660});
    }
    EXPECT_FALSE(std::filesystem::exists(std::exchange(watched, {})));
    umask(before);
}

TEST(SocketFile, OneOfManyReplacesWhatWasLeftBehind)
{
    const TempFolder folder;
    const std::string path = folder.Path("socket");
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto make = [&]() -> std::unique_ptr<SocketFile> {
        try
        {
            return std::make_unique<SocketFile>(path, std::nullopt);
        }
        catch (const std::exception&)
        {
            return nullptr;
        }
    };
    for (int round = 0; round < 100; ++round)
    {
        const int leftBehind = socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_EQ(bind(leftBehind, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        close(leftBehind);
        std::vector<std::future<std::unique_ptr<SocketFile>>> tries;
        while (tries.size() < 4) tries.push_back(std::async(std::launch::async, make));
        std::vector<std::unique_ptr<SocketFile>> made;
        for (auto& attempt : tries)
            if (auto file = attempt.get()) made.push_back(std::move(file));
        ASSERT_EQ(made.size(), 1U) << "round " << round;
    }
}

} // namespace
