#include "quillmere/SocketFile.h"

#include "quillmere/Lines.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <thread>

namespace zeb::tolvo::desk
{

namespace
{

[[noreturn]] void Fail(int error, const std::string& path)
{
    throw std::system_error(error, std::generic_category(), "can't listen at " + Quote(path));
}

int MakeSocket(const std::string& path)
{
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (made < 0) Fail(errno, path);
    return made;
}

/// @return 0 or the error number.
int CallWithAddress(int (*call)(int, const sockaddr*, socklen_t), const Descriptor& socket, const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
    path.copy(address.sun_path, path.size());
    const void* const anyAddress = &address;
    return call(socket.Get(), static_cast<const sockaddr*>(anyAddress), sizeof address) == 0 ? 0 : errno;
}

/// Holds the directory of `path` while nobody else, by this very function, replaces a socket in it: of two that find
/// the same one left behind, the second would remove the first one's.
Descriptor LockFolderOf(const std::string& path)
{
    constexpr auto kPatience = std::chrono::seconds(1);
    const std::filesystem::path folder = std::filesystem::absolute(path).parent_path();
    Descriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock.Get() < 0) Fail(errno, path);
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (flock(lock.Get(), LOCK_EX | LOCK_NB) != 0)
    {
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() > end) Fail(errno, path);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return Descriptor(lock.Release());
}

void RemoveWhatWasLeftBehind(const std::string& path)
{
    std::error_code ignored;
    const auto status = std::filesystem::symlink_status(path, ignored);
    if (!exists(status)) return;
    if (!is_socket(status)) throw std::runtime_error(Quote(path) + " exists and is no socket");

    const Descriptor probe(MakeSocket(path));
    const int error = CallWithAddress(connect, probe, path);
    if (error == 0 || error == EAGAIN) // the latter when many others are connecting
        throw std::runtime_error("can't listen at " + Quote(path) + ": somebody answers there");
    if (error != ECONNREFUSED || unlink(path.c_str()) != 0) Fail(error != ECONNREFUSED ? error : errno, path);
}

/// Lets in whom `access` says.
void Open(const std::string& path, const Access& access)
{
    // By a descriptor: whoever may write to the directory could put a link in the file's place.
    const Descriptor file(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    const std::string link = "/proc/self/fd/" + std::to_string(file.Get());
    struct stat status = {};
    if (fstat(file.Get(), &status) != 0 || !S_ISSOCK(status.st_mode)) Fail(errno, path);
    const gid_t group = access.group.value_or(status.st_gid);
    if (fchownat(file.Get(), "", static_cast<uid_t>(-1), group, AT_EMPTY_PATH) != 0 ||
        chmod(link.c_str(), access.mode) != 0)
        throw std::system_error(errno, std::generic_category(), "can't set mode or group of " + Quote(path));
}

} // namespace

SocketFile::SocketFile(const std::string& path) : mPath(path), mSocket(MakeSocket(path)) {}

SocketFile::SocketFile(const std::string& path, const std::optional<Access>& access) : SocketFile(path)
{
    const Descriptor lock = LockFolderOf(path);
    RemoveWhatWasLeftBehind(path);
    // The file gets no more rights than its socket has.
    if (access && fchmod(mSocket.Get(), 0) != 0) Fail(errno, path);
    if (const int error = CallWithAddress(bind, mSocket, path)) Fail(error, path);
    mFile = Identify(path);
    if (listen(mSocket.Get(), SOMAXCONN) != 0) Fail(errno, path);
    if (access) Open(path, *access);
}

SocketFile::~SocketFile()
{
    if (IsThere()) unlink(mPath.c_str());
}

/// @return all zero when there is no such file.
SocketFile::FileId SocketFile::Identify(const std::string& path)
{
    struct stat file = {};
    return lstat(path.c_str(), &file) == 0 ? FileId(file.st_dev, file.st_ino) : FileId();
}

} // namespace zeb::tolvo::desk
