#include <ipc/ZmqClientConnector.h>

#include "client/Exchange.h"
#include "common/Status.h"

#include <ipc/ZmqCommon.h>
#include <zeromq/Handles.h>

namespace zeb::tolvo::ipc
{

namespace
{

constexpr char kClassTag[] = "ipc::ZmqClientConnector";

constexpr int kLingerMs = 2000;

} // namespace

ZmqClientConnector::ZmqClientConnector(const std::string& endpoint, OperatingModeInterface& operatingMode,
                                       void* context)
    : mIsConnected(false), mContext(context), mSocket(nullptr), mEndpoint(endpoint), mOperatingMode(operatingMode)
{
    // Last, so that nothing that may throw comes between it and the destructor that closes it.
    mSocket = zmq_socket(context, ZMQ_DEALER); // NOLINT(cppcoreguidelines-prefer-member-initializer)
    if (mSocket == nullptr)
    {
        TOLVO_IPC_LOG(kLogError, " ZmqClientConnector: Failed to create ZMQ socket type ZMQ_REQ, %d",
                      ZmqCommon::mLogger.c_str(), zmq_errno());
    }
}

ZmqClientConnector::~ZmqClientConnector()
{
    if (mSocket != nullptr) zmq_close(mSocket);
    mSocket = nullptr;
}

StatusCode ZmqClientConnector::SendRequest(const ByteVector& request, ByteVector& response, int timeout)
{
    if (const StatusCode status = EnsureConnected(); status != kSuccess) return status;
    if (zmq_send(mSocket, request.data(), request.size(), 0) < 0)
        return TOLVO_IPC_ZMQ_FAILURE(" Failed to send REQUEST, %d", ZmqCommon::mLogger.c_str());
    return WaitForResponse(response, timeout);
}

StatusCode ZmqClientConnector::EnsureConnected()
{
    if (mIsConnected) return kSuccess;
    if (zmq_connect(mSocket, mEndpoint.c_str()) < 0)
        return TOLVO_IPC_ZMQ_FAILURE(" Failed to connect to RPC REPLY server!, %d", ZmqCommon::mLogger.c_str());
    if (zmq_setsockopt(mSocket, ZMQ_LINGER, &kLingerMs, sizeof kLingerMs) != 0)
        TOLVO_IPC_LOG(kLogError, " Failed to set zmq LINGER value, %d", ZmqCommon::mLogger.c_str(), zmq_errno());
    mIsConnected = true;
    return kSuccess;
}

StatusCode ZmqClientConnector::WaitForResponse(ByteVector& response, int timeout)
{
    zmq_pollitem_t item = PollIn(mSocket);
    if (mOperatingMode.IsBlockingForbidden()) return kBlockingForbidden;

    const StatusCode status = AwaitReadable(&item, 1, timeout, kClassTag);
    if (status != kSuccess) return status;
    if (!IsReadable(item)) return kSuccess;
    return ReceiveResponse(mSocket, response, kClassTag);
}

} // namespace zeb::tolvo::ipc
