#pragma once

#include <cstdint>

namespace zeb::tolvo
{

/// Result of an operation. Zero is success; every other value tells why it failed.
enum class StatusCode : std::uint32_t
{
    Success = 0,
    Failure = 1,
    Interrupted = 12,
    BlockingForbidden = 27,
    TimedOut = 76,
};

/// Turns an error number into a status: 0 becomes `Success`, every other value 1000 + error, which is none of the
/// enumerators and shows the error number in a log.
StatusCode MakeStatusCodeFromErrno(int error);

} // namespace zeb::tolvo
