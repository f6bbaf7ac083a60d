#include "ipc-call/SummedRun.h"

#include "ipc-call/Diagnosis.h"
#include "ipc-call/Progress.h"
#include "ipc-call/RepeatedCalls.h"
#include "ipc-call/StandardStreams.h"

#include <chrono>
#include <csignal>
#include <ctime>
#include <utility>

namespace zeb::tolvo::desk
{

namespace
{

using Clock = std::chrono::steady_clock;

sigset_t WatchedSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, RepeatedCalls::kEndSignal}) sigaddset(&signals, signal);
    return signals;
}

/// @return the signal that ended the wait, 0 when all callers have ended.
int Watch(const RepeatedCalls& calls, Clock::time_point start, Progress& progress)
{
    constexpr timespec kPeriod{0, 250'000'000};
    const sigset_t signals = WatchedSignals();
    while (!calls.HaveEnded())
    {
        const int signal = sigtimedwait(&signals, nullptr, &kPeriod);
        if (signal > 0 && signal != RepeatedCalls::kEndSignal) return signal;
        if (signal < 0)
            progress.Show(ProgressText(calls.GetStatistics().GetCounts(), calls.Wanted(), Clock::now() - start));
    }
    return 0;
}

void EndBy(int signal)
{
    struct sigaction usual = {};
    usual.sa_handler = SIG_DFL;
    sigaction(signal, &usual, nullptr);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, signal);
    static_cast<void>(raise(signal));
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

/// Ends the process by the signal that ended the wait, at once, whatever the callers wait for.
struct OrderlyEnd
{
    const int signal;

    ~OrderlyEnd()
    {
        if (signal != 0) EndBy(signal);
    }
};

} // namespace

bool RunSummed(const CallerMaker& maker, std::vector<ipc::ByteVector> requests, const Options& options)
{
    const sigset_t signals = WatchedSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr); // in the callers' and ZeroMQ's threads as well

    // Where the library may write lines of its own, it would mix them with the progress.
    Progress progress(options.logLevel <= TolvoLogLevel::Critical);
    const auto start = Clock::now();
    const RepeatedCalls calls(maker, std::move(requests), options.repeat.value_or(1), options.parallel.value_or(1));
    const OrderlyEnd end{Watch(calls, start, progress)};

    const auto elapsed = Clock::now() - start;
    if (end.signal == 0) calls.RethrowFailure();
    const Statistics statistics = calls.GetStatistics();
    progress.Clear();
    Write(statistics.Summary(calls.Wanted(), elapsed, [&options](StatusCode status) {
        return Diagnosis(status, options.timeoutMs, options.endpoint);
    }));
    return statistics.GetCounts().answered == calls.Wanted();
}

} // namespace zeb::tolvo::desk
