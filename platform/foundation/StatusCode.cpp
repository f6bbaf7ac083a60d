#include <tolvo/StatusCode.h>

namespace zeb::tolvo
{

StatusCode MakeStatusCodeFromErrno(int error)
{
    constexpr std::uint32_t kErrnoBase = 1000;
    return error == 0 ? StatusCode::Success : static_cast<StatusCode>(kErrnoBase + static_cast<std::uint32_t>(error));
}

} // namespace zeb::tolvo
