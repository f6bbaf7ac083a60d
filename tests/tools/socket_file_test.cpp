#include "quillmere/SocketFile.h"
#include "support/Basics.h"

#include <array>
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
    seen = 0;
    {
        const SocketFile file(watched, Access{0660, getegid()});
        EXPECT_EQ(seen, mode_t{0}) << "before it is open";
        Look();
        EXPECT_EQ(seen, mode_t{0660});
    }
    EXPECT_FALSE(std::filesystem::exists(std::exchange(watched, {})));
    umask(before);
}

TEST(Descriptor, ThatIsNoneIsNotClosed)
{
    errno = 0;
    zeb::tolvo::desk::Descriptor(-1);
    EXPECT_EQ(errno, 0);
}

TEST(SocketFile, OneOfManyReplacesWhatWasLeftBehind)
{
    const TempFolder folder;
    const std::string path = folder.Path("socket"), kept = folder.Path("kept");
    for (int round = 0; round < 100; ++round)
    {
        std::optional<SocketFile> earlier(std::in_place, path, std::nullopt);
        std::filesystem::create_hard_link(path, kept);
        earlier.reset();
        std::filesystem::rename(kept, path); // where nobody listens any more
        std::array<std::optional<SocketFile>, 4> files;
        std::vector<std::future<void>> tries;
        for (auto& file : files)
            tries.push_back(std::async(std::launch::async, [&] { file.emplace(path, std::nullopt); }));
        tries.clear(); // awaits them, whatever they throw
        const auto isMade = [](const auto& file) { return file.has_value(); };
        ASSERT_EQ(std::count_if(files.begin(), files.end(), isMade), 1) << "round " << round;
    }
}

} // namespace
