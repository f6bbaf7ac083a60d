#pragma once

#include "Zmq.h"

#include <ipc/ByteVector.h>
#include <tolvo/StatusCode.h>

#include <deque>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <unistd.h>
#include <utility>

// The library's clients and its queue of responses, written with ZeroMQ and POSIX alone.

namespace zeb::tolvo::bench
{

using ipc::ByteVector;

inline bool ReceiveFrame(void* socket, ByteVector& response)
{
    ZmqMessage frame;
    const int size = frame.Receive(socket, 0);
    if (size < 0) return false;
    response.assign(frame.Data(), frame.Data() + size);
    return true;
}

class PlainClient
{
public:
    PlainClient(void* context, const std::string& endpoint) : mSocket(MakeConnected(context, ZMQ_DEALER, endpoint))
    {
        SetOption(mSocket, ZMQ_LINGER, 2000);
    }

    StatusCode SendRequest(const ByteVector& request, ByteVector& response, int timeout)
    {
        if (zmq_send(mSocket.Get(), request.data(), request.size(), 0) < 0) return StatusCode::Failure;
        zmq_pollitem_t item = PollIn(mSocket.Get());
        if (zmq_poll(&item, 1, timeout) <= 0) return StatusCode::TimedOut;
        return ReceiveFrame(mSocket.Get(), response) ? StatusCode::Success : StatusCode::Failure;
    }

private:
    ZmqSocket mSocket;
};

class PlainDealerClient
{
public:
    PlainDealerClient(void* context, std::string endpoint, std::string interruptEndpoint)
        : mContext(context), mEndpoint(std::move(endpoint)), mInterruptEndpoint(std::move(interruptEndpoint))
    {
    }

    StatusCode SendRequest(const ByteVector& request, ByteVector& response, int timeout)
    {
        const ZmqSocket interrupt = MakeConnected(mContext, ZMQ_SUB, mInterruptEndpoint);
        if (zmq_setsockopt(interrupt.Get(), ZMQ_SUBSCRIBE, "", 0) < 0) return StatusCode::Failure;
        const ZmqSocket requester = MakeConnected(mContext, ZMQ_DEALER, mEndpoint);
        if (zmq_send(requester.Get(), request.data(), request.size(), 0) < 0) return StatusCode::Failure;

        zmq_pollitem_t items[] = {PollIn(requester.Get()), PollIn(interrupt.Get())};
        if (zmq_poll(items, 2, timeout) <= 0) return StatusCode::TimedOut;
        if (IsReadable(items[0]) && !ReceiveFrame(requester.Get(), response)) return StatusCode::Failure;
        return IsReadable(items[1]) ? StatusCode::Interrupted : StatusCode::Success;
    }

private:
    void* mContext;
    std::string mEndpoint;
    std::string mInterruptEndpoint;
};

class PlainFifo
{
public:
    PlainFifo() = default;

    ~PlainFifo()
    {
        close(mPipe[0]);
        close(mPipe[1]);
    }

    StatusCode Initialize() { return pipe2(mPipe, O_NONBLOCK) == 0 ? StatusCode::Success : StatusCode::Failure; }

    void PushResponse(const ByteVector& response)
    {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mResponses.push_back(response);
        }
        static_cast<void>(!write(mPipe[1], "1", 1)); // a full pipe is readable all the same
    }

    ByteVector PopResponse()
    {
        char byte = 0;
        static_cast<void>(!read(mPipe[0], &byte, 1));
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mResponses.empty()) return {};
        ByteVector response = std::move(mResponses.front());
        mResponses.pop_front();
        return response;
    }

    int GetReadFd() const { return mPipe[0]; }

private:
    std::deque<ByteVector> mResponses;
    std::mutex mMutex;
    int mPipe[2] = {-1, -1};
};

} // namespace zeb::tolvo::bench
