#pragma once

#include <ipc/ZmqConnectorFactory.h>
#include <ipc/convenience/Reply.h>
#include <ipc/convenience/Timeout.h>
#include <ipc/convenience/WaitingAllowed.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace zeb::tolvo::ipc::convenience
{

/// A client of one service whose calls wait. A late reply is lost, never taken for the next call's: after a call
/// that fails the connector is destroyed, and the next call creates a new one. A service that answers one request twice
/// is not covered: its second reply is taken for the next call's.
///
/// Used by one thread at a time, destroyed before the process or the library ends. It moves; one that was moved from
/// may only be destroyed or assigned to.
class Caller
{
public:
    /// Creates nothing yet.
    /// @param endpoint ZeroMQ endpoint of the service.
    explicit Caller(std::string endpoint) : mEndpoint(std::move(endpoint)) {}

    /// Sends a request and waits for the reply, `timeout` at most. A request that was not answered may still be carried
    /// out, also later.
    /// @param request copied once, into ZeroMQ's message; may be empty.
    /// @param timeout any duration.
    /// @return the reply, or the status of `ZmqClientConnector::SendRequest` that tells why there is none. Among them
    /// is a signal whose handler ran on this thread (`EINTR`).
    Reply Call(const ByteVector& request, Timeout timeout)
    {
        // Out of its place until all has gone well, so that an exception costs it as well.
        auto connection = mConnection ? std::move(mConnection) : std::make_unique<Connection>(mEndpoint);
        Reply reply;
        reply.status = connection->client->SendRequest(request, reply.body, timeout.GetMilliseconds());
        if (reply) mConnection = std::move(connection);
        return reply;
    }

    /// The same for text, which is copied once more.
    /// @param request,timeout as above.
    /// @return as above.
    Reply Call(std::string_view request, Timeout timeout)
    {
        return Call(ByteVector(request.begin(), request.end()), timeout);
    }

private:
    struct Connection
    {
        explicit Connection(const std::string& endpoint)
            : client(ZmqConnectorFactory::GetInstance().CreateZmqClientConnector(endpoint, mode))
        {
        }

        WaitingAllowed mode; // outlives the client
        std::unique_ptr<AbstractClientConnector> client;
    };

    std::string mEndpoint;
    std::unique_ptr<Connection> mConnection; // null until the first call and after one that failed
};

} // namespace zeb::tolvo::ipc::convenience
