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

    /// The frames of the next message. None in time ends the test.
    Lines Frames()
    {
        Lines frames;
        zmq::message_t frame;
        do {
            const bool hasCome = recv(frame).has_value();
            [&] { ASSERT_TRUE(hasCome) << "no message in time"; }();
            frames.push_back(frame.to_string());
        } while (frame.more());
        return frames;
    }

    /// The next message as "frame|frame|...".
    std::string Receive()
    {
        std::string joined;
        for (const std::string& frame : Frames()) joined += (joined.empty() ? "" : "|") + frame;
        return joined;
    }

    /// Takes the next request at a router, and sends it back with `more` behind it.
    std::string Answer(const std::string& more = "")
    {
        const Lines request = Frames();
        Send({request.at(0), request.at(1) + more});
        return request.at(1);
    }
};
