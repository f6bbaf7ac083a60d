#include <ipc/ZmqCommon.h>

#include "common/ConstantString.h"

namespace zeb::tolvo::ipc
{

const std::string ZmqCommon::mLogger TOLVO_IPC_CONSTANT_STRING = "zeb.ipc.transport.connectors.rpc.library";

} // namespace zeb::tolvo::ipc
