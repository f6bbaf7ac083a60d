#pragma once

#include "Zmq.h"

#include <ipc/ByteVector.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

namespace zeb::tolvo::bench
{

using ipc::ByteVector;

/// Where the two ends of a case meet. Over ipc each end has a context of its own, as two processes have.
class Wiring
{
public:
    /// @param transport "ipc" or "inproc"
    explicit Wiring(const std::string& transport);
    ~Wiring();

    Wiring(const Wiring&) = delete;
    Wiring& operator=(const Wiring&) = delete;

    bool IsIpc() const { return mTransport == "ipc"; }

    void* GetConnectorContext() const { return mConnectors.get(); }

    void* GetPeerContext() const { return IsIpc() ? mPeers.get() : mConnectors.get(); }

    std::string Path(const std::string& name) const { return (mFolder / name).string(); }

    std::string Endpoint(const std::string& name) const { return mTransport + "://" + Path(name); }

private:
    std::string mTransport;
    std::filesystem::path mFolder;
    Context mConnectors;
    Context mPeers;
};

/// The plain peer of servers: a router, as the registration service has one, that sends requests.
class Caller
{
public:
    Caller(void* context, const std::string& endpoint);

    /// Over ipc a server announces itself; over inproc there is no such event, and it is tried until it is there.
    void AwaitServer(const Wiring& wiring, const std::string& identity);

    /// Sends `body` without copying it: it must stay until it has arrived.
    void Send(const std::string& identity, const ByteVector& body);

    /// @return whether a reply can be received, within `patience`.
    bool IsReplyThere(std::chrono::milliseconds patience);

    /// Awaits a reply.
    /// @return valid until the next one.
    /// @throws std::runtime_error when none comes.
    Frame& Receive();

    /// Sends `body` and awaits it as the reply.
    void Exchange(const std::string& identity, const ByteVector& body);

private:
    bool TrySend(const std::string& identity, const ByteVector& body);

    Socket mRouter;
    Frame mFrame;
};

/// The plain peer of clients: sends every request back as its reply, without copying it.
class EchoPeer
{
public:
    EchoPeer(void* context, const std::string& endpoint);

    /// Ends the use of the context: no other socket of it may be needed any more.
    ~EchoPeer();

    EchoPeer(const EchoPeer&) = delete;
    EchoPeer& operator=(const EchoPeer&) = delete;

private:
    void* mContext;
    Socket mRouter; // used by the thread until it is joined
    std::thread mThread;
};

/// The desk registration service on a thread of its own.
class DeskService
{
public:
    DeskService(const std::string& servers, const std::string& clients);
    ~DeskService();

    DeskService(const DeskService&) = delete;
    DeskService& operator=(const DeskService&) = delete;

private:
    int mStop[2] = {-1, -1}; // a pipe that is readable once the service must end
    std::thread mThread;
};

} // namespace zeb::tolvo::bench
