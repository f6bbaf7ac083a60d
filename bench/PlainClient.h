#pragma once

#include "Zmq.h"

#include <ipc/ByteVector.h>

#include <deque>
#include <mutex>
#include <string>

namespace zeb::tolvo::bench
{

using ipc::ByteVector;

/// The library's persistent client written with ZeroMQ alone.
class PlainClient
{
public:
    PlainClient(void* context, const std::string& endpoint);

    /// @return whether a reply came within `timeout` milliseconds.
    bool SendRequest(const ByteVector& request, ByteVector& response, int timeout);

private:
    Socket mSocket;
};

/// The library's client of fresh sockets written with ZeroMQ alone.
class PlainDealerClient
{
public:
    PlainDealerClient(void* context, std::string endpoint, std::string interruptEndpoint);

    /// @return whether a reply came within `timeout` milliseconds and without an interrupt.
    bool SendRequest(const ByteVector& request, ByteVector& response, int timeout);

private:
    void* mContext;
    std::string mEndpoint;
    std::string mInterruptEndpoint;
};

/// The library's queue of responses, hand-written.
class PlainFifo
{
public:
    PlainFifo();
    ~PlainFifo();

    PlainFifo(const PlainFifo&) = delete;
    PlainFifo& operator=(const PlainFifo&) = delete;

    void Push(const ByteVector& response);

    /// @return the oldest response, empty when there is none.
    ByteVector Pop();

    int GetReadFd() const { return mPipe[0]; }

private:
    std::deque<ByteVector> mResponses;
    std::mutex mMutex;
    int mPipe[2] = {-1, -1};
};

} // namespace zeb::tolvo::bench
