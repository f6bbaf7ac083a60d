#pragma once

#include <ipc/ByteVector.h>
#include <ipc/Export.h>

#include <tolvo/StatusCode.h>

#include <deque>
#include <mutex>

namespace zeb::tolvo::ipc
{

/// Queue of responses for callers that wait in their own event loop.
///
/// Each pushed response puts one byte into a pipe, so the pipe's read end is readable while responses are queued. When
/// it is readable, pop at least once, then until `AreResponsesPending` answers false: a byte may come after its
/// response was taken, and a response that was pushed while the pipe was full has none.
///
/// Any number of threads may push and ask; one thread pops. Only `Initialize` must come first, alone. The pipe is
/// inherited by programs that this one executes.
class TOLVO_IPC_EXPORT ResponsesFIFO
{
public:
    ResponsesFIFO();

    /// Closes the pipe and drops what is still queued. No other thread may be using the queue.
    virtual ~ResponsesFIFO();

    ResponsesFIFO(const ResponsesFIFO&) = delete;
    ResponsesFIFO& operator=(const ResponsesFIFO&) = delete;

    /// Creates the pipe. Call it once, before the first push or pop.
    /// @return `Success`, or `Failure` when the pipe can't be created: the queue then works without it.
    StatusCode Initialize();

    /// Queues a copy of `response` and makes the read end readable. Never blocks on the pipe: when it is full the
    /// response is queued without its byte.
    /// @param response may be empty, but is then popped like one that was not there: ask `AreResponsesPending` first.
    void PushResponse(const ByteVector& response);

    /// Takes one byte out of the pipe and the oldest response out of the queue. Never blocks on the pipe.
    /// @return the response; empty when none was queued.
    ByteVector PopResponse();

    /// Takes the oldest response out of the queue and leaves its byte in the pipe.
    /// @return the response; empty when none was queued.
    ByteVector GetResponse();

    /// @return whether a response is queued, with its byte or without.
    bool AreResponsesPending();

    /// The descriptor to wait on for readability. The queue owns it: do not read or close it.
    /// @return the pipe's read end, or -1 until `Initialize` has succeeded.
    int GetReadFd() const { return mIsInitialized ? mPipeFds[0] : -1; }

protected:
    /// @cond internal
    std::deque<ByteVector> mResponses;
    std::mutex mMutex;
    int mPipeFds[2];
    bool mIsInitialized;
    /// @endcond
};

} // namespace zeb::tolvo::ipc
