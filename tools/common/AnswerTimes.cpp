#include "common/AnswerTimes.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iomanip>
#include <sstream>

namespace zeb::tolvo::desk
{

namespace
{

// Buckets are one nanosecond wide up to 64, and from there on 64 in each octave.
constexpr std::size_t kInOctave = 64;

std::size_t BucketOf(std::uint64_t nanoseconds)
{
    std::size_t octave = 0;
    for (; nanoseconds >= 2 * kInOctave; nanoseconds /= 2) ++octave;
    return octave * kInOctave + static_cast<std::size_t>(nanoseconds);
}

AnswerTimes::Duration MiddleOf(std::size_t bucket)
{
    if (bucket < 2 * kInOctave) return AnswerTimes::Duration(static_cast<AnswerTimes::Duration::rep>(bucket));
    const std::size_t octave = bucket / kInOctave - 1;
    const std::uint64_t least = std::uint64_t{bucket - octave * kInOctave} << octave;
    return AnswerTimes::Duration(least + (std::uint64_t{1} << octave) / 2);
}

} // namespace

void AnswerTimes::Add(Duration time)
{
    const std::size_t bucket = BucketOf(static_cast<std::uint64_t>(std::max<Duration::rep>(time.count(), 0)));
    if (bucket >= mCounts.size()) mCounts.resize(bucket + 1);
    ++mCounts[bucket];
    ++mCount;
    mWorst = std::max(mWorst, time);
}

void AnswerTimes::Add(const AnswerTimes& others)
{
    mCounts.resize(std::max(mCounts.size(), others.mCounts.size()));
    std::transform(others.mCounts.begin(), others.mCounts.end(), mCounts.begin(), mCounts.begin(), std::plus<>());
    mCount += others.mCount;
    mWorst = std::max(mWorst, others.mWorst);
}

AnswerTimes::Duration AnswerTimes::Percentile(double share) const
{
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(mCount)));
    std::uint64_t seen = 0;
    for (std::size_t bucket = 0; bucket < mCounts.size(); ++bucket)
    {
        seen += mCounts[bucket];
        if (seen > 0 && seen >= wanted) return std::min(MiddleOf(bucket), mWorst);
    }
    return mWorst;
}

std::string Milliseconds(AnswerTimes::Duration time)
{
    constexpr int kDigits = 3;
    std::ostringstream text;
    text << std::fixed << std::setprecision(kDigits) << std::chrono::duration<double, std::milli>(time).count();
    return text.str();
}

} // namespace zeb::tolvo::desk
