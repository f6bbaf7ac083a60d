#pragma once

#include "support/Basics.h"

#include <zebl/RootLogger.h>

#include <array>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

/// A pipe, and what is written to it.
struct Output
{
    explicit Output(int flags = 0)
    {
        if (pipe2(ends.data(), flags) < 0) throw std::runtime_error("pipe2");
    }

    ~Output()
    {
        for (const int fd : ends) close(fd);
    }

    /// Takes what is written up to a line that holds `text`. None in time ends the test.
    void Await(const std::string& text)
    {
        std::size_t end = 0;
        for (; (end = written.find('\n', written.find(text))) == std::string::npos; Read())
            [&] { ASSERT_TRUE(IsReadable(ends[0])) << "no line \"" << text << '"'; }();
        written.erase(0, end + 1);
    }

    /// Adds to `written` what is there.
    void Read()
    {
        for (std::string block; IsReadable(ends[0], 0); written += block)
        {
            block.resize(1 << 16);
            block.resize(static_cast<std::size_t>(read(ends[0], block.data(), block.size())));
        }
    }

    std::array<int, 2> ends{};
    std::string written; // not yet taken
};

/// Takes what is written to standard error while it lives. Each line comes without its thread number: "[tag] text".
struct CapturedLog : Output
{
    explicit CapturedLog(int level = 3) : Output(O_NONBLOCK)
    {
        if (fcntl(ends[1], F_SETPIPE_SZ, 1 << 20) < 0) throw std::runtime_error("F_SETPIPE_SZ"); // for a long run
        dup2(ends[1], STDERR_FILENO);
        SetLevel(level);
    }

    ~CapturedLog()
    {
        SetLevel(static_cast<int>(TolvoLogLevel::Notice));
        dup2(mSavedStderr, STDERR_FILENO);
        close(mSavedStderr);
    }

    void SetLevel(int level) { zebl::Log::RootLogger::GetInstance().SetLevel(static_cast<TolvoLogLevel>(level)); }

    /// The lines written so far that were not taken yet.
    Lines Take()
    {
        Read();
        std::istringstream text(std::exchange(written, {}));
        Lines lines;
        for (std::string line; std::getline(text, line);) lines.push_back(line.substr(line.find("][") + 1));
        return lines;
    }

private:
    int mSavedStderr = dup(STDERR_FILENO);
};
