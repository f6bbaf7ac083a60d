#include <ipc/ResponsesFIFO.h>

#include "common/Log.h"
#include "common/Status.h"

#include <ipc/ZmqCommon.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace zeb::tolvo::ipc
{

ResponsesFIFO::ResponsesFIFO() : mPipeFds{0, 0}, mIsInitialized(false) {}

ResponsesFIFO::~ResponsesFIFO()
{
    if (!mIsInitialized) return;
    close(mPipeFds[0]);
    close(mPipeFds[1]);
}

StatusCode ResponsesFIFO::Initialize()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    if (pipe2(mPipeFds, O_NONBLOCK) < 0)
    {
        TOLVO_IPC_LOG(kLogError, " Pipe Failed", ZmqCommon::mLogger.c_str());
        return kFailure;
    }
    mIsInitialized = true;
    return kSuccess;
}

void ResponsesFIFO::PushResponse(const ByteVector& response)
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mResponses.push_back(response);
    }
    // Without a pipe the descriptors are 0, which belongs to somebody else.
    if (mIsInitialized && write(mPipeFds[1], "1", 1) < 0)
    {
        TOLVO_IPC_LOG(kLogInfo, " ResponsesFIFO::PushResponse: write failed (errno=%s)", ZmqCommon::mLogger.c_str(),
                      strerror(errno));
    }
}

ByteVector ResponsesFIFO::PopResponse()
{
    char byte = 0;
    if (mIsInitialized && read(mPipeFds[0], &byte, 1) < 0)
    {
        TOLVO_IPC_LOG(kLogInfo, " ResponsesFIFO::PopResponse: read failed (errno=%s)", ZmqCommon::mLogger.c_str(),
                      strerror(errno));
    }
    return GetResponse();
}

ByteVector ResponsesFIFO::GetResponse()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mResponses.empty()) return {};
    ByteVector response = std::move(mResponses.front());
    mResponses.pop_front();
    return response;
}

bool ResponsesFIFO::AreResponsesPending()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return !mResponses.empty();
}

} // namespace zeb::tolvo::ipc
