#pragma once

#include <ipc/ZmqServerConnector.h>

namespace zeb::tolvo::ipc
{

/// Server with one front-end: requests are answered one after another, in the order in which they arrive.
class TOLVO_IPC_EXPORT ZmqServerSequentialOnePriority : public ZmqServerConnector
{
public:
    /// As `ZmqServerConnector`.
    ZmqServerSequentialOnePriority(const std::string& endpoint, void* context, const std::string& identity);
    ~ZmqServerSequentialOnePriority() override;

protected:
    StatusCode PrepareToListen() override;
    void CreateSocketsAndRunServer(std::promise<StatusCode>& startup) override;
    void RunServer(void* frontEnd, void* monitor, void* control);
};

} // namespace zeb::tolvo::ipc
