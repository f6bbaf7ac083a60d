#pragma once

namespace zeb::tolvo::ipc
{

/// Implemented by the host process: tells a client connector whether it may wait just now.
class OperatingModeInterface
{
public:
    virtual ~OperatingModeInterface() = default;

    /// Asked after each request has been sent and before its reply is awaited, on the thread that called
    /// `SendRequest`.
    /// @return true when the calling thread must not wait.
    virtual bool IsBlockingForbidden() = 0;
};

} // namespace zeb::tolvo::ipc
