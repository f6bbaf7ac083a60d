#include "ipc-call/Statistics.h"

#include <cmath>
#include <iomanip>
#include <sstream>

namespace zeb::tolvo::desk
{

namespace
{

double Seconds(Statistics::Duration time) { return std::chrono::duration<double>(time).count(); }

/// @return zero when no time has passed.
std::uint64_t PerSecond(std::uint64_t count, Statistics::Duration elapsed)
{
    return elapsed.count() > 0 ? static_cast<std::uint64_t>(std::llround(static_cast<double>(count) / Seconds(elapsed)))
                               : 0;
}

} // namespace

void Statistics::Add(StatusCode status, Duration time)
{
    if (status == StatusCode::Success)
    {
        mAnswerTimes.Add(time);
        return;
    }
    ++mFailures[status];
    ++mFailed;
}

std::string Statistics::Summary(std::uint64_t wanted, Duration elapsed,
                                const std::function<std::string(StatusCode)>& explain) const
{
    const std::uint64_t ended = GetCounts().Ended();
    std::ostringstream text;
    const auto row = [&text](const char* name) -> std::ostream& {
        constexpr int kNameWidth = 10;
        return text << std::left << std::setw(kNameWidth) << name;
    };

    row("requests") << ended;
    if (ended < wanted) text << " of " << wanted;
    text << " in " << std::fixed << std::setprecision(3) << Seconds(elapsed) << " s, " << PerSecond(ended, elapsed)
         << " per second\n";
    row("answered") << mAnswerTimes.Count() << '\n';
    for (const auto& [status, count] : mFailures) row("failed") << count << ": " << explain(status) << '\n';
    if (mAnswerTimes.Count() > 0)
    {
        constexpr double kMedian = 0.5;
        constexpr double kNearlyAll = 0.99;
        row("median") << Milliseconds(mAnswerTimes.Percentile(kMedian)) << " ms\n";
        row("99%") << Milliseconds(mAnswerTimes.Percentile(kNearlyAll)) << " ms\n";
        row("worst") << Milliseconds(mAnswerTimes.Worst()) << " ms\n";
    }
    return text.str();
}

std::string ProgressText(Counts counts, std::uint64_t wanted, Statistics::Duration elapsed)
{
    const std::uint64_t percent = wanted > 0 ? 100 * counts.Ended() / wanted : 100;
    return std::to_string(percent) + "%: " + std::to_string(counts.Ended()) + " of " + std::to_string(wanted) + ", " +
           std::to_string(counts.failed) + " failed, " + std::to_string(PerSecond(counts.Ended(), elapsed)) +
           " per second";
}

} // namespace zeb::tolvo::desk
