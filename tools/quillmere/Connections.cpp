#include "quillmere/Connections.h"

#include <array>
#include <cstdlib>
#include <string_view>
#include <sys/socket.h>

namespace zeb::tolvo::desk
{

namespace
{

const char* Property(const zmq::message_t& message, const char* name)
{
    const char* const value = zmq_msg_gets(message.handle(), name);
    return value == nullptr ? "" : value;
}

} // namespace

Connections::Connections(zmq::context_t& context) : mSocket(context, zmq::socket_type::rep)
{
    mSocket.bind("inproc://zeromq.zap.01");
}

void Connections::LetIn(const std::function<std::uint64_t()>& giveNumber)
{
    zmq::message_t version;
    while (mSocket.recv(version, zmq::recv_flags::dontwait))
    {
        zmq::message_t id;
        static_cast<void>(mSocket.recv(id));
        for (zmq::message_t rest; mSocket.get(zmq::sockopt::rcvmore);) static_cast<void>(mSocket.recv(rest));

        const std::string number = std::to_string(giveNumber());
        const std::array<std::string_view, 5> frames{version.to_string_view(), id.to_string_view(), "200", "OK",
                                                     number};
        for (const std::string_view frame : frames) mSocket.send(zmq::buffer(frame), zmq::send_flags::sndmore);
        mSocket.send(zmq::message_t(), zmq::send_flags::none); // no further properties
    }
}

std::uint64_t ConnectionOf(const zmq::message_t& message)
{
    constexpr int kDecimal = 10;
    return std::strtoull(Property(message, "User-Id"), nullptr, kDecimal);
}

std::string PeerOf(const Message& message)
{
    // Over ipc ZeroMQ gives "localhost:", the numbers of the user, of the group and of the process.
    const std::string address = Property(message.body, "Peer-Address");
    const std::size_t colon = address.rfind(':');
    const bool isLocal = address.compare(0, 10, "localhost:") == 0;
    return isLocal ? "process " + address.substr(colon + 1) : address;
}

void CloseConnectionOf(const Message& message)
{
    // Another connection may have the descriptor by now; that one then connects again. A listener must not be shut
    // down.
    const int descriptor = zmq_msg_get(message.body.handle(), ZMQ_SRCFD);
    int isListening = 0;
    socklen_t size = sizeof isListening;
    if (getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &isListening, &size) == 0 && isListening == 0)
        shutdown(descriptor, SHUT_RDWR);
}

} // namespace zeb::tolvo::desk
