#pragma once

#include "ipc-call/Caller.h"
#include "ipc-call/Statistics.h"

#include <ipc/ByteVector.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace zeb::tolvo::desk
{

/// Callers on threads of their own that share a number of requests.
class RepeatedCalls
{
public:
    /// The process gets it when the last caller has ended; every thread must block it.
    static constexpr int kEndSignal = SIGUSR1;

    /// Starts as many callers as there is work for.
    /// @param requests sent in turn, the first one again after the last.
    /// @param repeat how often each is sent.
    /// What is thrown meanwhile ends the run as what a caller throws.
    RepeatedCalls(const CallerMaker& maker, std::vector<ipc::ByteVector> requests, std::uint64_t repeat,
                  unsigned int parallel);

    /// Waits for the requests that are under way; no other is sent.
    ~RepeatedCalls();

    RepeatedCalls(const RepeatedCalls&) = delete;
    RepeatedCalls& operator=(const RepeatedCalls&) = delete;

    /// @return number of requests that are to be sent.
    std::uint64_t Wanted() const { return mWanted; }

    /// @return whether every caller has ended.
    bool HaveEnded() const { return mRunning == 0; }

    Statistics GetStatistics() const;

    /// Throws what a caller has thrown, if one has. No request was begun since.
    void RethrowFailure() const;

private:
    void Stop() { mNext = mWanted; }

    void RunCaller(Caller& caller);
    void CallUntilDone(Caller& caller);
    void Fail(); // keeps the exception that is being handled
    void EndCallers(std::size_t count);

    std::vector<ipc::ByteVector> mRequests;
    std::uint64_t mWanted;
    std::atomic<std::uint64_t> mNext{0};
    std::atomic<std::size_t> mRunning;
    mutable std::mutex mMutex;
    Statistics mStatistics;      // guarded by mMutex
    std::exception_ptr mFailure; // guarded by mMutex
    std::vector<std::thread> mThreads;
};

} // namespace zeb::tolvo::desk
