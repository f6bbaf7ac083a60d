#pragma once

#include <ipc/Export.h>

#include <string>

namespace zeb::tolvo::ipc
{

/// What the connectors have in common.
class TOLVO_IPC_EXPORT ZmqCommon
{
public:
    /// Tag of the log lines that carry no class's own tag: "zeb.ipc.transport.connectors.rpc.library".
    static const std::string mLogger;
};

} // namespace zeb::tolvo::ipc
