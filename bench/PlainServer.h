#pragma once

#include "Zmq.h"

#include <ipc/ByteVector.h>
#include <ipc/ServerType.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

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
    /// @param identity also the address.
    PlainServer(void* context, const std::string& endpoint, const std::string& identity, Handler handler,
                ServerType type)
        : mContext(context), mHandler(std::move(handler))
    {
        std::promise<void> isReady;
        mThread = std::thread([=, &isReady] { Run(endpoint, identity, type, isReady); });
        isReady.get_future().wait();
    }

    ~PlainServer() { Stop(); }

    /// Takes the half second of the library's stop.
    void Stop()
    {
        if (!mThread.joinable()) return;
        mIsServing = false;
        const ZmqSocket publisher = MakeBound(mContext, ZMQ_PUB, mControlEndpoint);
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        Require(zmq_send(publisher.Get(), "TERMINATE", 9, 0) >= 0, "zmq_send");
        mThread.join();
    }

private:
    struct FrontEnd // the socket closes first
    {
        std::string registration;
        int burst;
        ZmqSocket monitor;
        ZmqSocket socket;
    };

    static std::string FreshEndpoint()
    {
        static std::atomic<int> sCounter{0};
        return "inproc://plain/" + std::to_string(sCounter++);
    }

    void Run(const std::string& endpoint, const std::string& identity, ServerType type, std::promise<void>& isReady)
    {
        const bool isUrgentToo = type == ServerType::TwoPriorities;
        const ZmqSocket control = MakeConnected(mContext, ZMQ_SUB, mControlEndpoint);
        Require(zmq_setsockopt(control.Get(), ZMQ_SUBSCRIBE, "", 0) == 0, "zmq_setsockopt");
        std::vector<FrontEnd> frontEnds;
        if (isUrgentToo) frontEnds.push_back(MakeFrontEnd(endpoint, identity + "RT", "RT" + identity, 40));
        frontEnds.push_back(MakeFrontEnd(endpoint, identity, identity, isUrgentToo ? 10 : 100));
        isReady.set_value();

        std::vector<zmq_pollitem_t> items{PollIn(control.Get())};
        for (const FrontEnd& each : frontEnds)
            items.insert(items.end(), {PollIn(each.socket.Get()), PollIn(each.monitor.Get())});
        while (AwaitEvents(items) && !IsReadable(items[0]))
        {
            auto item = items.begin();
            for (const FrontEnd& each : frontEnds)
            {
                if (IsReadable(*++item)) AnswerBurst(each);
                if (IsReadable(*++item)) TakeConnectionEvent(each);
            }
        }
    }

    FrontEnd MakeFrontEnd(const std::string& endpoint, const std::string& identity, const std::string& address,
                          int burst)
    {
        const std::string monitored = FreshEndpoint();
        ZmqSocket socket = MakeSocket(mContext, ZMQ_DEALER);
        Require(zmq_socket_monitor(socket.Get(), monitored.c_str(), ZMQ_EVENT_CONNECTED) == 0, "zmq_socket_monitor");
        ZmqSocket monitor = MakeConnected(mContext, ZMQ_PAIR, monitored);
        Require(zmq_setsockopt(socket.Get(), ZMQ_ROUTING_ID, identity.data(), identity.size()) == 0, "zmq_setsockopt");
        Require(zmq_connect(socket.Get(), endpoint.c_str()) == 0, "zmq_connect");
        return {R"({"address":")" + address + R"(","type":"register"})", burst, std::move(monitor), std::move(socket)};
    }

    static bool AwaitEvents(std::vector<zmq_pollitem_t>& items)
    {
        while (zmq_poll(items.data(), static_cast<int>(items.size()), -1) < 0)
        {
            if (zmq_errno() != EINTR) return false;
        }
        return true;
    }

    void AnswerBurst(const FrontEnd& frontEnd)
    {
        void* const socket = frontEnd.socket.Get();
        ZmqMessage frame;
        for (int received = 0; mIsServing && received < frontEnd.burst; ++received)
        {
            const int size = frame.Receive(socket, ZMQ_DONTWAIT);
            if (size < 0) return;

            const ByteVector request(frame.Data(), frame.Data() + size);
            ByteVector response;
            mHandler(request, response);
            if (zmq_send(socket, response.data(), response.size(), ZMQ_DONTWAIT) < 0) return;
        }
    }

    static void TakeConnectionEvent(const FrontEnd& frontEnd)
    {
        ZmqMessage frame;
        Require(frame.Receive(frontEnd.monitor.Get(), 0) >= 0, "zmq_msg_recv");
        std::uint16_t event = 0;
        std::memcpy(&event, frame.Data(), sizeof event);
        Require(frame.Receive(frontEnd.monitor.Get(), 0) >= 0, "zmq_msg_recv"); // the address
        if (event != ZMQ_EVENT_CONNECTED) return;
        const std::string& registration = frontEnd.registration;
        Require(zmq_send(frontEnd.socket.Get(), registration.data(), registration.size(), 0) >= 0, "zmq_send");
    }

    void* mContext;
    Handler mHandler;
    std::string mControlEndpoint = FreshEndpoint();
    std::atomic<bool> mIsServing{true};
    std::thread mThread;
};

} // namespace zeb::tolvo::bench
