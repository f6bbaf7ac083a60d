#include "ipc-call/Caller.h"

#include <ipc/ZmqClientDealerConnector.h>
#include <ipc/ZmqConnectorFactory.h>
#include <ipc/convenience/WaitingAllowed.h>

#include <zmq.hpp>

#include <utility>

namespace zeb::tolvo::desk
{

namespace
{

class PersistentCaller : public Caller
{
public:
    PersistentCaller(const std::string& endpoint, int timeoutMs) : mEndpoint(endpoint), mTimeoutMs(timeoutMs) {}

    StatusCode Call(const ipc::ByteVector& request, ipc::ByteVector& reply) override
    {
        if (!mConnector)
            mConnector = ipc::ZmqConnectorFactory::GetInstance().CreateZmqClientConnector(mEndpoint, mOperatingMode);
        const StatusCode status = mConnector->SendRequest(request, reply, mTimeoutMs);
        if (status != StatusCode::Success) mConnector.reset();
        return status;
    }

private:
    std::string mEndpoint;
    int mTimeoutMs;
    ipc::convenience::WaitingAllowed mOperatingMode;
    std::unique_ptr<ipc::AbstractClientConnector> mConnector; // null until the first call and after a failed one
};

class DealerCaller : public Caller
{
public:
    DealerCaller(std::shared_ptr<zmq::context_t> context, const std::string& endpoint,
                 const std::string& interruptEndpoint, int timeoutMs)
        : mContext(std::move(context)),
          mConnector(mContext->handle(), endpoint, interruptEndpoint),
          mTimeoutMs(timeoutMs)
    {
    }

    StatusCode Call(const ipc::ByteVector& request, ipc::ByteVector& reply) override
    {
        return mConnector.SendRequest(request, reply, mTimeoutMs);
    }

private:
    std::shared_ptr<zmq::context_t> mContext; // ends after the connector
    ipc::ZmqClientDealerConnector mConnector;
    int mTimeoutMs;
};

} // namespace

CallerMaker MakeCallerMaker(const std::string& endpoint, int timeoutMs,
                            const std::optional<std::string>& interruptEndpoint)
{
    if (!interruptEndpoint) return [=] { return std::make_unique<PersistentCaller>(endpoint, timeoutMs); };

    const auto context = std::make_shared<zmq::context_t>();
    context->set(zmq::ctxopt::blocky, false); // its end waits for no request that nobody took
    return [=] { return std::make_unique<DealerCaller>(context, endpoint, *interruptEndpoint, timeoutMs); };
}

} // namespace zeb::tolvo::desk
