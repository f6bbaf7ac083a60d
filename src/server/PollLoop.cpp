#include "server/PollLoop.h"

#include "common/Log.h"

#include <cerrno>

namespace zeb::tolvo::ipc
{

bool WaitForEvents(zmq_pollitem_t* items, int count, const char* tag)
{
    constexpr long kNoTimeout = -1;
    while (zmq_poll(items, count, kNoTimeout) < 0)
    {
        const int error = zmq_errno();
        if (error == EINTR) continue; // a handler may have unblocked signals
        TOLVO_IPC_LOG(kLogError, " zmq_poll exited with error %d", tag, error);
        return false;
    }
    return true;
}

} // namespace zeb::tolvo::ipc
