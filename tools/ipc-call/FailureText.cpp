#include "ipc-call/FailureText.h"

#include <system_error>

namespace zeb::tolvo::desk
{

std::string FailureText(StatusCode status, int timeoutMs)
{
    if (status == StatusCode::TimedOut) return "no reply within " + std::to_string(timeoutMs) + " ms";
    if (status == StatusCode::Interrupted) return "interrupted by a message";

    // Only the platform knows how a status holds an error number, so the one that gives this status is searched.
    constexpr int kLastError = 4095;
    for (int error = 1; error <= kLastError; ++error)
    {
        if (MakeStatusCodeFromErrno(error) == status) return std::generic_category().message(error);
    }
    return "status " + std::to_string(static_cast<std::uint32_t>(status));
}

} // namespace zeb::tolvo::desk
