#include <ipc/AbstractServerConnector.h>

#include "common/ConstantString.h"
#include "common/Log.h"

#include <string>

namespace zeb::tolvo::ipc
{

namespace
{

const std::string kClassTag TOLVO_IPC_CONSTANT_STRING = "ipc::AbstractServerConnector";

} // namespace

AbstractServerConnector::AbstractServerConnector() : mIsListening(false) {}

AbstractServerConnector::~AbstractServerConnector() = default;

// NOLINTBEGIN(performance-unnecessary-value-param)
void AbstractServerConnector::RegisterCallback(
    std::function<void(const ByteVector& request, ByteVector& response)> callback)
{
    // Copied, not moved: the previous handler goes only after the new one is in place.
    mCallback = callback;
}

// NOLINTEND(performance-unnecessary-value-param)

void AbstractServerConnector::ProcessRequest(const ByteVector& request, ByteVector& response)
{
    if (mCallback)
    {
        mCallback(request, response);
        return;
    }
    TOLVO_IPC_LOG(kLogError, " Callback for request is null", kClassTag.c_str());
}

} // namespace zeb::tolvo::ipc
