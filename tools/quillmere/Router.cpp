#include "quillmere/Router.h"

#include "quillmere/Lines.h"

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace zeb::tolvo::desk
{

namespace
{

bool HasTransport(const std::string& endpoint, std::string_view transport)
{
    return endpoint.compare(0, transport.size(), transport) == 0;
}

/// @return empty when the transport is not ipc.
std::string PathOf(const std::string& endpoint)
{
    constexpr std::string_view kIpc = "ipc://";
    return HasTransport(endpoint, kIpc) ? endpoint.substr(kIpc.size()) : std::string();
}

/// A tcp peer whose machine or link has gone sends no sign of it, and one that only waits for requests would never
/// look. These make both ends look: a peer closes a connection on which nothing came for the time to live, and connects
/// anew.
void SendHeartbeats(zmq::socket_t& socket)
{
    constexpr int kIntervalMs = 1000;
    constexpr int kTimeoutMs = 2000;
    constexpr int kTimeToLiveMs = 3000;
    socket.set(zmq::sockopt::heartbeat_ivl, kIntervalMs);
    socket.set(zmq::sockopt::heartbeat_timeout, kTimeoutMs);
    socket.set(zmq::sockopt::heartbeat_ttl, kTimeToLiveMs);
}

} // namespace

Router::Router(zmq::context_t& context, const std::string& endpoint)
    : mPath(PathOf(endpoint)), mSocket(context, zmq::socket_type::router)
{
    std::error_code ignored;
    const auto status = std::filesystem::symlink_status(mPath, ignored);
    if (exists(status) && !is_socket(status)) throw std::runtime_error(Quote(mPath) + " exists and is no socket");

    mSocket.set(zmq::sockopt::router_handover, true); // a restarted peer takes its identity back
    mSocket.set(zmq::sockopt::router_mandatory, true);
    mSocket.set(zmq::sockopt::linger, 0);
    if (HasTransport(endpoint, "tcp://")) SendHeartbeats(mSocket);
    try
    {
        mSocket.bind(endpoint);
    }
    catch (const zmq::error_t& error)
    {
        throw std::runtime_error("can't bind " + Quote(endpoint) + ": " + error.what());
    }
    mFile = Identify(mPath);
}

Router::~Router()
{
    // Another process may have bound the endpoint since.
    if (IsAt("ipc://" + mPath)) unlink(mPath.c_str());
}

bool Router::IsAt(const std::string& endpoint) const
{
    const FileId file = Identify(PathOf(endpoint));
    return file != FileId() && file == mFile;
}

std::optional<Message> Router::Receive()
{
    Message message;
    if (!mSocket.recv(message.sender, zmq::recv_flags::dontwait)) return std::nullopt;

    // All frames of a message arrive together, so none of these waits.
    for (bool isMore = message.sender.more(); isMore; ++message.frames)
    {
        zmq::message_t frame;
        static_cast<void>(mSocket.recv(frame));
        isMore = frame.more();
        if (message.frames == 0) message.body = std::move(frame);
    }
    return message;
}

int Router::Send(std::string_view receiver, zmq::message_t body)
{
    constexpr auto kNow = zmq::send_flags::dontwait;
    try
    {
        if (!mSocket.send(zmq::buffer(receiver), kNow | zmq::send_flags::sndmore)) return EAGAIN;
        return mSocket.send(body, kNow) ? 0 : EAGAIN;
    }
    catch (const zmq::error_t& error)
    {
        return error.num();
    }
}

/// @return all zero when there is no such file.
Router::FileId Router::Identify(const std::string& path)
{
    struct stat file = {};
    return lstat(path.c_str(), &file) == 0 ? FileId(file.st_dev, file.st_ino) : FileId();
}

} // namespace zeb::tolvo::desk
