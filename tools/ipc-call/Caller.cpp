#include "ipc-call/Caller.h"

#include <ipc/ZmqConnectorFactory.h>

#include <utility>

namespace zeb::tolvo::desk
{

Caller::Caller(std::string endpoint, int timeoutMs) : mEndpoint(std::move(endpoint)), mTimeoutMs(timeoutMs) {}

StatusCode Caller::Call(const ipc::ByteVector& request, ipc::ByteVector& reply)
{
    if (!mConnector)
        mConnector = ipc::ZmqConnectorFactory::GetInstance().CreateZmqClientConnector(mEndpoint, mOperatingMode);
    const StatusCode status = mConnector->SendRequest(request, reply, mTimeoutMs);
    if (status != StatusCode::Success) mConnector.reset();
    return status;
}

} // namespace zeb::tolvo::desk
