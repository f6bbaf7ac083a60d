#include "quillmere/Outlet.h"

#include "common/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zeb::tolvo::desk
{

void Outlet::StopWaiting() const
{
    struct stat file = {};
    if (fstat(mDescriptor, &file) != 0 || !(S_ISFIFO(file.st_mode) || S_ISCHR(file.st_mode))) return;

    // Opened again, since O_NONBLOCK on the one that was inherited would be everybody's who shares it. A regular file
    // makes nobody wait and would lose its offset.
    const std::string path = "/proc/self/fd/" + std::to_string(mDescriptor);
    const Descriptor own(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (own.Get() >= 0) dup2(own.Get(), mDescriptor);
}

int Outlet::Write(std::string_view lines)
{
    int error = Finish();
    if (error == 0 && mDropped > 0)
    {
        error = Begin("tolvo-quillmere: " + std::to_string(mDropped) + " lines could not be written here\n");
        if (error == 0) mDropped = 0;
        if (error == 0) error = Finish();
    }
    if (error == 0) error = Begin(lines);
    if (error != 0) mDropped += static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
    return error;
}

/// Writes what there is room for. What has been begun is finished before anything else.
int Outlet::Begin(std::string_view lines)
{
    if (const int error = WriteSome(lines)) return error;
    mRest = lines;
    static_cast<void>(Finish()); // or later
    return 0;
}

int Outlet::Finish()
{
    std::string_view rest = mRest;
    int error = 0;
    while (error == 0 && !rest.empty()) error = WriteSome(rest);
    mRest.erase(0, mRest.size() - rest.size());
    return error;
}

/// Takes from `text` what it has written.
int Outlet::WriteSome(std::string_view& text) const
{
    constexpr int kPatienceMs = 100;
    pollfd item{mDescriptor, POLLOUT, 0};
    if (poll(&item, 1, mDropped > 0 ? 0 : kPatienceMs) == 0) return EAGAIN;

    // For so much there is room in a pipe that is writable.
    const std::string_view piece = text.substr(0, PIPE_BUF);
    ssize_t written = send(mDescriptor, piece.data(), piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (written < 0 && errno == ENOTSOCK) written = write(mDescriptor, piece.data(), piece.size());
    if (written < 0) return errno;
    text.remove_prefix(static_cast<std::size_t>(written));
    return 0;
}

} // namespace zeb::tolvo::desk
