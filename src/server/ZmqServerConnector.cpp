#include <ipc/ZmqServerConnector.h>

#include "common/ConstantString.h"
#include "common/ScopedZmq.h"
#include "common/Status.h"

#include <zebl/QuillmereDataScheme.h>

#include <cerrno>
#include <csignal>
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

const std::string kClassTag TOLVO_IPC_CONSTANT_STRING = "ipc::ZmqServerConnector";
const std::string kControlEndpointPrefix TOLVO_IPC_CONSTANT_STRING = "inproc://server/control/";
const std::string kMonitorEndpointPrefix TOLVO_IPC_CONSTANT_STRING = "inproc://server/monitor/";

constexpr char kTerminate[] = {'T', 'E', 'R', 'M', 'I', 'N', 'A', 'T', 'E'};

std::atomic<std::uint32_t> sMonitorCounter{0};

/// `number` in decimal after `prefix`, whatever digit grouping the host's global locale asks for.
template <typename Number>
std::string EndpointName(const std::string& prefix, Number number)
{
    std::ostringstream name;
    name.imbue(std::locale::classic());
    name << prefix << number;
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

/// Blocks signals on the calling thread while it lives, but for those that a fault raises. A signal may make any ZeroMQ
/// call fail, and only the server's polling is repeated.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) sigdelset(&all, fault);
        pthread_sigmask(SIG_BLOCK, &all, &mBefore);
    }

    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }

    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t mBefore{};
};

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
      mIsTerminateRefused(false)
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
    TOLVO_IPC_LOG(kLogTrace, "[trace] Stop listening for %s", kClassTag.c_str(), mEndpoint.c_str());
    StopProcessingMessages();
    const StatusCode status = TerminateServerThread();
    mIsListening = false;
    return status;
}

StatusCode ZmqServerConnector::StartThread()
{
    if (mServerThread.joinable()) // left by a stop that failed
    {
        const StatusCode status = TerminateServerThread();
        if (status != kSuccess) return status;
        if (mServerThread.joinable()) return kFailure; // refused with error number 0, which converts to success
    }

    std::promise<StatusCode> startup;
    std::future<StatusCode> started = startup.get_future();
    mProcessingMessages = true;
    mServerThread = std::thread(&ZmqServerConnector::RunServerThread, this, std::ref(startup));

    const StatusCode status = started.get();
    if (status != kSuccess)
    {
        TOLVO_IPC_LOG(kLogError, " Server thread startup failed, wait for completion, status=%u", kClassTag.c_str(),
                      static_cast<unsigned int>(status));
        mServerThread.join();
        return status;
    }
    TOLVO_IPC_LOG(kLogTrace, "[trace] Server thread startup status=%u", kClassTag.c_str(),
                  static_cast<unsigned int>(status));
    mIsListening = true;
    return kSuccess;
}

void ZmqServerConnector::RunServerThread(std::promise<StatusCode>& startup)
{
    // Replies carry no number: after one that a signal made ZeroMQ refuse, the next would be taken for it. For the
    // whole thread: around each reply it would cost more time than the reply.
    const SignalsBlocked blocked;
    TOLVO_IPC_LOG(kLogTrace, "[trace] Server thread - Start thread", kClassTag.c_str());
    mControlEndpoint = EndpointName(kControlEndpointPrefix + "/", std::this_thread::get_id());
    CreateSocketsAndRunServer(startup);
    TOLVO_IPC_LOG(kLogTrace, "[trace] Server thread - Exit thread", kClassTag.c_str());
}

void ZmqServerConnector::StopProcessingMessages()
{
    TOLVO_IPC_LOG(kLogTrace, "[trace] Stop processing outstanding messages for %s", kClassTag.c_str(),
                  mEndpoint.c_str());
    mProcessingMessages = false;
}

/// Tells the server thread to end and joins it. When that fails, the thread has not been joined.
StatusCode ZmqServerConnector::TerminateServerThread()
{
    // A subscriber that has met one publisher over inproc never meets the next, so after a refused send another one
    // would be lost. Only a context that has ended refuses it, and that ends the thread's polling as well.
    if (mIsTerminateRefused)
    {
        JoinServerThread();
        return kSuccess;
    }

    ScopedSocket publisher;
    StatusCode status = CreatePublisher(&publisher.handle);
    if (status != kSuccess) return status;
    WaitForSubscriber();
    TOLVO_IPC_LOG(kLogTrace, "[trace] Send TERMINATE signal to all threads", kClassTag.c_str());
    status = SendTerminate(publisher.handle);
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
    {
        status = TOLVO_IPC_ZMQ_FAILURE(" Failed to send TERMINATE signal on controller %d", kClassTag.c_str());
    }
    // Given back before the join: from then on another server's thread may have this thread's id, and so its endpoint.
    // The queued message still arrives.
    zmq_unbind(publisher, mControlEndpoint.c_str());
    return status;
}

void ZmqServerConnector::JoinServerThread()
{
    TOLVO_IPC_LOG(kLogTrace, "[trace] Waiting for server thread...", kClassTag.c_str());
    mServerThread.join();
    mIsTerminateRefused = false;
    TOLVO_IPC_LOG(kLogTrace, "[trace] Server thread execution has completed, server stopped", kClassTag.c_str());
}

/// On the server thread after a failed start, while its subscriber is still open: ZeroMQ frees one whose inproc connect
/// is pending only once somebody binds the name. Bound later, the name could be that of another server, whose thread
/// has been given the same id, and ZeroMQ's reaper could be closing the subscriber meanwhile.
void ZmqServerConnector::ReleasePendingSubscriber()
{
    ScopedSocket publisher;
    publisher.handle = zmq_socket(mContext, ZMQ_PUB);
    if (publisher.handle == nullptr) return;
    if (zmq_bind(publisher.handle, mControlEndpoint.c_str()) < 0) return;
    zmq_unbind(publisher.handle, mControlEndpoint.c_str());
}

StatusCode ZmqServerConnector::CreateSocket(int type, void** socket)
{
    *socket = zmq_socket(mContext, type);
    if (*socket != nullptr) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to create socket of type %d, %d", kClassTag.c_str(), type);
}

StatusCode ZmqServerConnector::Connect(void* socket, const std::string& endpoint)
{
    if (zmq_connect(socket, endpoint.c_str()) >= 0) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to connect socket to %s, %d", kClassTag.c_str(), endpoint.c_str());
}

StatusCode ZmqServerConnector::Bind(void* socket, const std::string& endpoint)
{
    if (zmq_bind(socket, endpoint.c_str()) >= 0) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to bind socket %s, %d", kClassTag.c_str(), endpoint.c_str());
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
        TOLVO_IPC_LOG(kLogError, " Failed register endpoint for socket events (%d)", kClassTag.c_str(), zmq_errno());
        return kFailure;
    }
    const StatusCode status = CreateSocket(ZMQ_PAIR, monitor);
    if (status != kSuccess) return status;
    return Connect(*monitor, endpoint);
}

void ZmqServerConnector::ProcessConnectionEvents(void* monitor, void* frontEnd, ByteVector& startupMessage)
{
    {
        zmq_msg_t event{};
        if (zmq_msg_init(&event) < 0) return;
        const ScopedMessage closer(&event);
        if (zmq_msg_recv(&event, monitor, 0) < 0)
        {
            const int error = zmq_errno();
            if (error != EAGAIN)
                TOLVO_IPC_LOG(kLogError, " Failed to recv monitor message, %d", kClassTag.c_str(), error);
        }
        else if (IsConnectedEvent(&event))
        {
            if (SendStartupMessage(frontEnd, startupMessage) == kSuccess)
            {
                TOLVO_IPC_LOG(kLogNotice, " Registered to Quillmere", kClassTag.c_str());
            }
            else
            {
                TOLVO_IPC_LOG(kLogError, " Register to Quillmere FAILED", kClassTag.c_str());
            }
        }
    }

    // The event's second frame, its address, which nobody needs.
    zmq_msg_t address{};
    if (zmq_msg_init(&address) < 0) return;
    const ScopedMessage closer(&address);
    static_cast<void>(zmq_msg_recv(&address, monitor, 0));
}

StatusCode ZmqServerConnector::SendStartupMessage(void* socket, ByteVector& message)
{
    if (!mStartupMessageSet) return kSuccess;
    if (zmq_send(socket, message.data(), message.size(), 0) >= 0) return kSuccess;
    return TOLVO_IPC_ZMQ_FAILURE(" Failed to send startup message %d", kClassTag.c_str());
}

void ZmqServerConnector::ReadAndProcessBurstOfRequests(void* socket, unsigned short maxBurst)
{
    bool isDraining = true;
    std::uint16_t received = 0;
    while (mProcessingMessages && isDraining && received < maxBurst)
    {
        zmq_msg_t message{};
        if (zmq_msg_init(&message) < 0)
        {
            TOLVO_IPC_LOG(kLogError, " Failed to init recv message, %d", kClassTag.c_str(), zmq_errno());
            return;
        }
        const ScopedMessage closer(&message);

        const int size = zmq_msg_recv(&message, socket, ZMQ_DONTWAIT);
        if (size >= 0)
        {
            ++received;
            isDraining = ProcessAndSendReply(&message, size, socket);
        }
        else
        {
            const int error = zmq_errno();
            if (error != EAGAIN) TOLVO_IPC_LOG(kLogError, " Failed to receive REQUEST, %d", kClassTag.c_str(), error);
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
    TOLVO_IPC_LOG(kLogError, " Failed to send RESPONSE, %d", kClassTag.c_str(), zmq_errno());
    return false;
}

} // namespace zeb::tolvo::ipc
