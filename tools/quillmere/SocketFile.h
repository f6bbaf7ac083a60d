#pragma once

#include "common/Descriptor.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>

namespace zeb::tolvo::desk
{

/// Who may connect to the sockets that are bound. Where none is given, the umask decides.
struct Access
{
    mode_t mode = 0;
    std::optional<gid_t> group; ///< the process's when there is none
};

/// A listening Unix socket and its file, which takes nobody's place: a file that is no socket, or a socket where
/// somebody answers, is left alone. One that was left behind is replaced. The file goes with its owner, unless
/// somebody else's stands there by then. It is never more open than `access` says, not for a moment.
class SocketFile
{
public:
    /// @throws std::exception that tells why nothing can listen at `path`.
    SocketFile(const std::string& path, const std::optional<Access>& access);
    ~SocketFile();

    SocketFile(const SocketFile&) = delete;
    SocketFile& operator=(const SocketFile&) = delete;

    /// @return whether the file is still where it was made.
    bool IsThere() const { return Identify(mPath) == mFile; }

    /// @return the listening descriptor, which is the caller's from now on.
    int ReleaseDescriptor() { return mSocket.Release(); }

private:
    explicit SocketFile(const std::string& path);

    using FileId = std::pair<dev_t, ino_t>;

    static FileId Identify(const std::string& path);

    std::string mPath;
    Descriptor mSocket;
    FileId mFile;
};

} // namespace zeb::tolvo::desk
