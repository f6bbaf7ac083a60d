#include "quillmere/Router.h"

#include "quillmere/Connections.h"
#include "quillmere/Endpoint.h"
#include "quillmere/Lines.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

namespace zeb::tolvo::desk
{

namespace
{

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

/// @return null when the endpoint has no file.
std::unique_ptr<SocketFile> MakeSocketFile(const std::string& endpoint, const std::optional<Access>& access)
{
    const std::string path = SocketPathOf(endpoint);
    if (!path.empty()) return std::make_unique<SocketFile>(path, access);
    if (access) throw std::runtime_error(Quote(endpoint) + " has no file that could have a mode");
    return nullptr;
}

} // namespace

Router::Router(zmq::context_t& context, const std::string& endpoint, const std::optional<Access>& access,
               const std::string& domain)
    : mEndpoint(endpoint), mAccess(access), mSocket(context, zmq::socket_type::router)
{
    mSocket.set(zmq::sockopt::router_handover, true); // a restarted peer takes its identity back
    mSocket.set(zmq::sockopt::router_mandatory, true);
    mSocket.set(zmq::sockopt::linger, 0);
    if (!domain.empty()) mSocket.set(zmq::sockopt::zap_domain, domain);
    if (IsTcp(endpoint)) SendHeartbeats(mSocket);
    Bind(MakeSocketFile(mEndpoint, mAccess));
}

bool Router::Restore()
{
    if (!mFile || mFile->IsThere()) return false;
    std::unique_ptr<SocketFile> file = MakeSocketFile(mEndpoint, mAccess);
    mSocket.unbind(mSocket.get(zmq::sockopt::last_endpoint));
    Bind(std::move(file));
    return true;
}

void Router::Bind(std::unique_ptr<SocketFile> file)
{
    try
    {
        // ZeroMQ's own bind would remove whatever is at the path.
        if (file) mSocket.set(zmq::sockopt::use_fd, file->ReleaseDescriptor());
        mSocket.bind(mEndpoint);
    }
    catch (const zmq::error_t& error)
    {
        throw std::runtime_error("can't bind " + Quote(mEndpoint) + ": " + error.what());
    }
    mFile = std::move(file);
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
    message.connection = ConnectionOf(message.body);
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

} // namespace zeb::tolvo::desk
