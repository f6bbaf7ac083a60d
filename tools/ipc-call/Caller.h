#pragma once

#include <ipc/ByteVector.h>

#include <tolvo/StatusCode.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zeb::tolvo::desk
{

/// Calls one service. Used by one thread.
class Caller
{
public:
    Caller() = default;
    virtual ~Caller() = default;

    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    /// As `AbstractClientConnector::SendRequest`, but a reply that comes late is lost, never given to the next request.
    virtual StatusCode Call(const ipc::ByteVector& request, ipc::ByteVector& reply) = 0;
};

/// Makes the callers of one service, each with a connector of its own.
using CallerMaker = std::function<std::unique_ptr<Caller>()>;

/// @param interruptEndpoint where messages end the waits; without it nothing does.
CallerMaker MakeCallerMaker(const std::string& endpoint, int timeoutMs,
                            const std::optional<std::string>& interruptEndpoint);

} // namespace zeb::tolvo::desk
