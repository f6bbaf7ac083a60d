#include <ipc/ZmqServerConnector.h>

#include "common/Status.h"
#include "server/SignalsBlocked.h"

#include <zebl/QuillmereDataScheme.h>
#include <zeromq/Handles.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <functional>
#include <locale>
#include <sstream>

namespace zeb::tolvo::ipc
{

namespace
{

constexpr char kClassTag[] = "ipc::ZmqServerConnector";
constexpr char kControlEndpointPrefix[] = "inproc://server/control/";
constexpr char kMonitorEndpointPrefix[] = "inproc://server/monitor/";

constexpr char kTerminate[] = {'T', 'E', 'R', 'M', 'I', 'N', 'A', 'T', 'E'};

std::atomic<std::uint32_t> sMonitorCounter{0};

/// The parts one after another, numbers in decimal, whatever digit grouping the host's global locale asks for.
template <typename... Parts>
std::string EndpointName(const Parts&... parts)
{
    std::ostringstream name;
    name.imbue(std::locale::classic());
    (name << ... << parts);
    return name.str();
}

/// Time for the subscriber's connection to the stop publisher to stand: the one message is sent without a retry.
void WaitForSubscriber()
{
    constexpr long kStopDelayNs = 500'000'000;
    timespec remaining{0, kStopDelayNs};
    while (nanosleep(&remaining, &remaining) < 0 && errno == EINTR)
    {
    }
}

bool IsConnectedEvent(zmq_msg_t* event)
{
    const void* data = zmq_msg_data(event);
    if (data == nullptr) return false;
    std::uint16_t id = 0;
    std::memcpy(&id, data, sizeof id);
    return id == ZMQ_EVENT_CONNECTED;
}

} // namespace

ZmqServerConnector::ZmqServerConnector(const std::string& endpoint, void* context, const std::string& identity)
    : mEndpoint(endpoint),
      mIdentity(identity),
      mProcessingMessages(true),
      mContext(context),
      mStartupMessageSet(false),
      mIsTerminateRefused(false),
      mHasThreadEnded(false)
{
}

ZmqServerConnector::~ZmqServerConnector() = default;

void ZmqServerConnector::SetStartupMessage(const std::string& address)
{
    mStartupMessageSet = true;
    zebl::QuillmereDataSchemeRegister(address).DumpToByteVector(mStartupMessage);
}

StatusCode ZmqServerConnector::StartListening()
{
    if (mIsListening) return kSuccess;
    const StatusCode status = PrepareToListen();
    if (status != kSuccess) return status;
    return StartThread();
}

StatusCode ZmqServerConnector::StopListening()
{
    if (!mIsListening) return kSuccess;
    TOLVO_IPC_LOG(kLogTrace, "[trace] Stop listening for %s", kClassTag, mEndpoint.c_str());
    StopProcessingMessages();
    const StatusCode status = TerminateServerThread();
    mIsListening = false;
    return status;
}

StatusCode ZmqServerConnector::StartThread()
{
    if (const StatusCode status = CompleteFailedStop(); status != kSuccess) return status;

    std::promise<StatusCode> startup;
    std::future<StatusCode> started = startup.get_future();
    mProcessingMessages = true;
    mHasThreadEnded = false;
    mServerThread = std::thread(&ZmqServerConnector::RunServerThread, this, std::ref(startup));

    const StatusCode status = started.get();
    if (status != kSuccess)
    {
        TOLVO_IPC_LOG(kLogError, " Server thread startup failed, wait for completion, status=%u", kClassTag,
                      static_cast<unsigned int>(status));
        mServerThread.join();
        return status;
    }
    TOLVO_IPC_LOG(kLogTrace, "[trace] Server thread startup status=%u", kClassTag, static_cast<unsigned int>(status));
    mIsListening = true;
    return kSuccess;
}

void ZmqServerConnector::RunServerThread(std::promise<StatusCode>& startup)
{
    // Replies carry no number: after one that a signal made ZeroMQ refuse, the next would be taken for it. For the
    // whole thread: around each reply it would cost more time than the reply. To its very end, where one that waits,
    // such as the SIGPIPE of a handler's write, is dropped; let through, it would end the process.
    BlockSignals();
    TOLVO_IPC_LOG(kLogTrace, "[trace] Server thread - Start thread", kClassTag);
    mControlEndpoint = EndpointName(kControlEndpointPrefix, '/', std::this_thread::get_id());
    CreateSocketsAndRunServer(startup);
    TOLVO_IPC_LOG(kLogTrace, "[trace] Server thread - Exit thread", kClassTag);
    mHasThreadEnded = true;
}

void ZmqServerConnector::StopProcessingMessages()
{
    TOLVO_IPC_LOG(kLogTrace, "[trace] Stop processing outstanding messages for %s", kClassTag, mEndpoint.c_str());
    mProcessingMessages = false;
}

/// Joins the thread that a failed stop has left, if there is one.
/// @return what is not a success when that thread still runs.
StatusCode ZmqServerConnector::CompleteFailedStop()
{
    if (!mServerThread.joinable()) return kSuccess;
    if (mHasThreadEnded) // by itself, mostly since its context has ended: then no signal could be sent
    {
        JoinServerThread();
        return kSuccess;
    }
    // A subscriber that has met one publisher over inproc never meets the next: after a refused send a second signal
    // would be lost, and the join would wait for ever.
    if (mIsTerminateRefused) return kFailure;

    const StatusCode status = TerminateServerThread();
    // A send that was refused with error number 0 converts to success.
    return status == kSuccess && mIsTerminateRefused ? kFailure : status;
}

/// Tells the server thread to end and joins it. When that fails, the thread has not been joined.
StatusCode ZmqServerConnector::TerminateServerThread()
{
    ZmqSocket publisher;
    StatusCode status = CreatePublisher(publisher.Slot());
    if (status != kSuccess) return status;
    WaitForSubscriber();
    TOLVO_IPC_LOG(kLogTrace, "[trace] Send TERMINATE signal to all threads", kClassTag);
    status = SendTerminate(publisher.Get());
    if (!mIsTerminateRefused) JoinServerThread();
    return status;
}

StatusCode ZmqServerConnector::CreatePublisher(void** socket)
{
    const SignalsBlocked blocked;
    const StatusCode status = CreateSocket(ZMQ_PUB, socket);
    if (status != kSuccess) return status;
    return Bind(*socket, mControlEndpoint);
}

StatusCode ZmqServerConnector::SendTerminate(void* publisher)
{
    const SignalsBlocked blocked;
    StatusCode status = kSuccess;
    mIsTerminateRefused = zmq_send(publisher, kTerminate, sizeof kTerminate, 0) < 0;
    if (mIsTerminateRefused)
        status = TOLVO_IPC_ZMQ_FAILURE(" Failed to send TERMINATE signal on controller %d", kClassTag);
    // Given back before the join: from then on another server's thread may have this thread's id, and so its endpoint.
    // The queued message still arrives.
    zmq_unbind(publisher, mControlEndpoint.c_str());
    return status;
}

void ZmqServerConnector::JoinServerThread()
{
    TOLVO_IPC_LOG(kLogTrace, "[trace] Waiting for server thread...", kClassTag);
    mServerThread.join();
    mIsTerminateRefused = false;
    TOLVO_IPC_LOG(kLogTrace, "[trace] Server thread execution has completed, server stopped", kClassTag);
}

/// ZeroMQ frees a subscriber whose inproc connect is pending only once somebody binds the name. Here the subscriber
/// does so itself: no further socket is needed, which may be what the start was short of. Bound later, the name could
/// be that of another server, whose thread has been given the same id, and ZeroMQ's reaper could be closing the
/// subscriber meanwhile.
void ZmqServerConnector::ReleasePendingSubscriber(void* control)
{
    if (control == nullptr) return;
    if (zmq_bind(control, mControlEndpoint.c_str()) == 0) zmq_unbind(control, mControlEndpoint.c_str());
}

/// A closed front-end still delivers what was queued, and connects again for it. ZeroMQ would tell of that connection
/// and, where nobody receives such events any more, wait for ever, on the thread that moves all messages of the
/// context.
void ZmqServerConnector::SwitchOffMonitor(void* frontEnd)
{
    if (frontEnd != nullptr) zmq_socket_monitor(frontEnd, nullptr, 0);
}

StatusCode ZmqServerConnector::CreateSocket(int type, void** socket)
{
    *socket = zmq_socket(mContext, type);
    if (*socket != nullptr) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to create socket of type %d, %d", kClassTag, type);
}

StatusCode ZmqServerConnector::Connect(void* socket, const std::string& endpoint)
{
    if (zmq_connect(socket, endpoint.c_str()) >= 0) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to connect socket to %s, %d", kClassTag, endpoint.c_str());
}

StatusCode ZmqServerConnector::Bind(void* socket, const std::string& endpoint)
{
    if (zmq_bind(socket, endpoint.c_str()) >= 0) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to bind socket %s, %d", kClassTag, endpoint.c_str());
}

StatusCode ZmqServerConnector::SetSocketOpt(void* socket, int option, const void* value, std::size_t size)
{
    if (zmq_setsockopt(socket, option, value, size) >= 0) return kSuccess;
    return MakeStatusCodeFromErrno(zmq_errno());
}

StatusCode ZmqServerConnector::SetSocketIdentity(void* socket, const std::string& identity)
{
    return SetSocketOpt(socket, ZMQ_ROUTING_ID, identity.data(), identity.size());
}

StatusCode ZmqServerConnector::CreateControlSocket(void** socket)
{
    // The subscriber connects first; the publisher binds this endpoint only when the server is stopped.
    StatusCode status = CreateSocket(ZMQ_SUB, socket);
    if (status == kSuccess) status = Connect(*socket, mControlEndpoint);
    if (status == kSuccess) status = SetSocketOpt(*socket, ZMQ_SUBSCRIBE, "", 0);
    return status;
}

StatusCode ZmqServerConnector::CreateFrontEndSocket(void** frontEnd, void** monitor, const std::string& identity)
{
    StatusCode status = CreateSocket(ZMQ_DEALER, frontEnd);
    // Before the connect: the first connection's event must not be missed.
    if (status == kSuccess) status = CreateMonitorSocket(*frontEnd, monitor);
    if (status == kSuccess) status = SetSocketIdentity(*frontEnd, identity);
    if (status == kSuccess) status = Connect(*frontEnd, mEndpoint);
    return status;
}

StatusCode ZmqServerConnector::CreateMonitorSocket(void* socket, void** monitor)
{
    const std::string endpoint = EndpointName(kMonitorEndpointPrefix, sMonitorCounter++);
    if (zmq_socket_monitor(socket, endpoint.c_str(), ZMQ_EVENT_CONNECTED) != 0)
    {
        TOLVO_IPC_LOG(kLogError, " Failed register endpoint for socket events (%d)", kClassTag, zmq_errno());
        return kFailure;
    }
    const StatusCode status = CreateSocket(ZMQ_PAIR, monitor);
    if (status != kSuccess) return status;
    return Connect(*monitor, endpoint);
}

void ZmqServerConnector::ProcessConnectionEvents(void* monitor, void* frontEnd, ByteVector& startupMessage)
{
    {
        ZmqMessage event;
        if (!event.IsInitialised()) return;
        if (event.Receive(monitor, 0) < 0)
        {
            const int error = zmq_errno();
            if (error != EAGAIN) TOLVO_IPC_LOG(kLogError, " Failed to recv monitor message, %d", kClassTag, error);
        }
        else if (IsConnectedEvent(event.Get()))
        {
            if (SendStartupMessage(frontEnd, startupMessage) == kSuccess)
                TOLVO_IPC_LOG(kLogNotice, " Registered to Quillmere", kClassTag);
            else
                TOLVO_IPC_LOG(kLogError, " Register to Quillmere FAILED", kClassTag);
        }
    }

    // The event's second frame, its address, which nobody needs.
    ZmqMessage address;
    if (address.IsInitialised()) static_cast<void>(address.Receive(monitor, 0));
}

StatusCode ZmqServerConnector::SendStartupMessage(void* socket, ByteVector& message)
{
    if (!mStartupMessageSet) return kSuccess;
    if (zmq_send(socket, message.data(), message.size(), 0) >= 0) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to send startup message %d", kClassTag);
}

void ZmqServerConnector::ReadAndProcessBurstOfRequests(void* socket, unsigned short maxBurst)
{
    bool isDraining = true;
    std::uint16_t received = 0;
    while (mProcessingMessages && isDraining && received < maxBurst)
    {
        ZmqMessage message;
        if (!message.IsInitialised())
        {
            TOLVO_IPC_LOG(kLogError, " Failed to init recv message, %d", kClassTag, zmq_errno());
            return;
        }

        const int size = message.Receive(socket, ZMQ_DONTWAIT);
        if (size >= 0)
        {
            ++received;
            isDraining = ProcessAndSendReply(message.Get(), size, socket);
        }
        else
        {
            const int error = zmq_errno();
            if (error != EAGAIN) TOLVO_IPC_LOG(kLogError, " Failed to receive REQUEST, %d", kClassTag, error);
            isDraining = false;
        }
    }
}

bool ZmqServerConnector::ProcessAndSendReply(zmq_msg_t* message, int size, void* socket)
{
    const auto* data = static_cast<const unsigned char*>(zmq_msg_data(message));
    const ByteVector request(data, data + size);
    ByteVector response;
    ProcessRequest(request, response);

    if (zmq_send(socket, response.data(), response.size(), ZMQ_DONTWAIT) >= 0) return true;
    TOLVO_IPC_LOG(kLogError, " Failed to send RESPONSE, %d", kClassTag, zmq_errno());
    return false;
}

} // namespace zeb::tolvo::ipc
