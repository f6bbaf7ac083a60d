#pragma once

#include <ipc/ZmqServerConnector.h>

namespace zeb::tolvo::ipc
{

/// Server with one front-end: requests are answered one after another, in the order in which they arrive.
class TOLVO_IPC_EXPORT ZmqServerSequentialOnePriority : public ZmqServerConnector
{
public:
    /// As `ZmqServerConnector`.
    /// @param endpoint,context,identity as there.
    ZmqServerSequentialOnePriority(const std::string& endpoint, void* context, const std::string& identity);
    ~ZmqServerSequentialOnePriority() override;

protected:
    StatusCode PrepareToListen() override;
    void CreateSocketsAndRunServer(std::promise<StatusCode>& startup) override;
    /// @cond internal
    void RunServer(void* frontEnd, void* monitor, void* control);
    /// @endcond
};

} // namespace zeb::tolvo::ipc
