#include "client/Exchange.h"

#include "common/Status.h"

#include <zeromq/Handles.h>

namespace zeb::tolvo::ipc
{

StatusCode AwaitReadable(zmq_pollitem_t* items, int count, int timeout, const char* tag)
{
    const int ready = zmq_poll(items, count, timeout);
    if (ready < 0) return TOLVO_IPC_ZMQ_FAILURE(" zmq_poll exited with error %d", tag);
    if (ready > 0) return kSuccess;
    TOLVO_IPC_LOG(kLogError, " zmq_poll exited in timeout", tag);
    return kTimedOut;
}

StatusCode ReceiveResponse(void* socket, ByteVector& response, const char* tag)
{
    ZmqMessage message;
    if (!message.IsInitialised())
    {
        const StatusCode status = TOLVO_IPC_ZMQ_FAILURE(" Failed to init recv message, %d", tag);
        if (status != kSuccess) return status;
    }

    const int size = message.Receive(socket, 0);
    if (size < 0) return TOLVO_IPC_ZMQ_FAILURE(" Failed to receive RESPONSE, %d", tag);

    response.assign(message.Data(), message.Data() + size);
    return kSuccess;
}

} // namespace zeb::tolvo::ipc
