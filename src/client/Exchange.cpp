#include "client/Exchange.h"

#include "common/ScopedZmq.h"
#include "common/Status.h"

namespace zeb::tolvo::ipc
{

StatusCode AwaitReadable(zmq_pollitem_t* items, int count, int timeout, const std::string& tag)
{
    const int ready = zmq_poll(items, count, timeout);
    if (ready < 0) return TOLVO_IPC_ZMQ_FAILURE(" zmq_poll exited with error %d", tag.c_str());
    if (ready > 0) return kSuccess;
    TOLVO_IPC_LOG(kLogError, " zmq_poll exited in timeout", tag.c_str());
    return kTimedOut;
}

StatusCode ReceiveResponse(void* socket, ByteVector& response, const std::string& tag)
{
    zmq_msg_t message{};
    if (zmq_msg_init(&message) < 0)
    {
        const StatusCode status = TOLVO_IPC_ZMQ_FAILURE(" Failed to init recv message, %d", tag.c_str());
        if (status != kSuccess) return status;
    }
    const ScopedMessage closer(&message);

    const int size = zmq_msg_recv(&message, socket, 0);
    if (size < 0) return TOLVO_IPC_ZMQ_FAILURE(" Failed to receive RESPONSE, %d", tag.c_str());

    const auto* data = static_cast<const unsigned char*>(zmq_msg_data(&message));
    response.assign(data, data + size);
    return kSuccess;
}

} // namespace zeb::tolvo::ipc
