#pragma once

#include <ipc/ByteVector.h>

#include <tolvo/StatusCode.h>

#include <zmq.hpp>

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

/// Makes the callers of one service, each with a connector of its own. It outlives them.
class CallerMaker
{
public:
    /// @param interruptEndpoint where messages end the waits; without it nothing does.
    CallerMaker(const std::string& endpoint, int timeoutMs, const std::optional<std::string>& interruptEndpoint);

    std::unique_ptr<Caller> Make();

private:
    std::string mEndpoint;
    int mTimeoutMs;
    std::optional<std::string> mInterruptEndpoint;
    std::optional<zmq::context_t> mContext; // of the interruptible callers
};

} // namespace zeb::tolvo::desk
