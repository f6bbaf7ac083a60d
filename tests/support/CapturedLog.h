#pragma once

#include <zebl/RootLogger.h>

#include <string>
#include <vector>

/// Takes what is written to standard error while it lives, at a level of the logger's that it restores. Each line comes
/// without its thread number: "[tag] text".
class CapturedLog
{
public:
    explicit CapturedLog(int level = 3);
    ~CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    /// The lines written so far that were not taken yet.
    std::vector<std::string> Take();

    /// Takes lines until one holds `text`.
    /// @return false when none has come within ten seconds.
    bool Await(const std::string& text);

private:
    int mReadFd = -1;
    int mSavedStderr = -1;
    TolvoLogLevel mSavedLevel;
    std::string mPending;
};
