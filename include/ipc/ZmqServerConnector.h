#pragma once

#include <ipc/AbstractServerConnector.h>

#include <atomic>
#include <cstddef>
#include <future>
#include <string>
#include <thread>

struct zmq_msg_t;

namespace zeb::tolvo::ipc
{

/// What every ZeroMQ server has in common: its thread, the registration message and the answering of requests.
///
/// The server connects to an endpoint that the registration service has bound, and presents its identity there. Each
/// request and each reply is one frame. A reply that can't be queued at once is dropped and logged.
///
/// One thread owns the connector: it makes all calls below, one at a time. Stop a started server before deleting it:
/// deleting a connector whose thread was not joined ends the process in `std::terminate`. Stop every server before the
/// process or the library ends: the end of the ZeroMQ context waits for its sockets. It also waits for a reply or a
/// registration that was queued and not taken yet, until the registration service comes back.
class TOLVO_IPC_EXPORT ZmqServerConnector : public AbstractServerConnector
{
public:
    /// Stores its arguments; creates no socket and no thread. Callers use
    /// `ZmqConnectorFactory::CreateZmqServerConnector`.
    /// @param endpoint ZeroMQ endpoint to connect to, copied; cut at its first zero byte.
    /// @param context ZeroMQ context; not owned, must outlive the connector.
    /// @param identity routing identity, copied; 1 to 255 bytes of any value, the first one not zero.
    ZmqServerConnector(const std::string& endpoint, void* context, const std::string& identity);
    ~ZmqServerConnector() override;

    /// Starts the server thread and waits until it has created its sockets. Does nothing on a server that listens. A
    /// server that was stopped may be started again, at once and any number of times.
    ///
    /// When an earlier stop has failed, this first completes it, which may take as long as a stop; a thread that has
    /// ended meanwhile is just joined.
    /// @return
    /// - `Success`: requests are being served. (A server that listens returns this even when its thread has ended by
    ///   itself, after a failed poll: stop it first.)
    /// - `Failure` (1): the front-end's connection can't be watched.
    /// - otherwise `MakeStatusCodeFromErrno` of the ZeroMQ call that failed; nothing is left running or open, unless
    ///   by an earlier stop, see below. An empty identity and a bad endpoint (`EINVAL`) show here.
    /// - when an earlier stop can't be completed: the failure of this attempt, or `Failure` where that stop's last
    ///   message was refused, which can be sent only once. The earlier thread still runs: call again once it has
    ///   ended, which it does when its context ends.
    /// @throws std::system_error when the thread can't be created.
    StatusCode StartListening() override;

    /// Stops the server thread and joins it. Takes half a second, or what the server thread is doing if that takes
    /// longer: handling a request, or waiting for room to queue the registration. Requests that are queued meanwhile
    /// stay unanswered. Never call it from the handler: it would join its own thread.
    ///
    /// Does nothing and returns `Success` on a server that does not listen. One whose stop has failed is such a server,
    /// although its thread may run on.
    /// @return
    /// - `Success`: the thread has ended and its sockets are closed. (A last message that ZeroMQ refuses with error
    ///   number 0 counts as success too: the thread then runs on, as below.)
    /// - otherwise `MakeStatusCodeFromErrno` of the ZeroMQ call that failed. The thread may still run, answering
    ///   nothing, and taking processor time while requests wait: do not delete the connector, register a handler or set
    ///   the startup message. The way out is `StartListening`, then `StopListening`, until both return `Success`. Where
    ///   the context has ended no start succeeds: it joins the thread, which ends too, and the connector can be
    ///   deleted.
    StatusCode StopListening() override;

    /// Sets the address under which the server registers each time its connection is established, again after the
    /// registration service restarted. Without it nothing is sent. Call it while the server is stopped. When it throws,
    /// for want of memory, what is sent is the message that was set before, or an empty one.
    /// @param address where clients find the service: the registration service decides which addresses it takes.
    virtual void SetStartupMessage(const std::string& address);

protected:
    // What a new kind of server implements.

    /// Called by `StartListening` before the thread is started, on the caller's thread. After a stop that failed, the
    /// earlier thread may still run.
    /// @return what is not `Success` ends the start and is returned from there.
    virtual StatusCode PrepareToListen() = 0;

    /// Body of the server thread. Creates the sockets, sets `startup` exactly once on every path and does not touch
    /// it afterwards, serves when that was `Success` and calls `ReleasePendingSubscriber` when it was not, and closes
    /// every socket before it returns.
    /// @param startup what `StartListening` waits for; gone soon after it was set.
    virtual void CreateSocketsAndRunServer(std::promise<StatusCode>& startup) = 0;

    // What it uses there, on the server thread.

    /// Creates the socket that is readable when the server is to stop.
    /// @param[out] socket set when it was created, also when a later step fails; the caller closes it.
    /// @return `Success`, or the ZeroMQ call's failure.
    StatusCode CreateControlSocket(void** socket);

    /// Creates a `ZMQ_DEALER` that presents `identity` at the endpoint, and a socket that tells when it is connected.
    /// @param[out] frontEnd,monitor each set when it was created, also when a later step fails; the caller closes them.
    /// @param identity unique at the endpoint.
    /// @return `Success`, `Failure` when the connection can't be watched, or the ZeroMQ call's failure.
    StatusCode CreateFrontEndSocket(void** frontEnd, void** monitor, const std::string& identity);

    /// Makes ZeroMQ let go of the control socket of a start that failed. Call it before that socket is closed.
    /// @param control what `CreateControlSocket` has stored; may be null.
    void ReleasePendingSubscriber(void* control);

    /// Lets no connection of a front-end freeze the context once its monitor has gone. Call it before they are closed.
    /// @param frontEnd what `CreateFrontEndSocket` has stored; may be null.
    static void SwitchOffMonitor(void* frontEnd);

    /// Takes one event and registers when the connection stands. Blocks unless `monitor` is readable, and while ZeroMQ
    /// can't queue the registration.
    /// @param monitor the front-end's monitor.
    /// @param frontEnd where the registration is sent.
    /// @param startupMessage the registration; not sent before `SetStartupMessage` was called.
    void ProcessConnectionEvents(void* monitor, void* frontEnd, ByteVector& startupMessage);

    /// Answers requests that are queued, until there is none, a reply can't be queued or the server is to stop.
    /// @param socket a front-end.
    /// @param maxBurst how many at most, so that nothing else that is polled starves.
    void ReadAndProcessBurstOfRequests(void* socket, unsigned short maxBurst);

    /// @cond internal
    // The steps of the operations above.
    StatusCode StartThread();
    void StopProcessingMessages();
    StatusCode CreateSocket(int type, void** socket);
    StatusCode Connect(void* socket, const std::string& endpoint);
    StatusCode Bind(void* socket, const std::string& endpoint);
    static StatusCode SetSocketOpt(void* socket, int option, const void* value, std::size_t size);
    static StatusCode SetSocketIdentity(void* socket, const std::string& identity);
    // `monitor` is set when it was created, also when the connection fails; the caller closes it.
    StatusCode CreateMonitorSocket(void* socket, void** monitor);
    StatusCode SendStartupMessage(void* socket, ByteVector& message);
    bool ProcessAndSendReply(zmq_msg_t* message, int size, void* socket);
    /// @endcond

    std::string mEndpoint;                 ///< as given to the constructor
    std::string mControlEndpoint;          ///< of the server thread, which sets it when it starts
    ByteVector mStartupMessage;            ///< the registration, empty until `SetStartupMessage` is called
    std::string mIdentity;                 ///< as given to the constructor
    std::atomic<bool> mProcessingMessages; ///< false once the server is to stop
    std::thread mServerThread;             ///< touched by the owner only
    void* mContext;                        ///< as given to the constructor
    bool mStartupMessageSet;               ///< whether `SetStartupMessage` was called

private:
    void RunServerThread(std::promise<StatusCode>& startup);
    StatusCode CompleteFailedStop();
    StatusCode TerminateServerThread();
    StatusCode CreatePublisher(void** socket);
    StatusCode SendTerminate(void* publisher);
    void JoinServerThread();

    bool mIsTerminateRefused; // ZeroMQ refused the stop's message: a second one could never arrive
    std::atomic<bool> mHasThreadEnded;
};

} // namespace zeb::tolvo::ipc
