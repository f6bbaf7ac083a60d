#pragma once

#include "support/CapturedLog.h"
#include "support/Faults.h"
#include "support/Peers.h"

#include <ipc/ZmqClientConnector.h>
#include <ipc/ZmqClientDealerConnector.h>
#include <ipc/ZmqServerSequentialOnePriority.h>
#include <ipc/ZmqServerSequentialTwoPriorities.h>

const std::string kService = "inproc://service";
const std::string kInterrupt = "inproc://interrupt";

/// A server whose protected operations a test drives one by one. Its thread has to be joined by the test.
template <typename Server>
struct Exposed : Server
{
    using Server::Server;

    using Server::ProcessConnectionEvents, Server::ReadAndProcessBurstOfRequests, Server::RunServer,
        Server::StopProcessingMessages, Server::mControlEndpoint, Server::mServerThread;
};

using OnePriority = Exposed<ipc::ZmqServerSequentialOnePriority>;
using TwoPriorities = Exposed<ipc::ZmqServerSequentialTwoPriorities>;

struct DealerClient : ipc::ZmqClientDealerConnector
{
    using ZmqClientDealerConnector::WaitForResponse, ZmqClientDealerConnector::ZmqClientDealerConnector;
};

/// Both ends of a socket of a server's.
struct Wire
{
    Wire(zmq::context_t& context, const std::string& endpoint)
        : outside{context, zmq::socket_type::dealer, endpoint}, inside{context, zmq::socket_type::dealer}
    {
        inside.connect(endpoint);
    }

    void Queue(std::size_t count, const std::string& body)
    {
        while (count-- > 0) outside.Send({body});
    }

    void QueueEvent(std::uint16_t id)
    {
        outside.Send({std::string(reinterpret_cast<const char*>(&id), sizeof id), "address"});
    }

    bool IsEmpty() { return (inside.get(zmq::sockopt::events) & ZMQ_POLLIN) == 0; }

    Peer outside;
    zmq::socket_t inside;
};

/// Takes all frames that wait at a socket.
inline Lines Drain(zmq::socket_t& socket)
{
    Lines frames;
    for (zmq::message_t frame; socket.recv(frame, zmq::recv_flags::dontwait);) frames.push_back(frame.to_string());
    return frames;
}

/// Clients opposite a service, and servers whose sockets belong to the test.
struct World
{
    World()
    {
        subscriber.connect(kInterrupt);
        subscriber.set(zmq::sockopt::subscribe, "");
    }

    ~World() { faults::Reset(); }

    StatusCode Send(const std::string& body = "r", int timeout = 0)
    {
        return persistent.SendRequest(Bytes(body), response, timeout);
    }

    StatusCode Await() { return dealer.WaitForResponse(frontEnd.inside.handle(), subscriber.handle(), response, 0); }

    Wire& Burst(unsigned short limit)
    {
        one.ReadAndProcessBurstOfRequests(frontEnd.inside.handle(), limit);
        return frontEnd;
    }

    Wire& ProcessEvent()
    {
        ByteVector registration = Bytes("registration");
        one.ProcessConnectionEvents(monitor.inside.handle(), frontEnd.inside.handle(), registration);
        return monitor;
    }

    CapturedLog log;
    OperatingMode mode;
    zmq::context_t context;
    Peer service{context, zmq::socket_type::dealer, kService};
    Peer interrupter{context, zmq::socket_type::pub, kInterrupt};
    zmq::socket_t subscriber{context, zmq::socket_type::sub};
    Wire frontEnd{context, "inproc://front-end"};
    Wire monitor{context, "inproc://monitor"};
    ipc::ZmqClientConnector persistent{kService, mode, context.handle()};
    DealerClient dealer{context.handle(), kService, kInterrupt};
    OnePriority one{kService, context.handle(), "id"};
    TwoPriorities two{kService, context.handle(), "id"};
    ByteVector response = Bytes("untouched");
};
