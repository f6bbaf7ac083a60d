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

    /// Starts serving. See `ZmqServerConnector`.
    virtual StatusCode StartListening() = 0;

    /// Stops serving. See `ZmqServerConnector`.
    virtual StatusCode StopListening() = 0;

    /// Sets the handler that turns a request into a response; an empty function removes it, and requests are then
    /// answered with an empty response. Call it while the server is stopped.
    ///
    /// The handler runs on the server thread, one request at a time, and finds `response` empty. It must not throw
    /// (the process ends in `std::terminate`), must not call `StopListening` or `StartListening` of its own server,
    /// and delays every other request, and a stop, for as long as it runs.
    void RegisterCallback(std::function<void(const ByteVector& request, ByteVector& response)> callback);

protected:
    void ProcessRequest(const ByteVector& request, ByteVector& response);

    bool mIsListening;
    std::function<void(const ByteVector& request, ByteVector& response)> mCallback;
};

} // namespace zeb::tolvo::ipc
