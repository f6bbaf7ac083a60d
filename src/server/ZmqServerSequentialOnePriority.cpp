#include <ipc/ZmqServerSequentialOnePriority.h>

#include "common/ConstantString.h"
#include "common/PollItem.h"
#include "common/ScopedZmq.h"
#include "common/Status.h"
#include "server/PollLoop.h"

namespace zeb::tolvo::ipc
{

namespace
{

const std::string kClassTag TOLVO_IPC_CONSTANT_STRING = "ipc::ZmqServerSequentialOnePriority";

constexpr unsigned short kBurst = 100;

} // namespace

ZmqServerSequentialOnePriority::ZmqServerSequentialOnePriority(const std::string& endpoint, void* context,
                                                               const std::string& identity)
    : ZmqServerConnector(endpoint, context, identity)
{
}

ZmqServerSequentialOnePriority::~ZmqServerSequentialOnePriority() = default;

StatusCode ZmqServerSequentialOnePriority::PrepareToListen() { return kSuccess; }

void ZmqServerSequentialOnePriority::CreateSocketsAndRunServer(std::promise<StatusCode>& startup)
{
    // Closed in reverse: front-end, monitor, control.
    ScopedSocket control;
    ScopedSocket monitor;
    ScopedSocket frontEnd;

    StatusCode status = CreateControlSocket(&control.handle);
    if (status == kSuccess) status = CreateFrontEndSocket(&frontEnd.handle, &monitor.handle, mIdentity);
    startup.set_value(status);
    if (status != kSuccess) return ReleasePendingSubscriber();
    RunServer(frontEnd.handle, monitor.handle, control.handle);
}

void ZmqServerSequentialOnePriority::RunServer(void* frontEnd, void* monitor, void* control)
{
    zmq_pollitem_t items[] = {PollIn(frontEnd), PollIn(monitor), PollIn(control)};
    while (WaitForEvents(items, kClassTag))
    {
        if (IsReadable(items[0])) ReadAndProcessBurstOfRequests(frontEnd, kBurst);
        if (IsReadable(items[1])) ProcessConnectionEvents(monitor, frontEnd, mStartupMessage);
        if (IsReadable(items[2])) return;
    }
}

} // namespace zeb::tolvo::ipc
