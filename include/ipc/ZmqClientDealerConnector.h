#pragma once

#include <ipc/ByteVector.h>
#include <ipc/Export.h>

#include <tolvo/StatusCode.h>

#include <string>

namespace zeb::tolvo::ipc
{

/// The dealer client: it makes fresh sockets for every request, and its wait can be ended from outside.
///
/// Any message published on the interrupt endpoint while a request waits ends that wait; the message is never read.
/// A message published before the request's subscriber has connected is lost, so publish until the call has returned.
/// A reply that comes after its request has ended is lost, never given to another request.
///
/// Any number of threads may call `SendRequest` at the same time; the context must stay alive while one does. The
/// connector's sockets keep ZeroMQ's default linger: a request that nobody has taken makes the end of the context wait
/// for ever, so switch `ZMQ_BLOCKY` off in the context before the first request where a service may be gone for good.
/// Until somebody binds its endpoint, such a request also keeps its socket, so that some 1,000 time-outs fill a context
/// of ZeroMQ's default size; it is carried out once the service appears.
///
/// An interrupt publisher that neither sends nor is asked for its `ZMQ_EVENTS` doesn't let go of the subscribers of
/// ended requests: it keeps a descriptor for each over `inproc`, and memory over any transport.
class TOLVO_IPC_EXPORT ZmqClientDealerConnector
{
public:
    /// Creates no socket yet.
    /// @param context ZeroMQ context of the caller; not owned.
    /// @param requestEndpoint ZeroMQ endpoint of the service, copied; cut at its first zero byte.
    /// @param interruptEndpoint ZeroMQ endpoint where a `ZMQ_PUB` socket interrupts waits, copied; cut likewise.
    ZmqClientDealerConnector(void* context, const std::string& requestEndpoint, const std::string& interruptEndpoint);

    virtual ~ZmqClientDealerConnector();

    ZmqClientDealerConnector(const ZmqClientDealerConnector&) = delete;
    ZmqClientDealerConnector& operator=(const ZmqClientDealerConnector&) = delete;

    /// Sends `request` as one frame and waits for one frame in return. The sending blocks when the socket can queue no
    /// more. Both sockets are closed when it returns. A reply of more than 2 GiB is cut.
    /// @param request copied; may be empty.
    /// @param response replaced by the reply when one was received, otherwise left as it was.
    /// @param timeout milliseconds to wait for the reply; -1 waits without limit, 0 looks once.
    /// @return
    /// - `Success`: `response` holds the reply. (A ZeroMQ call that fails with error number 0 counts as success
    ///   too; one that waits or receives then leaves `response` as it was.)
    /// - `TimedOut` (76): no reply within `timeout`; the request may still be carried out.
    /// - `Interrupted` (12): a message on the interrupt endpoint ended the wait; the request may still be carried
    ///   out. A reply received at the same moment is in `response`.
    /// - otherwise `MakeStatusCodeFromErrno` of the ZeroMQ call that failed. A signal that interrupts the wait is one
    ///   of them (`EINTR`).
    StatusCode SendRequest(const ByteVector& request, ByteVector& response, int timeout);

protected:
    /// @cond internal
    StatusCode CreateSocket(int type, void** socket);
    StatusCode Connect(void* socket, const std::string& endpoint);
    StatusCode SetSocketOpt(void* socket, int option, const void* value, unsigned int length);
    StatusCode WaitForResponse(void* requestSocket, void* interruptSocket, ByteVector& response, int timeout);

    void* mContext;
    std::string mRequestEndpoint;
    std::string mInterruptEndpoint;
    /// @endcond
};

} // namespace zeb::tolvo::ipc
