#include <ipc/AbstractClientConnector.h>

namespace zeb::tolvo::ipc
{

AbstractClientConnector::~AbstractClientConnector() = default;

} // namespace zeb::tolvo::ipc
