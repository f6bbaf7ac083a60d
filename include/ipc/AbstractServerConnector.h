#pragma once

#include <ipc/ByteVector.h>
#include <ipc/Export.h>

#include <tolvo/StatusCode.h>

#include <functional>

namespace zeb::tolvo::ipc
{

/// A server: turns each request into a response through one registered handler. Driven by one thread, its owner.
class TOLVO_IPC_EXPORT AbstractServerConnector
{
public:
    AbstractServerConnector();
    virtual ~AbstractServerConnector();

    AbstractServerConnector(const AbstractServerConnector&) = delete;
    AbstractServerConnector& operator=(const AbstractServerConnector&) = delete;

    /// Starts serving on a thread of its own and waits until that is ready. Does nothing on a server that listens.
    /// @return `Success` when it listens, otherwise what failed: it then serves nothing.
    virtual StatusCode StartListening() = 0;

    /// Stops serving; waits for the request being handled. Do so before the server is deleted, never from its handler.
    /// Does nothing on a server that does not listen.
    /// @return `Success` when the server has stopped, otherwise what failed; its thread may then still run, although it
    /// listens no more, and it must not be deleted: start it, then stop it again, until both return `Success`.
    virtual StatusCode StopListening() = 0;

    /// Sets the handler that turns a request into a response; an empty function removes it, and requests are then
    /// answered with an empty response. Call it while the server is stopped.
    ///
    /// The handler runs on the server thread, one request at a time, and finds `response` empty. It must not throw
    /// (the process ends in `std::terminate`), must not call `StopListening` or `StartListening` of its own server,
    /// and delays every other request, and a stop, for as long as it runs. Signals are blocked on that thread, but for
    /// those that a fault raises: a handler that unblocks some must block them again before it returns, or its reply
    /// may be lost. Threads and processes that it starts inherit the blocked signals.
    /// @param callback the handler, taken over.
    void RegisterCallback(std::function<void(const ByteVector& request, ByteVector& response)> callback);

protected:
    /// Calls the handler; without one, logs that and leaves `response` as it is.
    /// @param request what the client sent.
    /// @param response what the client is to get; empty when it is passed in.
    void ProcessRequest(const ByteVector& request, ByteVector& response);

    bool mIsListening; ///< between a start that succeeded and the next stop
    std::function<void(const ByteVector& request, ByteVector& response)> mCallback; ///< the handler, or empty
};

} // namespace zeb::tolvo::ipc
