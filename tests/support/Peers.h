#pragma once

#include <ipc/ByteVector.h>
#include <ipc/OperatingModeInterface.h>

#include <tolvo/StatusCode.h>

#include <zmq.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace ipc = zeb::tolvo::ipc;
using ipc::ByteVector;
using zeb::tolvo::MakeStatusCodeFromErrno;
using zeb::tolvo::StatusCode;

constexpr int kPatience = 10'000; // ms that a correct program never needs

ByteVector Bytes(const std::string& text);
std::string Text(const ByteVector& bytes);

/// A folder of its own for socket files, removed at the end.
class TempFolder
{
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string Path(const std::string& name) const { return (mPath / name).string(); }

    std::string Endpoint(const std::string& name) const { return "ipc://" + Path(name); }

private:
    std::filesystem::path mPath;
};

/// Awaits until the process has `count` open descriptors again: ZeroMQ closes sockets on a thread of its own.
/// @return the number of descriptors, which differs from `count` when they have not come back in time.
std::size_t AwaitDescriptors(std::size_t count);
std::size_t OpenDescriptors();

/// A host that lets its clients wait unless told otherwise.
struct OperatingMode : ipc::OperatingModeInterface
{
    bool IsBlockingForbidden() override { return isForbidden; }

    bool isForbidden = false;
};

/// The registration service's end of a server: a bound ZMQ_ROUTER.
class RouterPeer
{
public:
    explicit RouterPeer(const std::string& endpoint);

    /// Sends the bodies as the frames of one message.
    template <typename... Bodies>
    void Send(const std::string& identity, const Bodies&... bodies)
    {
        SendFrames({identity, bodies...});
    }

    /// The next message as "identity|body|...", or "nothing" when none comes in time.
    std::string Receive();

private:
    void SendFrames(const std::vector<std::string>& frames);

    zmq::context_t mContext;
    zmq::socket_t mSocket{mContext, zmq::socket_type::router};
};
