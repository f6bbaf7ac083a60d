#pragma once

#include <chrono>
#include <cmath>
#include <limits>
#include <ratio>

namespace zeb::tolvo::ipc::convenience
{

/// How long to wait for a reply, made of any `std::chrono` duration.
///
/// The library counts in whole milliseconds: a part of one becomes a whole one, and what its int can't hold becomes the
/// most that it can, 24 days. A negative duration, such as the rest until a deadline that has passed, is 0, which looks
/// once: no wait is without limit.
class Timeout
{
public:
    /// @param duration of any unit, whole or not.
    template <typename Rep, typename Period>
    Timeout(std::chrono::duration<Rep, Period> duration) : mMilliseconds(0)
    {
        constexpr int kMost = std::numeric_limits<int>::max();
        const double milliseconds = std::chrono::duration<double, std::milli>(duration).count();
        if (milliseconds >= kMost)
            mMilliseconds = kMost;
        else if (milliseconds > 0)
            mMilliseconds = static_cast<int>(std::ceil(milliseconds));
    }

    /// @return what the connectors take, never negative.
    int GetMilliseconds() const { return mMilliseconds; }

private:
    int mMilliseconds;
};

} // namespace zeb::tolvo::ipc::convenience
