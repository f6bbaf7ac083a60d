#include <ipc/ZmqServerSequentialTwoPriorities.h>

#include "common/ConstantString.h"
#include "common/PollItem.h"
#include "common/ScopedZmq.h"
#include "common/Status.h"
#include "server/PollLoop.h"

#include <zebl/QuillmereDataScheme.h>

namespace zeb::tolvo::ipc
{

namespace
{

const std::string kClassTag TOLVO_IPC_CONSTANT_STRING = "ipc::ZmqServerSequentialTwoPriorities";
const std::string kRtMarker TOLVO_IPC_CONSTANT_STRING = "RT";

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
    ScopedSocket control;
    ScopedSocket rtMonitor;
    ScopedSocket monitor;
    ScopedSocket rtFrontEnd;
    ScopedSocket frontEnd;

    StatusCode status = CreateControlSocket(&control.handle);
    if (status == kSuccess) status = CreateFrontEndSocket(&frontEnd.handle, &monitor.handle, mIdentity);
    if (status == kSuccess) status = CreateFrontEndSocket(&rtFrontEnd.handle, &rtMonitor.handle, mRtIdentity);
    startup.set_value(status);
    if (status != kSuccess) return ReleasePendingSubscriber();
    RunServer(frontEnd.handle, rtFrontEnd.handle, monitor.handle, rtMonitor.handle, control.handle);
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
            TOLVO_IPC_LOG(kLogTrace, "[trace] TERMINATE message received, worker stopping...", kClassTag.c_str());
            return;
        }
        if (IsReadable(items[3])) ReadAndProcessBurstOfRequests(rtFrontEnd, kRtBurst);
        if (IsReadable(items[0])) ReadAndProcessBurstOfRequests(frontEnd, kBurst);
        if (IsReadable(items[1])) ProcessConnectionEvents(monitor, frontEnd, mStartupMessage);
        if (IsReadable(items[4])) ProcessConnectionEvents(rtMonitor, rtFrontEnd, mRtStartupMessage);
    }
}

} // namespace zeb::tolvo::ipc
