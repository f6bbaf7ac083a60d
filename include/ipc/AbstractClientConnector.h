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

    /// Sends `request` and waits for the reply. One that is not answered in time may still be carried out later.
    ///
    /// After any status but `Success` the reply may still come, and may be given to the next request: destroy the
    /// connector and create a new one.
    /// @param request copied; may be empty.
    /// @param response replaced by the reply on `Success`, otherwise left as it was.
    /// @param timeout milliseconds to wait for the reply; -1 waits without limit, 0 looks once.
    /// @return `Success` when the request was answered, `TimedOut` (76) when its time is over, `BlockingForbidden` (27)
    /// when the operating mode forbids waiting, otherwise what failed.
    virtual StatusCode SendRequest(const ByteVector& request, ByteVector& response, int timeout) = 0;
};

} // namespace zeb::tolvo::ipc
