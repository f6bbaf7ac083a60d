#include "common/AnswerTimes.h"

#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;
using zeb::tolvo::desk::AnswerTimes;

TEST(AnswerTimes, AreKnownWithinOnePercentAndTheWorstExactly)
{
    AnswerTimes times, others;
    EXPECT_EQ(times.Percentile(0.5), 0ns);
    for (int answer = 1; answer <= 1000; ++answer) (answer % 2 == 0 ? times : others).Add(answer * 1234ns);
    times.Add(others);
    EXPECT_EQ(times.Count(), 1000U);
    for (const int percent : {1, 50, 99})
        EXPECT_NEAR(static_cast<double>(times.Percentile(percent / 100.0).count()), percent * 12'340.0,
                    percent * 123.4);
    EXPECT_EQ(times.Percentile(1), times.Worst());
    EXPECT_EQ(times.Worst(), 1'234'000ns);
}

} // namespace
