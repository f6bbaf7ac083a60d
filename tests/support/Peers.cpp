#include "support/Peers.h"

#include <chrono>
#include <stdexcept>
#include <thread>
#include <unistd.h>

ByteVector Bytes(const std::string& text) { return {text.begin(), text.end()}; }

std::string Text(const ByteVector& bytes) { return {bytes.begin(), bytes.end()}; }

TempFolder::TempFolder()
{
    std::string path = (std::filesystem::temp_directory_path() / "tolvo-ipc-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("mkdtemp");
    mPath = path;
}

TempFolder::~TempFolder() { std::filesystem::remove_all(mPath); }

std::size_t OpenDescriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

std::size_t AwaitDescriptors(std::size_t count)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatience);
    while (OpenDescriptors() != count && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return OpenDescriptors();
}

RouterPeer::RouterPeer(const std::string& endpoint)
{
    mSocket.set(zmq::sockopt::router_handover, true);
    mSocket.set(zmq::sockopt::router_mandatory, true);
    mSocket.set(zmq::sockopt::linger, 0);
    mSocket.set(zmq::sockopt::sndhwm, 0);
    mSocket.set(zmq::sockopt::rcvtimeo, kPatience);
    mSocket.bind(endpoint);
}

void RouterPeer::SendFrames(const std::vector<std::string>& frames)
{
    for (const std::string& frame : frames)
    {
        const bool isLast = &frame == &frames.back();
        mSocket.send(zmq::buffer(frame), isLast ? zmq::send_flags::none : zmq::send_flags::sndmore);
    }
}

std::string RouterPeer::Receive()
{
    std::string frames;
    zmq::message_t frame;
    do {
        if (!mSocket.recv(frame)) return "nothing";
        frames += (frames.empty() ? "" : "|") + frame.to_string();
    } while (frame.more());
    return frames;
}
