#include "PlainServer.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <utility>

namespace zeb::tolvo::bench
{

namespace
{

constexpr int kBurst = 100;
constexpr int kOrdinaryBurst = 10;
constexpr int kUrgentBurst = 40;

std::string FreshEndpoint(const std::string& kind)
{
    static std::atomic<int> sCounter{0};
    return "inproc://plain/" + kind + "/" + std::to_string(sCounter++);
}

template <std::size_t Count>
bool AwaitEvents(zmq_pollitem_t (&items)[Count])
{
    while (zmq_poll(items, static_cast<int>(Count), -1) < 0)
    {
        if (zmq_errno() != EINTR) return false;
    }
    return true;
}

} // namespace

PlainServer::PlainServer(void* context, std::string endpoint, std::string identity, Handler handler, ServerType type)
    : mContext(context),
      mEndpoint(std::move(endpoint)),
      mIdentity(std::move(identity)),
      mHandler(std::move(handler)),
      mType(type),
      mControlEndpoint(FreshEndpoint("control"))
{
    std::promise<void> isReady;
    mThread = std::thread(&PlainServer::Run, this, std::ref(isReady));
    isReady.get_future().wait();
}

void PlainServer::Stop()
{
    if (!mThread.joinable()) return;
    mIsServing = false;
    const Socket publisher = MakeSocket(mContext, ZMQ_PUB);
    Require(zmq_bind(publisher.get(), mControlEndpoint.c_str()) == 0, "zmq_bind");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    Require(zmq_send(publisher.get(), "TERMINATE", 9, 0) >= 0, "zmq_send");
    mThread.join();
}

void PlainServer::Run(std::promise<void>& isReady)
{
    const Socket control = MakeConnected(mContext, ZMQ_SUB, mControlEndpoint);
    Require(zmq_setsockopt(control.get(), ZMQ_SUBSCRIBE, "", 0) == 0, "zmq_setsockopt");
    const FrontEnd ordinary = MakeFrontEnd(mIdentity, mIdentity);
    if (mType == ServerType::OnePriority)
    {
        isReady.set_value();
        ServeOnePriority(ordinary, control);
        return;
    }
    const FrontEnd urgent = MakeFrontEnd(mIdentity + "RT", "RT" + mIdentity);
    isReady.set_value();
    ServeTwoPriorities(ordinary, urgent, control);
}

void PlainServer::ServeOnePriority(const FrontEnd& ordinary, const Socket& control)
{
    zmq_pollitem_t items[] = {PollIn(ordinary.socket), PollIn(ordinary.monitor), PollIn(control)};
    while (AwaitEvents(items))
    {
        if (IsReadable(items[0])) AnswerBurst(ordinary.socket.get(), kBurst);
        if (IsReadable(items[1])) TakeConnectionEvent(ordinary);
        if (IsReadable(items[2])) return;
    }
}

void PlainServer::ServeTwoPriorities(const FrontEnd& ordinary, const FrontEnd& urgent, const Socket& control)
{
    zmq_pollitem_t items[] = {PollIn(ordinary.socket), PollIn(ordinary.monitor), PollIn(control), PollIn(urgent.socket),
                              PollIn(urgent.monitor)};
    while (AwaitEvents(items))
    {
        if (IsReadable(items[2])) return;
        if (IsReadable(items[3])) AnswerBurst(urgent.socket.get(), kUrgentBurst);
        if (IsReadable(items[0])) AnswerBurst(ordinary.socket.get(), kOrdinaryBurst);
        if (IsReadable(items[1])) TakeConnectionEvent(ordinary);
        if (IsReadable(items[4])) TakeConnectionEvent(urgent);
    }
}

PlainServer::FrontEnd PlainServer::MakeFrontEnd(const std::string& identity, const std::string& address)
{
    const std::string monitored = FreshEndpoint("monitor");
    FrontEnd frontEnd;
    frontEnd.registration = R"({"address":")" + address + R"(","type":"register"})";
    frontEnd.socket = MakeSocket(mContext, ZMQ_DEALER);
    Require(zmq_socket_monitor(frontEnd.socket.get(), monitored.c_str(), ZMQ_EVENT_CONNECTED) == 0,
            "zmq_socket_monitor");
    frontEnd.monitor = MakeConnected(mContext, ZMQ_PAIR, monitored);
    Require(zmq_setsockopt(frontEnd.socket.get(), ZMQ_ROUTING_ID, identity.data(), identity.size()) == 0,
            "zmq_setsockopt");
    Require(zmq_connect(frontEnd.socket.get(), mEndpoint.c_str()) == 0, "zmq_connect");
    return frontEnd;
}

void PlainServer::AnswerBurst(void* socket, int most)
{
    Frame frame;
    for (int received = 0; mIsServing && received < most; ++received)
    {
        const int size = zmq_msg_recv(frame.Get(), socket, ZMQ_DONTWAIT);
        if (size < 0) return;

        const unsigned char* const data = frame.Data();
        const ByteVector request(data, data + size);
        ByteVector response;
        mHandler(request, response);
        if (zmq_send(socket, response.data(), response.size(), ZMQ_DONTWAIT) < 0) return;
    }
}

void PlainServer::TakeConnectionEvent(const FrontEnd& frontEnd)
{
    Frame frame;
    Require(zmq_msg_recv(frame.Get(), frontEnd.monitor.get(), 0) >= 0, "zmq_msg_recv");
    std::uint16_t event = 0;
    std::memcpy(&event, frame.Data(), sizeof event);
    if (event == ZMQ_EVENT_CONNECTED)
    {
        const std::string& registration = frontEnd.registration;
        Require(zmq_send(frontEnd.socket.get(), registration.data(), registration.size(), 0) >= 0, "zmq_send");
    }
    Require(zmq_msg_recv(frame.Get(), frontEnd.monitor.get(), 0) >= 0, "zmq_msg_recv"); // the address
}

} // namespace zeb::tolvo::bench
