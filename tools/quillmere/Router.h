#pragma once

#include "quillmere/Message.h"
#include "quillmere/SocketFile.h"

#include <zmq.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zeb::tolvo::desk
{

/// A bound ZeroMQ router. It owns the socket file of an ipc endpoint. A tcp peer and it notice within seconds that the
/// other is gone, however silently.
class Router
{
public:
    /// @param domain `Connections::kDomain`, or empty.
    /// @throws std::exception that tells why the endpoint can't be bound, or not for `access` alone.
    Router(zmq::context_t& context, const std::string& endpoint, const std::optional<Access>& access,
           const std::string& domain = {});

    /// Binds the endpoint again when its socket file has gone; connections of before are closed.
    /// @return whether it has.
    /// @throws std::exception that tells why it can't; the next call tries again.
    bool Restore();

    zmq::pollitem_t MakePollItem() { return {mSocket.handle(), 0, ZMQ_POLLIN, 0}; }

    /// @return nothing when no message waits.
    std::optional<Message> Receive();

    /// Sends one frame without waiting.
    /// @return 0, or the error number when it can't be sent now.
    int Send(std::string_view receiver, zmq::message_t body);

private:
    void Bind(std::unique_ptr<SocketFile> file);

    std::string mEndpoint;
    std::optional<Access> mAccess;
    zmq::socket_t mSocket;
    std::unique_ptr<SocketFile> mFile; // null when the endpoint has none; goes before the socket closes
};

} // namespace zeb::tolvo::desk
