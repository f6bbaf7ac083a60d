#pragma once

#include <zmq.h>

#include <memory>

namespace zeb::tolvo::ipc
{

/// Holds the handle that a socket helper stores, and closes it when the scope ends. Scopes end in reverse order:
/// declare first what must close last.
struct ScopedSocket
{
    ScopedSocket() = default;

    ~ScopedSocket()
    {
        if (handle != nullptr) zmq_close(handle);
    }

    ScopedSocket(const ScopedSocket&) = delete;
    ScopedSocket& operator=(const ScopedSocket&) = delete;

    void* handle = nullptr;
};

struct MessageCloser
{
    void operator()(zmq_msg_t* message) const noexcept { zmq_msg_close(message); }
};

/// Closes an initialised message when the scope ends.
using ScopedMessage = std::unique_ptr<zmq_msg_t, MessageCloser>;

} // namespace zeb::tolvo::ipc
