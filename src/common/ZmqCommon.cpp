#include <ipc/ZmqCommon.h>

namespace zeb::tolvo::ipc
{

// An object, since callers know it as one. The factory logs with it while the library is loaded, so it is built first
// and goes last, in whatever order the object files were linked.
__attribute__((init_priority(1000))) const std::string ZmqCommon::mLogger = "zeb.ipc.transport.connectors.rpc.library";

} // namespace zeb::tolvo::ipc
