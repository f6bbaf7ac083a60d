#pragma once

#include <ipc/ZmqServerConnector.h>

namespace zeb::tolvo::ipc
{

/// Server with an ordinary and an urgent front-end, both connected to the same endpoint and answered by one thread, one
/// request at a time. While both have requests waiting, 40 urgent ones are answered, then 10 ordinary ones, and so on:
/// neither starves.
///
/// The urgent front-end's identity is the given one followed by "RT"; it registers under "RT" followed by the given
/// address.
class TOLVO_IPC_EXPORT ZmqServerSequentialTwoPriorities : public ZmqServerConnector
{
public:
    /// As `ZmqServerConnector`, but the identity has at most 253 bytes.
    /// @param endpoint,context,identity as there.
    /// @throws std::length_error when the identity is too long for a string that also holds "RT".
    ZmqServerSequentialTwoPriorities(const std::string& endpoint, void* context, const std::string& identity);
    ~ZmqServerSequentialTwoPriorities() override;

    /// Sets both addresses: the given one, and the one that starts with "RT". When it throws, each front-end may
    /// register under another one than before, or not.
    /// @param address of the ordinary front-end.
    /// @throws std::length_error when the address is too long for a string that also holds "RT".
    void SetStartupMessage(const std::string& address) override;

protected:
    StatusCode PrepareToListen() override;
    void CreateSocketsAndRunServer(std::promise<StatusCode>& startup) override;
    /// @cond internal
    void RunServer(void* frontEnd, void* rtFrontEnd, void* monitor, void* rtMonitor, void* control);

    ByteVector mRtStartupMessage;
    std::string mRtIdentity;
    /// @endcond
};

} // namespace zeb::tolvo::ipc
