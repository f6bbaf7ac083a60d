#pragma once

#include <ipc/OperatingModeInterface.h>

namespace zeb::tolvo::ipc::convenience
{

/// The operating mode of a program whose threads may wait at any time.
struct WaitingAllowed : OperatingModeInterface
{
    /// @return false.
    bool IsBlockingForbidden() override { return false; }
};

} // namespace zeb::tolvo::ipc::convenience
