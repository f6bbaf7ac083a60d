#pragma once

#include "support/Basics.h"

#include <zebl/RootLogger.h>

#include <array>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

/// Takes what is written to standard error while it lives. Each line comes without its thread number: "[tag] text".
struct CapturedLog
{
    explicit CapturedLog(int level = 3)
    {
        if (pipe2(mPipe.data(), O_NONBLOCK) < 0 || fcntl(mPipe[1], F_SETPIPE_SZ, kRoomForALongRun) < 0)
            throw std::runtime_error("pipe2");
        dup2(mPipe[1], STDERR_FILENO);
        SetLevel(level);
    }

    ~CapturedLog()
    {
        SetLevel(static_cast<int>(TolvoLogLevel::Notice));
        dup2(mSavedStderr, STDERR_FILENO);
        for (const int fd : {mSavedStderr, mPipe[0], mPipe[1]}) close(fd);
    }

    void SetLevel(int level) { zebl::Log::RootLogger::GetInstance().SetLevel(static_cast<TolvoLogLevel>(level)); }

    /// The lines written so far that were not taken yet.
    Lines Take()
    {
        std::istringstream written(Read());
        Lines lines;
        for (std::string line; std::getline(written, line);) lines.push_back(line.substr(line.find("][") + 1));
        return lines;
    }

    /// Takes what is written until it holds `text`.
    bool Await(const std::string& text)
    {
        while (IsReadable(mPipe[0]))
            if (Read().find(text) != std::string::npos) return true;
        return false;
    }

private:
    std::string Read()
    {
        std::string text(kRoomForALongRun, ' ');
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(read(mPipe[0], text.data(), text.size()), 0)));
        return text;
    }

    static constexpr int kRoomForALongRun = 1 << 20;

    std::array<int, 2> mPipe{};
    int mSavedStderr = dup(STDERR_FILENO);
};
