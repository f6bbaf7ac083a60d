#pragma once

#include "support/Basics.h"

#include <zmq.hpp>

/// A bound socket opposite the library's, with room for every message.
struct Peer : zmq::socket_t
{
    Peer(zmq::context_t& context, zmq::socket_type type, const std::string& endpoint) : socket_t(context, type)
    {
        if (type == zmq::socket_type::router) set(zmq::sockopt::router_handover, true);
        set(zmq::sockopt::linger, 0);
        set(zmq::sockopt::sndhwm, 0);
        set(zmq::sockopt::rcvhwm, 0);
        set(zmq::sockopt::rcvtimeo, kPatience);
        bind(endpoint);
    }

    /// Sends the frames of one message; a router's first is the identity of the receiver.
    void Send(const Lines& frames)
    {
        for (const std::string& frame : frames)
            send(zmq::buffer(frame), &frame == &frames.back() ? zmq::send_flags::none : zmq::send_flags::sndmore);
    }

    /// The next message as "frame|frame|...". None in time ends the test.
    std::string Receive()
    {
        std::string frames;
        zmq::message_t frame;
        do {
            const bool hasCome = recv(frame).has_value();
            [&] { ASSERT_TRUE(hasCome) << "no message in time"; }();
            frames += (frames.empty() ? "" : "|") + frame.to_string();
        } while (frame.more());
        return frames;
    }
};
