#pragma once

#include "Zmq.h"

#include <ipc/ByteVector.h>
#include <ipc/ServerType.h>

#include <atomic>
#include <functional>
#include <future>
#include <string>
#include <thread>

namespace zeb::tolvo::bench
{

using ipc::ByteVector;
using ipc::ServerType;
using Handler = std::function<void(const ByteVector& request, ByteVector& response)>;

/// The library's servers written with ZeroMQ alone, as a service would that needs no error handling, log or subclass:
/// the same sockets, poll set, thread and bursts, and a vector each for the request and the response.
class PlainServer
{
public:
    /// Serves when it returns.
    PlainServer(void* context, std::string endpoint, std::string identity, Handler handler, ServerType type);

    ~PlainServer() { Stop(); }

    PlainServer(const PlainServer&) = delete;
    PlainServer& operator=(const PlainServer&) = delete;

    /// Takes the half second of the library's stop.
    void Stop();

private:
    struct FrontEnd // the socket closes first
    {
        Socket monitor;
        Socket socket;
        std::string registration;
    };

    void Run(std::promise<void>& isReady);
    void ServeOnePriority(const FrontEnd& ordinary, const Socket& control);
    void ServeTwoPriorities(const FrontEnd& ordinary, const FrontEnd& urgent, const Socket& control);
    FrontEnd MakeFrontEnd(const std::string& identity, const std::string& address);
    void AnswerBurst(void* socket, int most);
    static void TakeConnectionEvent(const FrontEnd& frontEnd);

    void* mContext;
    std::string mEndpoint;
    std::string mIdentity; // also the address
    Handler mHandler;
    ServerType mType;
    std::string mControlEndpoint;
    std::atomic<bool> mIsServing{true};
    std::thread mThread;
};

} // namespace zeb::tolvo::bench
