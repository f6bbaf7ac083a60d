#include "ipc-call/Caller.h"

#include <ipc/ZmqClientDealerConnector.h>
#include <ipc/ZmqConnectorFactory.h>
#include <ipc/convenience/WaitingAllowed.h>

namespace zeb::tolvo::desk
{

namespace
{

class KeepingCaller : public Caller
{
public:
    KeepingCaller(const std::string& endpoint, int timeoutMs) : mEndpoint(endpoint), mTimeoutMs(timeoutMs) {}

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

class InterruptibleCaller : public Caller
{
public:
    InterruptibleCaller(zmq::context_t& context, const std::string& endpoint, const std::string& interruptEndpoint,
                        int timeoutMs)
        : mConnector(context.handle(), endpoint, interruptEndpoint), mTimeoutMs(timeoutMs)
    {
    }

    StatusCode Call(const ipc::ByteVector& request, ipc::ByteVector& reply) override
    {
        return mConnector.SendRequest(request, reply, mTimeoutMs);
    }

private:
    ipc::ZmqClientDealerConnector mConnector;
    int mTimeoutMs;
};

} // namespace

CallerMaker::CallerMaker(const std::string& endpoint, int timeoutMs,
                         const std::optional<std::string>& interruptEndpoint)
    : mEndpoint(endpoint), mTimeoutMs(timeoutMs), mInterruptEndpoint(interruptEndpoint)
{
    if (!mInterruptEndpoint) return;
    mContext.emplace();
    mContext->set(zmq::ctxopt::blocky, false); // its end waits for no request that nobody took
}

std::unique_ptr<Caller> CallerMaker::Make()
{
    if (!mInterruptEndpoint) return std::make_unique<KeepingCaller>(mEndpoint, mTimeoutMs);
    return std::make_unique<InterruptibleCaller>(*mContext, mEndpoint, *mInterruptEndpoint, mTimeoutMs);
}

} // namespace zeb::tolvo::desk
