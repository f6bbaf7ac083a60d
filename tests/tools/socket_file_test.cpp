#include "quillmere/SocketFile.h"
#include "support/Basics.h"

#include <dlfcn.h>
#include <sys/stat.h>
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

} // namespace

// A step of a socket file on its way to be open.
#define LOOK_BEFORE(name, parameters, arguments)                                                                       \
    extern "C" int name parameters noexcept                                                                            \
    {                                                                                                                  \
        Look();                                                                                                        \
        return reinterpret_cast<int(*) parameters>(dlsym(RTLD_NEXT, #name)) arguments;                                 \
    }

LOOK_BEFORE(listen, (int socket, int backlog), (socket, backlog))
LOOK_BEFORE(fchownat, (int at, const char* path, uid_t user, gid_t group, int flags), (at, path, user, group, flags))

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
        auto earlier = make();
        std::filesystem::create_hard_link(path, folder.Path("kept"));
        earlier.reset();
        std::filesystem::rename(folder.Path("kept"), path); // nobody listens there any more
        std::vector<std::future<std::unique_ptr<SocketFile>>> tries;
        while (tries.size() < 4) tries.push_back(std::async(std::launch::async, make));
        for (const auto& attempt : tries) attempt.wait();
        const auto isMade = [](auto& attempt) { return attempt.get() != nullptr; };
        ASSERT_EQ(std::count_if(tries.begin(), tries.end(), isMade), 1) << "round " << round;
    }
}

} // namespace
