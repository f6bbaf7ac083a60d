#pragma once

#include "quillmere/Message.h"

#include <zmq.hpp>

#include <cstdint>
#include <functional>
#include <string>

namespace zeb::tolvo::desk
{

/// Numbers the connections to a socket: ZeroMQ asks by its authentication protocol (ZAP) before it lets one in, and
/// from then on each message carries what it was told.
class Connections
{
public:
    /// Of a socket whose connections are numbered: its `ZMQ_ZAP_DOMAIN`.
    static constexpr char kDomain[] = "numbered";

    /// Make it before the socket; a context has one.
    explicit Connections(zmq::context_t& context);

    zmq::pollitem_t MakePollItem() { return {mSocket.handle(), 0, ZMQ_POLLIN, 0}; }

    /// Lets in all that wait.
    /// @param giveNumber called for each.
    void LetIn(const std::function<std::uint64_t()>& giveNumber);

private:
    zmq::socket_t mSocket;
};

/// @return the number of the connection that the message came over; 0 when it has none.
std::uint64_t ConnectionOf(const zmq::message_t& message);

/// @return for instance "process 4711", or an address when the transport is tcp.
std::string PeerOf(const Message& message);

/// Closes the connection that the message came over. A ZeroMQ peer connects again.
void CloseConnectionOf(const Message& message);

} // namespace zeb::tolvo::desk
