#pragma once

#include <ipc/AbstractClientConnector.h>
#include <ipc/OperatingModeInterface.h>

#include <string>

namespace zeb::tolvo::ipc
{

/// The persistent client: it keeps one `ZMQ_DEALER` socket for its life.
///
/// Replies carry no number: the first frame that arrives is taken as the reply. A reply that comes after its request
/// timed out stays queued and is returned to the next request. After any other status than `Success` from a request
/// that may have been sent, destroy the connector and create a new one.
///
/// Used by one thread at a time. Destroy every client before the process or the library ends: the end of the ZeroMQ
/// context waits for its socket.
class TOLVO_IPC_EXPORT ZmqClientConnector : public AbstractClientConnector
{
public:
    /// Creates the socket and connects nothing yet. When the socket can't be created that is logged and every request
    /// fails. Callers use `ZmqConnectorFactory::CreateZmqClientConnector`.
    /// @param endpoint ZeroMQ endpoint of the service, copied; cut at its first zero byte.
    /// @param operatingMode must outlive the connector.
    /// @param context ZeroMQ context; not owned, must outlive the connector.
    ZmqClientConnector(const std::string& endpoint, OperatingModeInterface& operatingMode, void* context);

    /// Closes the socket. A request still unsent delays the end of the context by up to 2 s (for ever, where
    /// setting the linger period failed, which is logged).
    ~ZmqClientConnector() override;

    /// Connects on first use, sends `request` as one frame and waits for one frame in return. The sending blocks when
    /// the socket can queue no more. A reply of more than 2 GiB is cut.
    /// @param request,response,timeout as for `AbstractClientConnector`.
    /// @return
    /// - `Success`: `response` holds the reply. (A ZeroMQ call that fails with error number 0 counts as success
    ///   too; one that sends, waits or receives then leaves `response` as it was.)
    /// - `TimedOut` (76): no reply within `timeout`; the request may still be carried out, and its reply be
    ///   given to the next one.
    /// - `BlockingForbidden` (27): the operating mode forbids waiting; the request has been sent all the same.
    /// - otherwise `MakeStatusCodeFromErrno` of the ZeroMQ call that failed. A signal that interrupts the wait is one
    ///   of them (`EINTR`).
    StatusCode SendRequest(const ByteVector& request, ByteVector& response, int timeout) override;

protected:
    /// @cond internal
    StatusCode WaitForResponse(ByteVector& response, int timeout);

    bool mIsConnected;
    void* mContext;
    void* mSocket;
    std::string mEndpoint;
    OperatingModeInterface& mOperatingMode;
    /// @endcond

private:
    StatusCode EnsureConnected();
};

} // namespace zeb::tolvo::ipc
