#pragma once

#include <zeromq/Handles.h>
#include <zmq.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace zeb::tolvo::bench
{

/// Directly after a call that sets `errno`.
/// @throws std::runtime_error that tells why it was not done.
inline void Require(bool isDone, const char* call)
{
    if (!isDone) throw std::runtime_error(std::string(call) + ": " + zmq_strerror(zmq_errno()));
}

struct ContextEnder
{
    void operator()(void* context) const noexcept { zmq_ctx_term(context); }
};

using Context = std::unique_ptr<void, ContextEnder>;

inline ZmqSocket MakeSocket(void* context, int type)
{
    ZmqSocket socket(zmq_socket(context, type));
    Require(socket.Get() != nullptr, "zmq_socket");
    return socket;
}

inline ZmqSocket MakeConnected(void* context, int type, const std::string& endpoint)
{
    ZmqSocket socket = MakeSocket(context, type);
    Require(zmq_connect(socket.Get(), endpoint.c_str()) == 0, "zmq_connect");
    return socket;
}

inline ZmqSocket MakeBound(void* context, int type, const std::string& endpoint)
{
    ZmqSocket socket = MakeSocket(context, type);
    Require(zmq_bind(socket.Get(), endpoint.c_str()) == 0, "zmq_bind");
    return socket;
}

inline void SetOption(const ZmqSocket& socket, int option, int value)
{
    Require(zmq_setsockopt(socket.Get(), option, &value, sizeof value) == 0, "zmq_setsockopt");
}

} // namespace zeb::tolvo::bench
