#pragma once

#include "support/World.h"

const std::string kTag = "[ipc::ZmqServerConnector] ";

inline void Echo(const ByteVector& request, ByteVector& response) { response = request; }

inline std::string Registration(const std::string& identity, const std::string& address)
{
    return identity + "|" + Registration(address);
}

/// Servers that run, opposite a registration service.
struct ServerThread : testing::Test
{
    ServerThread()
    {
        faults::areSleepsShort = true;
        server.RegisterCallback(Echo);
        server.SetStartupMessage("svc");
    }

    ~ServerThread() override { faults::Reset(); }

    void StartAndRegister()
    {
        ASSERT_EQ(server.StartListening(), StatusCode::Success);
        ASSERT_EQ(service.Receive(), Registration("id", "svc"));
    }

    void Stop() { ASSERT_EQ(server.StopListening(), StatusCode::Success); }

    std::string Exchange(const std::string& body)
    {
        service.Send({"id", body});
        return service.Receive();
    }

    CapturedLog log;
    TempFolder folder;
    const std::string endpoint = folder.Endpoint("servers");
    zmq::context_t outside;
    Peer service{outside, zmq::socket_type::router, endpoint};
    zmq::context_t context;
    zmq::socket_t first{context, zmq::socket_type::pair}; // from here on ZeroMQ's threads have their descriptors
    OnePriority server{endpoint, context.handle(), "id"};
    OnePriority lonely{folder.Endpoint("nobody"), context.handle(), "id"};
};
