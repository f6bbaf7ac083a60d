#pragma once

#include <ipc/AbstractClientConnector.h>
#include <ipc/OperatingModeInterface.h>

#include <memory>
#include <string>

namespace zeb::tolvo::desk
{

/// Calls one service. Used by one thread.
class Caller
{
public:
    Caller(std::string endpoint, int timeoutMs);

    /// As `AbstractClientConnector::SendRequest`, but a reply that comes late is lost, never given to the next request.
    StatusCode Call(const ipc::ByteVector& request, ipc::ByteVector& reply);

private:
    struct WaitingAllowed : ipc::OperatingModeInterface
    {
        bool IsBlockingForbidden() override { return false; }
    };

    std::string mEndpoint;
    int mTimeoutMs;
    WaitingAllowed mOperatingMode;
    std::unique_ptr<ipc::AbstractClientConnector> mConnector; // null until the first call and after a failed one
};

} // namespace zeb::tolvo::desk
