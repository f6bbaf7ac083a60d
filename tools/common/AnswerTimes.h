#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace zeb::tolvo::desk
{

/// How long answers took, in the same little room however many they are: the worst exactly, the others within 1 %.
class AnswerTimes
{
public:
    using Duration = std::chrono::nanoseconds;

    void Add(Duration time);

    void Add(const AnswerTimes& others);

    std::uint64_t Count() const { return mCount; }

    Duration Worst() const { return mWorst; }

    /// @param share of the answers that took no longer, for instance 0.5 for the median.
    /// @return zero when there are no answers.
    Duration Percentile(double share) const;

private:
    std::vector<std::uint64_t> mCounts; // by bucket
    std::uint64_t mCount = 0;
    Duration mWorst{0};
};

/// @return for instance "0.214", in milliseconds.
std::string Milliseconds(AnswerTimes::Duration time);

} // namespace zeb::tolvo::desk
