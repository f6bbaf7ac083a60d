#pragma once

#include <zmq.hpp>

#include <cstddef>
#include <cstdint>

namespace zeb::tolvo::desk
{

/// What a router has received.
struct Message
{
    zmq::message_t sender;
    zmq::message_t body;          ///< the first frame after the sender's; the others are not kept
    std::size_t frames = 0;       ///< number of frames after the sender's
    std::uint64_t connection = 0; ///< the number that it was let in with; 0 when it had none
};

} // namespace zeb::tolvo::desk
