#pragma once

#include "Ways.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// What the connectors under test talk to.

namespace zeb::tolvo::bench
{

/// Where the two ends of a case meet. Over ipc each end has a context of its own, as two processes have.
class Wiring
{
public:
    /// @param transport "ipc" or "inproc"
    explicit Wiring(const std::string& transport) : mTransport(transport), mPeers(IsIpc() ? zmq_ctx_new() : nullptr)
    {
        std::string path = (std::filesystem::temp_directory_path() / "tolvo-bench-XXXXXX").string();
        Require(mkdtemp(path.data()) != nullptr, "mkdtemp");
        mFolder = path;
    }

    ~Wiring() { std::filesystem::remove_all(mFolder); }

    bool IsIpc() const { return mTransport == "ipc"; }

    void* GetConnectorContext() const { return mConnectors.get(); }

    void* GetPeerContext() const { return IsIpc() ? mPeers.get() : mConnectors.get(); }

    std::string Path(const std::string& name) const { return (mFolder / name).string(); }

    std::string Endpoint(const std::string& name) const { return mTransport + "://" + Path(name); }

private:
    std::string mTransport;
    std::filesystem::path mFolder;
    Context mConnectors{zmq_ctx_new()};
    Context mPeers;
};

inline ZmqSocket MakeRouter(void* context, const std::string& endpoint)
{
    ZmqSocket router = MakeBound(context, ZMQ_ROUTER, endpoint);
    SetOption(router, ZMQ_ROUTER_MANDATORY, 1);
    SetOption(router, ZMQ_LINGER, 0);
    return router;
}

/// The plain peer of servers: a router, as the registration service has one, that sends requests.
class Caller
{
public:
    Caller(void* context, const std::string& endpoint) : mRouter(MakeRouter(context, endpoint))
    {
        constexpr int kPatienceMs = 10'000;
        SetOption(mRouter, ZMQ_RCVTIMEO, kPatienceMs);
    }

    /// Sends `body` without copying it: it must stay until it has arrived.
    /// @return whether the server is there.
    bool TrySend(const std::string& identity, const ByteVector& body)
    {
        if (zmq_send(mRouter.Get(), identity.data(), identity.size(), ZMQ_SNDMORE) < 0)
        {
            Require(zmq_errno() == EHOSTUNREACH, "zmq_send");
            return false;
        }
        Require(zmq_send_const(mRouter.Get(), body.data(), body.size(), 0) >= 0, "zmq_send_const");
        return true;
    }

    void Send(const std::string& identity, const ByteVector& body) { Require(TrySend(identity, body), "the server"); }

    /// @return whether a reply can be received, within `patience`.
    bool IsReplyThere(std::chrono::milliseconds patience)
    {
        zmq_pollitem_t item = PollIn(mRouter.Get());
        return zmq_poll(&item, 1, static_cast<long>(patience.count())) > 0;
    }

    /// Awaits a reply.
    /// @return valid until the next one.
    /// @throws std::runtime_error when none comes.
    ZmqMessage& Receive()
    {
        Require(mFrame.Receive(mRouter.Get(), 0) >= 0, "no reply");
        Require(mFrame.Receive(mRouter.Get(), 0) >= 0, "no reply");
        return mFrame;
    }

    /// Sends `body` and awaits it as the reply.
    void Exchange(const std::string& identity, const ByteVector& body)
    {
        Send(identity, body);
        if (Receive().Size() != body.size()) throw std::runtime_error("a reply of another size");
    }

private:
    ZmqSocket mRouter;
    ZmqMessage mFrame;
};

/// The plain peer of clients: sends every request back as its reply, without copying it.
class EchoPeer
{
public:
    EchoPeer(void* context, const std::string& endpoint) : mContext(context), mRouter(MakeRouter(context, endpoint)) {}

    /// Ends the use of the context: no other socket of it may be needed any more.
    ~EchoPeer()
    {
        zmq_ctx_shutdown(mContext);
        mThread.join();
    }

private:
    static void SendBackEverything(void* router)
    {
        ZmqMessage sender;
        ZmqMessage body;
        while (sender.Receive(router, 0) >= 0 && body.Receive(router, 0) >= 0)
        {
            // A dealer client may have gone; its lost reply is no failure.
            if (zmq_msg_send(sender.Get(), router, ZMQ_SNDMORE) < 0) continue;
            Require(zmq_msg_send(body.Get(), router, 0) >= 0, "zmq_msg_send");
        }
    }

    void* mContext;
    ZmqSocket mRouter; // used by the thread until it is joined
    std::thread mThread{SendBackEverything, mRouter.Get()};
};

/// Servers under test and the plain router that they have connected to.
template <typename Way>
class Servers
{
public:
    explicit Servers(const std::string& transport, std::size_t count = 0, Handler handler = Echo,
                     ServerType type = ServerType::OnePriority)
        : mWiring(transport), mHandler(std::move(handler)), mType(type)
    {
        while (Count() < count) Add();
    }

    /// Stops them at the same time, for a stop takes half a second.
    ~Servers()
    {
        std::vector<std::future<void>> stops;
        for (auto& server : mServers) stops.push_back(std::async(std::launch::async, [&] { server.reset(); }));
    }

    void Add()
    {
        mIdentities.push_back("server-" + std::to_string(Count()));
        mServers.push_back(std::make_unique<typename Way::Server>(
            mWiring.GetConnectorContext(), mWiring.Endpoint("servers"), mIdentities.back(), mHandler, mType));
        Await(mIdentities.back());
        if (mType == ServerType::TwoPriorities) Await(mIdentities.back() + "RT");
    }

    std::size_t Count() const { return mServers.size(); }

    typename Way::Server& Last() { return *mServers.back(); }

    Caller& GetCaller() { return mCaller; }

    const std::string& Identity(std::size_t server = 0) const { return mIdentities[server]; }

    void Exchange(const ByteVector& body, std::size_t server = 0) { mCaller.Exchange(Identity(server), body); }

private:
    /// Over ipc a server announces itself; over inproc there is no such event, and it is tried until it is there.
    void Await(const std::string& identity)
    {
        static const ByteVector kNothing;
        // Looking for replies makes the router take note of new connections; sending alone does so once in a while.
        while (!mWiring.IsIpc() && !mCaller.TrySend(identity, kNothing))
            mCaller.IsReplyThere(std::chrono::milliseconds(0));
        mCaller.Receive();
    }

    Wiring mWiring;
    Caller mCaller{mWiring.GetPeerContext(), mWiring.Endpoint("servers")};
    Handler mHandler;
    ServerType mType;
    std::vector<std::string> mIdentities;
    std::vector<std::unique_ptr<typename Way::Server>> mServers;
};

} // namespace zeb::tolvo::bench
