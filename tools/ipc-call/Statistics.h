#pragma once

#include "common/AnswerTimes.h"

#include <tolvo/StatusCode.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace zeb::tolvo::desk
{

/// How many requests have ended, and how.
struct Counts
{
    std::uint64_t answered = 0;
    std::uint64_t failed = 0;

    std::uint64_t Ended() const { return answered + failed; }
};

/// How a run of requests went. Used by one thread at a time.
class Statistics
{
public:
    using Duration = AnswerTimes::Duration;

    /// Takes the result of one request and how long it took.
    void Add(StatusCode status, Duration time);

    Counts GetCounts() const { return {mAnswerTimes.Count(), mFailed}; }

    /// @param wanted number of requests that were to be sent.
    /// @param elapsed time of the whole run.
    /// @param explain says why requests have failed with a status.
    /// @return lines that each begin with a word: requests, answered, failed once for each status, then median, 99% and
    /// worst unless nothing was answered.
    std::string Summary(std::uint64_t wanted, Duration elapsed,
                        const std::function<std::string(StatusCode)>& explain) const;

private:
    AnswerTimes mAnswerTimes;
    std::map<StatusCode, std::uint64_t> mFailures;
    std::uint64_t mFailed = 0;
};

/// @return how far a run is, on one line.
std::string ProgressText(Counts counts, std::uint64_t wanted, Statistics::Duration elapsed);

} // namespace zeb::tolvo::desk
