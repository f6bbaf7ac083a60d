#pragma once

#include <ipc/ByteVector.h>
#include <ipc/OperatingModeInterface.h>

#include <tolvo/StatusCode.h>

#include <gtest/gtest.h>
#include <zmq.hpp>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace ipc = zeb::tolvo::ipc;
using ipc::ByteVector;
using zeb::tolvo::MakeStatusCodeFromErrno;
using zeb::tolvo::StatusCode;
using Lines = std::vector<std::string>;

constexpr int kPatience = 10'000; // ms that a correct program never needs

inline ByteVector Bytes(const std::string& text) { return {text.begin(), text.end()}; }

inline std::string Text(const ByteVector& bytes) { return {bytes.begin(), bytes.end()}; }

/// A folder of its own for socket files, removed at the end.
struct TempFolder
{
    TempFolder()
    {
        if (mkdtemp(mPath.data()) == nullptr) throw std::runtime_error("mkdtemp");
    }

    ~TempFolder() { std::filesystem::remove_all(mPath); }

    std::string Path(const std::string& name) const { return mPath + "/" + name; }

    std::string Endpoint(const std::string& name) const { return "ipc://" + Path(name); }

private:
    std::string mPath = std::filesystem::temp_directory_path() / "tolvo-ipc-XXXXXX";
};

/// @return whether the condition has become true in time.
template <typename Condition>
bool Await(Condition isTrue)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatience);
    while (!isTrue() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return isTrue();
}

/// Expects as many open descriptors at its end as at its start, and awaits them: ZeroMQ closes sockets on a thread of
/// its own.
struct DescriptorsComeBack
{
    ~DescriptorsComeBack()
    {
        Await([&] { return Open() == before; });
        EXPECT_EQ(Open(), before);
    }

    static std::ptrdiff_t Open() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

    const std::ptrdiff_t before = Open();
};

/// A host that lets its clients wait unless told otherwise.
struct OperatingMode : ipc::OperatingModeInterface
{
    bool IsBlockingForbidden() override { return isForbidden; }

    bool isForbidden = false;
};

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

    /// The next message as "frame|frame|...", or "nothing" when none comes in time.
    std::string Receive()
    {
        std::string frames;
        zmq::message_t frame;
        do {
            if (!recv(frame)) return "nothing";
            frames += (frames.empty() ? "" : "|") + frame.to_string();
        } while (frame.more());
        return frames;
    }
};
