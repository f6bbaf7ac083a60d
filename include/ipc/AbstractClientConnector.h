#pragma once

#include <ipc/ByteVector.h>
#include <ipc/Export.h>

#include <tolvo/StatusCode.h>

namespace zeb::tolvo::ipc
{

/// A client of one service. Used by one thread at a time, destroyed by its owner.
class TOLVO_IPC_EXPORT AbstractClientConnector
{
public:
    AbstractClientConnector() = default;
    virtual ~AbstractClientConnector();

    AbstractClientConnector(const AbstractClientConnector&) = delete;
    AbstractClientConnector& operator=(const AbstractClientConnector&) = delete;

    /// Sends `request` and waits for the reply. See the implementing class for statuses and late replies.
    /// @param request copied; may be empty.
    /// @param response replaced by the reply on `Success`, otherwise left as it was.
    /// @param timeout milliseconds to wait for the reply; -1 waits without limit, 0 looks once.
    /// @return `Success` when the request was answered.
    virtual StatusCode SendRequest(const ByteVector& request, ByteVector& response, int timeout) = 0;
};

} // namespace zeb::tolvo::ipc
