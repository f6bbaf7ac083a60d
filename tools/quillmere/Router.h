#pragma once

#include "quillmere/Message.h"

#include <zmq.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>

namespace zeb::tolvo::desk
{

/// A bound ZeroMQ router. It owns the socket file of an ipc endpoint: ZeroMQ leaves that behind. A tcp peer and it
/// notice within seconds that the other is gone, however silently.
class Router
{
public:
    /// Any file but a socket at an ipc endpoint is left alone; ZeroMQ would replace it.
    /// @throws std::exception that tells of such a file, or why ZeroMQ refuses.
    Router(zmq::context_t& context, const std::string& endpoint);
    ~Router();

    Router(const Router&) = delete;
    Router& operator=(const Router&) = delete;

    /// @return whether binding `endpoint` would take this router's socket file away.
    bool IsAt(const std::string& endpoint) const;

    zmq::pollitem_t MakePollItem() { return {mSocket.handle(), 0, ZMQ_POLLIN, 0}; }

    /// @return nothing when no message waits.
    std::optional<Message> Receive();

    /// Sends one frame without waiting.
    /// @return 0, or the error number when it can't be sent now.
    int Send(std::string_view receiver, zmq::message_t body);

private:
    using FileId = std::pair<dev_t, ino_t>;

    static FileId Identify(const std::string& path);

    std::string mPath; // empty when the transport is not ipc
    FileId mFile;
    zmq::socket_t mSocket;
};

} // namespace zeb::tolvo::desk
