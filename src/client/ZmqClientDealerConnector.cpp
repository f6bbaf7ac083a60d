#include <ipc/ZmqClientDealerConnector.h>

#include "client/Exchange.h"
#include "common/ConstantString.h"
#include "common/PollItem.h"
#include "common/ScopedZmq.h"
#include "common/Status.h"

namespace zeb::tolvo::ipc
{

namespace
{

const std::string kClassTag TOLVO_IPC_CONSTANT_STRING = "ipc::ZmqClientDealerConnector";

} // namespace

ZmqClientDealerConnector::ZmqClientDealerConnector(void* context, const std::string& requestEndpoint,
                                                   const std::string& interruptEndpoint)
    : mContext(context), mRequestEndpoint(requestEndpoint), mInterruptEndpoint(interruptEndpoint)
{
}

ZmqClientDealerConnector::~ZmqClientDealerConnector() = default;

StatusCode ZmqClientDealerConnector::SendRequest(const ByteVector& request, ByteVector& response, int timeout)
{
    ScopedSocket interrupt; // closed after the request socket
    ScopedSocket requester;

    StatusCode status = CreateSocket(ZMQ_SUB, &interrupt.handle);
    if (status == kSuccess) status = Connect(interrupt.handle, mInterruptEndpoint);
    if (status == kSuccess) status = SetSocketOpt(interrupt.handle, ZMQ_SUBSCRIBE, "", 0);
    if (status == kSuccess) status = CreateSocket(ZMQ_DEALER, &requester.handle);
    if (status == kSuccess) status = Connect(requester.handle, mRequestEndpoint);
    if (status != kSuccess) return status;

    if (zmq_send(requester.handle, request.data(), request.size(), 0) < 0)
    {
        status = TOLVO_IPC_ZMQ_FAILURE(" Failed to send REQUEST, %d", kClassTag.c_str());
        if (status != kSuccess) return status;
    }
    return WaitForResponse(requester.handle, interrupt.handle, response, timeout);
}

StatusCode ZmqClientDealerConnector::CreateSocket(int type, void** socket)
{
    *socket = zmq_socket(mContext, type);
    if (*socket != nullptr) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to create socket of type %d, %d", kClassTag.c_str(), type);
}

StatusCode ZmqClientDealerConnector::Connect(void* socket, const std::string& endpoint)
{
    if (zmq_connect(socket, endpoint.c_str()) >= 0) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to connect socket to %s, %d", kClassTag.c_str(), endpoint.c_str());
}

StatusCode ZmqClientDealerConnector::SetSocketOpt(void* socket, int option, const void* value, unsigned int length)
{
    if (zmq_setsockopt(socket, option, value, length) >= 0) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Set socket option failed %d", kClassTag.c_str());
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
