#pragma once

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

struct SocketCloser
{
    void operator()(void* socket) const noexcept { zmq_close(socket); }
};

using Socket = std::unique_ptr<void, SocketCloser>;

inline Socket MakeSocket(void* context, int type)
{
    Socket socket(zmq_socket(context, type));
    Require(socket != nullptr, "zmq_socket");
    return socket;
}

inline Socket MakeConnected(void* context, int type, const std::string& endpoint)
{
    Socket socket = MakeSocket(context, type);
    Require(zmq_connect(socket.get(), endpoint.c_str()) == 0, "zmq_connect");
    return socket;
}

inline Socket MakeBound(void* context, int type, const std::string& endpoint)
{
    Socket socket = MakeSocket(context, type);
    Require(zmq_bind(socket.get(), endpoint.c_str()) == 0, "zmq_bind");
    return socket;
}

inline void SetOption(const Socket& socket, int option, int value)
{
    Require(zmq_setsockopt(socket.get(), option, &value, sizeof value) == 0, "zmq_setsockopt");
}

inline zmq_pollitem_t PollIn(const Socket& socket) { return {socket.get(), 0, ZMQ_POLLIN, 0}; }

inline bool IsReadable(const zmq_pollitem_t& item) { return (item.revents & ZMQ_POLLIN) != 0; }

/// A frame that each receive replaces.
class Frame
{
public:
    Frame() { zmq_msg_init(&mMessage); }

    ~Frame() { zmq_msg_close(&mMessage); }

    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    zmq_msg_t* Get() { return &mMessage; }

    const unsigned char* Data() { return static_cast<const unsigned char*>(zmq_msg_data(&mMessage)); }

    std::size_t Size() const { return zmq_msg_size(&mMessage); }

private:
    zmq_msg_t mMessage;
};

} // namespace zeb::tolvo::bench
