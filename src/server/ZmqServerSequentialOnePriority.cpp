#include <ipc/ZmqServerSequentialOnePriority.h>

#include "common/Status.h"
#include "server/PollLoop.h"

#include <zeromq/Handles.h>

namespace zeb::tolvo::ipc
{

namespace
{

constexpr char kClassTag[] = "ipc::ZmqServerSequentialOnePriority";

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
    ZmqSocket control;
    ZmqSocket monitor;
    ZmqSocket frontEnd;

    StatusCode status = CreateControlSocket(control.Slot());
    if (status == kSuccess) status = CreateFrontEndSocket(frontEnd.Slot(), monitor.Slot(), mIdentity);
    startup.set_value(status);
    if (status == kSuccess)
        RunServer(frontEnd.Get(), monitor.Get(), control.Get());
    else
        ReleasePendingSubscriber(control.Get());
    SwitchOffMonitor(frontEnd.Get());
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
