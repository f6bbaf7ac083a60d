#include "ipc-call/RepeatedCalls.h"

#include <algorithm>
#include <chrono>
#include <unistd.h>
#include <utility>

namespace zeb::tolvo::desk
{

RepeatedCalls::RepeatedCalls(const CallerMaker& maker, std::vector<ipc::ByteVector> requests, std::uint64_t repeat,
                             unsigned int parallel)
    : mRequests(std::move(requests)),
      mWanted(mRequests.size() * repeat),
      mRunning(static_cast<std::size_t>(std::min<std::uint64_t>(mWanted, parallel)))
{
    std::size_t missing = mRunning;
    try
    {
        for (; missing > 0; --missing) mThreads.emplace_back([this, caller = maker()] { RunCaller(*caller); });
    }
    catch (...)
    {
        Fail();
        EndCallers(missing);
    }
}

RepeatedCalls::~RepeatedCalls()
{
    Stop();
    for (std::thread& thread : mThreads) thread.join();
}

Statistics RepeatedCalls::GetStatistics() const
{
    const std::lock_guard lock(mMutex);
    return mStatistics;
}

void RepeatedCalls::RethrowFailure() const
{
    const std::lock_guard lock(mMutex);
    if (mFailure) std::rethrow_exception(mFailure);
}

void RepeatedCalls::RunCaller(Caller& caller)
{
    try
    {
        CallUntilDone(caller);
    }
    catch (...)
    {
        Fail();
    }
    EndCallers(1);
}

void RepeatedCalls::Fail()
{
    Stop();
    const std::lock_guard lock(mMutex);
    mFailure = std::current_exception();
}

void RepeatedCalls::EndCallers(std::size_t count)
{
    if ((mRunning -= count) == 0) kill(getpid(), kEndSignal);
}

void RepeatedCalls::CallUntilDone(Caller& caller)
{
    using Clock = std::chrono::steady_clock;
    ipc::ByteVector reply;
    for (std::uint64_t number = mNext++; number < mWanted; number = mNext++)
    {
        const auto start = Clock::now();
        const StatusCode status = caller.Call(mRequests[static_cast<std::size_t>(number % mRequests.size())], reply);
        const auto time = Clock::now() - start;
        const std::lock_guard lock(mMutex);
        mStatistics.Add(status, time);
    }
}

} // namespace zeb::tolvo::desk
