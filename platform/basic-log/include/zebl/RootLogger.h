#pragma once

#include <atomic>

/// Severities with syslog's numbers: the smaller the more severe.
enum class TolvoLogLevel : int
{
    Emergency = 0,
    Alert = 1,
    Critical = 2,
    Error = 3,
    Warning = 4,
    Notice = 5,
    Info = 6,
    Debug = 7,
};

namespace zebl::Log
{

/// The one logger of the process. Any thread may use it at any time, also while the process exits: it is never
/// destroyed. The level at start is `Notice`.
class RootLogger
{
public:
    RootLogger(const RootLogger&) = delete;
    RootLogger& operator=(const RootLogger&) = delete;

    /// Leaves `errno` as it was.
    static RootLogger& GetInstance();

    /// The current level. A caller prints a line of level L only when this is at least L, so that nothing is computed
    /// for a line that would be dropped. First member, since callers built elsewhere read it in place.
    const std::atomic<unsigned char>* mLevel = &mCurrentLevel;

    /// Writes one line, newline appended, to standard error, with a single `write` where that takes it whole, so
    /// that lines of several threads don't mix; in a pipe that holds for lines of up to `PIPE_BUF` bytes. A line of any
    /// length is written whole, unless memory has run out or standard error takes no more without waiting. Prints
    /// nothing when `level` is above the current one. Leaves `errno` as it was.
    void Print(TolvoLogLevel level, const char* format, ...) __attribute__((format(printf, 3, 4)));

    /// For desk programs; may be called while other threads log.
    void SetLevel(TolvoLogLevel level);

private:
    constexpr RootLogger() = default;

    std::atomic<unsigned char> mCurrentLevel{static_cast<unsigned char>(TolvoLogLevel::Notice)};
};

} // namespace zebl::Log
