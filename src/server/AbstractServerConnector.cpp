#include <ipc/AbstractServerConnector.h>

#include "common/Log.h"

#include <utility>

namespace zeb::tolvo::ipc
{

namespace
{

constexpr char kClassTag[] = "ipc::AbstractServerConnector";

} // namespace

AbstractServerConnector::AbstractServerConnector() : mIsListening(false) {}

AbstractServerConnector::~AbstractServerConnector() = default;

void AbstractServerConnector::RegisterCallback(
    std::function<void(const ByteVector& request, ByteVector& response)> callback)
{
    // The previous handler goes only after the new one is in place.
    const auto previous = std::exchange(mCallback, std::move(callback));
}

void AbstractServerConnector::ProcessRequest(const ByteVector& request, ByteVector& response)
{
    if (mCallback)
    {
        mCallback(request, response);
        return;
    }
    TOLVO_IPC_LOG(kLogError, " Callback for request is null", kClassTag);
}

} // namespace zeb::tolvo::ipc
