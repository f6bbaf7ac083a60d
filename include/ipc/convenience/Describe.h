#pragma once

#include <tolvo/StatusCode.h>

#include <string>
#include <system_error>

namespace zeb::tolvo::ipc::convenience
{

/// Says in words what a status means.
/// @param status any status of the library.
/// @return a few words in lower case for a status of the library, the system's text for an error number, and "status"
/// with the number for any other.
inline std::string Describe(StatusCode status)
{
    switch (static_cast<unsigned int>(status))
    {
    case 0:
        return "success";
    case 1:
        return "failed";
    case 12:
        return "interrupted by a message";
    case 27:
        return "waiting is forbidden";
    case 76:
        return "timed out";
    default:
        break;
    }

    // Only the platform knows how a status holds an error number, so the one that gives this status is searched.
    constexpr int kLastError = 4095;
    for (int error = 1; error <= kLastError; ++error)
    {
        if (MakeStatusCodeFromErrno(error) == status) return std::generic_category().message(error);
    }
    // ZeroMQ's own error numbers, which the system has no words for.
    constexpr int kFirstOfZmq = 156384712;
    if (MakeStatusCodeFromErrno(kFirstOfZmq + 51) == status) return "not possible in the socket's present state";
    if (MakeStatusCodeFromErrno(kFirstOfZmq + 52) == status) return "protocol and socket type don't go together";
    if (MakeStatusCodeFromErrno(kFirstOfZmq + 53) == status) return "the ZeroMQ context has ended";
    if (MakeStatusCodeFromErrno(kFirstOfZmq + 54) == status) return "no I/O thread of ZeroMQ is available";
    return "status " + std::to_string(static_cast<unsigned int>(status));
}

} // namespace zeb::tolvo::ipc::convenience
