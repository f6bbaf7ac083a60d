#include <ipc/ZmqClientDealerConnector.h>

#include "client/Exchange.h"
#include "common/Status.h"

#include <zeromq/Handles.h>

namespace zeb::tolvo::ipc
{

namespace
{

constexpr char kClassTag[] = "ipc::ZmqClientDealerConnector";

} // namespace

ZmqClientDealerConnector::ZmqClientDealerConnector(void* context, const std::string& requestEndpoint,
                                                   const std::string& interruptEndpoint)
    : mContext(context), mRequestEndpoint(requestEndpoint), mInterruptEndpoint(interruptEndpoint)
{
}

ZmqClientDealerConnector::~ZmqClientDealerConnector() = default;

StatusCode ZmqClientDealerConnector::SendRequest(const ByteVector& request, ByteVector& response, int timeout)
{
    ZmqSocket interrupt; // closed after the request socket
    ZmqSocket requester;

    StatusCode status = CreateSocket(ZMQ_SUB, interrupt.Slot());
    if (status == kSuccess) status = Connect(interrupt.Get(), mInterruptEndpoint);
    if (status == kSuccess) status = SetSocketOpt(interrupt.Get(), ZMQ_SUBSCRIBE, "", 0);
    if (status == kSuccess) status = CreateSocket(ZMQ_DEALER, requester.Slot());
    if (status == kSuccess) status = Connect(requester.Get(), mRequestEndpoint);
    if (status != kSuccess) return status;

    if (zmq_send(requester.Get(), request.data(), request.size(), 0) < 0)
    {
        status = TOLVO_IPC_ZMQ_FAILURE(" Failed to send REQUEST, %d", kClassTag);
        if (status != kSuccess) return status;
    }
    return WaitForResponse(requester.Get(), interrupt.Get(), response, timeout);
}

StatusCode ZmqClientDealerConnector::CreateSocket(int type, void** socket)
{
    *socket = zmq_socket(mContext, type);
    if (*socket != nullptr) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to create socket of type %d, %d", kClassTag, type);
}

StatusCode ZmqClientDealerConnector::Connect(void* socket, const std::string& endpoint)
{
    if (zmq_connect(socket, endpoint.c_str()) >= 0) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to connect socket to %s, %d", kClassTag, endpoint.c_str());
}

StatusCode ZmqClientDealerConnector::SetSocketOpt(void* socket, int option, const void* value, unsigned int length)
{
    if (zmq_setsockopt(socket, option, value, length) >= 0) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Set socket option failed %d", kClassTag);
}

StatusCode ZmqClientDealerConnector::WaitForResponse(void* requestSocket, void* interruptSocket, ByteVector& response,
                                                     int timeout)
{
    zmq_pollitem_t items[] = {PollIn(requestSocket), PollIn(interruptSocket)};

    StatusCode status = AwaitReadable(items, 2, timeout, kClassTag);
    if (status != kSuccess) return status;

    if (IsReadable(items[0])) status = ReceiveResponse(requestSocket, response, kClassTag);
    // An interrupt outweighs whatever was received in the same wake-up.
    if (IsReadable(items[1])) status = kInterrupted;
    return status;
}

} // namespace zeb::tolvo::ipc
