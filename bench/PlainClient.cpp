#include "PlainClient.h"

#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace zeb::tolvo::bench
{

namespace
{

bool Receive(void* socket, ByteVector& response)
{
    Frame frame;
    const int size = zmq_msg_recv(frame.Get(), socket, 0);
    if (size < 0) return false;
    response.assign(frame.Data(), frame.Data() + size);
    return true;
}

} // namespace

PlainClient::PlainClient(void* context, const std::string& endpoint)
    : mSocket(MakeConnected(context, ZMQ_DEALER, endpoint))
{
    constexpr int kLingerMs = 2000;
    Require(zmq_setsockopt(mSocket.get(), ZMQ_LINGER, &kLingerMs, sizeof kLingerMs) == 0, "zmq_setsockopt");
}

bool PlainClient::SendRequest(const ByteVector& request, ByteVector& response, int timeout)
{
    if (zmq_send(mSocket.get(), request.data(), request.size(), 0) < 0) return false;
    zmq_pollitem_t item = PollIn(mSocket);
    return zmq_poll(&item, 1, timeout) > 0 && Receive(mSocket.get(), response);
}

PlainDealerClient::PlainDealerClient(void* context, std::string endpoint, std::string interruptEndpoint)
    : mContext(context), mEndpoint(std::move(endpoint)), mInterruptEndpoint(std::move(interruptEndpoint))
{
}

bool PlainDealerClient::SendRequest(const ByteVector& request, ByteVector& response, int timeout)
{
    const Socket interrupt = MakeConnected(mContext, ZMQ_SUB, mInterruptEndpoint);
    if (zmq_setsockopt(interrupt.get(), ZMQ_SUBSCRIBE, "", 0) < 0) return false;
    const Socket requester = MakeConnected(mContext, ZMQ_DEALER, mEndpoint);
    if (zmq_send(requester.get(), request.data(), request.size(), 0) < 0) return false;

    zmq_pollitem_t items[] = {PollIn(requester), PollIn(interrupt)};
    if (zmq_poll(items, 2, timeout) <= 0) return false;
    if (IsReadable(items[0]) && !Receive(requester.get(), response)) return false;
    return !IsReadable(items[1]);
}

PlainFifo::PlainFifo() { Require(pipe2(mPipe, O_NONBLOCK) == 0, "pipe2"); }

PlainFifo::~PlainFifo()
{
    close(mPipe[0]);
    close(mPipe[1]);
}

void PlainFifo::Push(const ByteVector& response)
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mResponses.push_back(response);
    }
    static_cast<void>(!write(mPipe[1], "1", 1)); // a full pipe is readable all the same
}

ByteVector PlainFifo::Pop()
{
    char byte = 0;
    static_cast<void>(!read(mPipe[0], &byte, 1));
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mResponses.empty()) return {};
    ByteVector response = std::move(mResponses.front());
    mResponses.pop_front();
    return response;
}

} // namespace zeb::tolvo::bench
