#pragma once

#include <zmq.h>

#include <cstddef>
#include <utility>

// Owners of ZeroMQ handles and helpers for polling, shared by the library and the measurements.

namespace zeb::tolvo
{

/// A socket, closed when its scope ends. Scopes end in reverse order: declare first what must close last.
class ZmqSocket
{
public:
    explicit ZmqSocket(void* socket = nullptr) : mHandle(socket) {}

    ZmqSocket(ZmqSocket&& other) noexcept : mHandle(std::exchange(other.mHandle, nullptr)) {}

    ~ZmqSocket()
    {
        if (mHandle != nullptr) zmq_close(mHandle);
    }

    ZmqSocket(const ZmqSocket&) = delete;
    ZmqSocket& operator=(const ZmqSocket&) = delete;
    ZmqSocket& operator=(ZmqSocket&&) = delete;

    void* Get() const { return mHandle; }

    /// Where a helper stores the socket that it creates.
    void** Slot() { return &mHandle; }

private:
    void* mHandle;
};

/// A message, closed when its scope ends, unless ZeroMQ refused to initialise it and nothing was received into it.
class ZmqMessage
{
public:
    ZmqMessage() : mIsOpen(zmq_msg_init(&mMessage) >= 0) {}

    ~ZmqMessage()
    {
        if (mIsOpen) zmq_msg_close(&mMessage);
    }

    ZmqMessage(const ZmqMessage&) = delete;
    ZmqMessage& operator=(const ZmqMessage&) = delete;

    /// Asked before anything else: `zmq_errno` tells why it is not.
    bool IsInitialised() const { return mIsOpen; }

    /// Replaces the content by the next frame.
    /// @return what `zmq_msg_recv` returns.
    int Receive(void* socket, int flags)
    {
        mIsOpen = true;
        return zmq_msg_recv(&mMessage, socket, flags);
    }

    const unsigned char* Data() { return static_cast<const unsigned char*>(zmq_msg_data(&mMessage)); }

    std::size_t Size() const { return zmq_msg_size(&mMessage); }

    zmq_msg_t* Get() { return &mMessage; }

private:
    zmq_msg_t mMessage{};
    bool mIsOpen;
};

inline zmq_pollitem_t PollIn(void* socket) { return {socket, 0, ZMQ_POLLIN, 0}; }

inline bool IsReadable(const zmq_pollitem_t& item) { return (item.revents & ZMQ_POLLIN) != 0; }

} // namespace zeb::tolvo
