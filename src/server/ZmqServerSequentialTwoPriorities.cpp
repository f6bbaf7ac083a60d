#include <ipc/ZmqServerSequentialTwoPriorities.h>

#include "common/Status.h"
#include "server/PollLoop.h"

#include <zebl/QuillmereDataScheme.h>
#include <zeromq/Handles.h>

namespace zeb::tolvo::ipc
{

namespace
{

constexpr char kClassTag[] = "ipc::ZmqServerSequentialTwoPriorities";
constexpr char kRtMarker[] = "RT";

constexpr unsigned short kBurst = 10;
constexpr unsigned short kRtBurst = 40;

} // namespace

ZmqServerSequentialTwoPriorities::ZmqServerSequentialTwoPriorities(const std::string& endpoint, void* context,
                                                                   const std::string& identity)
    : ZmqServerConnector(endpoint, context, identity), mRtIdentity(mIdentity + kRtMarker)
{
}

ZmqServerSequentialTwoPriorities::~ZmqServerSequentialTwoPriorities() = default;

void ZmqServerSequentialTwoPriorities::SetStartupMessage(const std::string& address)
{
    ZmqServerConnector::SetStartupMessage(address);
    zebl::QuillmereDataSchemeRegister(kRtMarker + address).DumpToByteVector(mRtStartupMessage);
}

StatusCode ZmqServerSequentialTwoPriorities::PrepareToListen() { return kSuccess; }

void ZmqServerSequentialTwoPriorities::CreateSocketsAndRunServer(std::promise<StatusCode>& startup)
{
    // Closed in reverse: the front-ends, their monitors, control.
    ZmqSocket control;
    ZmqSocket rtMonitor;
    ZmqSocket monitor;
    ZmqSocket rtFrontEnd;
    ZmqSocket frontEnd;

    StatusCode status = CreateControlSocket(control.Slot());
    if (status == kSuccess) status = CreateFrontEndSocket(frontEnd.Slot(), monitor.Slot(), mIdentity);
    if (status == kSuccess) status = CreateFrontEndSocket(rtFrontEnd.Slot(), rtMonitor.Slot(), mRtIdentity);
    startup.set_value(status);
    if (status == kSuccess)
        RunServer(frontEnd.Get(), rtFrontEnd.Get(), monitor.Get(), rtMonitor.Get(), control.Get());
    else
        ReleasePendingSubscriber(control.Get());
    SwitchOffMonitor(frontEnd.Get());
    SwitchOffMonitor(rtFrontEnd.Get());
}

void ZmqServerSequentialTwoPriorities::RunServer(void* frontEnd, void* rtFrontEnd, void* monitor, void* rtMonitor,
                                                 void* control)
{
    zmq_pollitem_t items[] = {PollIn(frontEnd), PollIn(monitor), PollIn(control), PollIn(rtFrontEnd),
                              PollIn(rtMonitor)};
    while (WaitForEvents(items, kClassTag))
    {
        if (IsReadable(items[2]))
        {
            TOLVO_IPC_LOG(kLogTrace, "[trace] TERMINATE message received, worker stopping...", kClassTag);
            return;
        }
        if (IsReadable(items[3])) ReadAndProcessBurstOfRequests(rtFrontEnd, kRtBurst);
        if (IsReadable(items[0])) ReadAndProcessBurstOfRequests(frontEnd, kBurst);
        if (IsReadable(items[1])) ProcessConnectionEvents(monitor, frontEnd, mStartupMessage);
        if (IsReadable(items[4])) ProcessConnectionEvents(rtMonitor, rtFrontEnd, mRtStartupMessage);
    }
}

} // namespace zeb::tolvo::ipc
