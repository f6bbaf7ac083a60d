#include "ipc-call/FailureText.h"

#include <ipc/convenience/Describe.h>

namespace zeb::tolvo::desk
{

std::string FailureText(StatusCode status, int timeoutMs)
{
    if (status == StatusCode::TimedOut) return "no reply within " + std::to_string(timeoutMs) + " ms";
    return ipc::convenience::Describe(status);
}

} // namespace zeb::tolvo::desk
