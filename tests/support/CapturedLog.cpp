#include "support/CapturedLog.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

CapturedLog::CapturedLog(int level)
    : mSavedLevel(static_cast<TolvoLogLevel>(zebl::Log::RootLogger::GetInstance().mLevel->load()))
{
    std::array<int, 2> fds{};
    if (pipe(fds.data()) != 0) throw std::runtime_error("pipe");
    fcntl(fds[0], F_SETFL, O_NONBLOCK);
    constexpr int kRoomForALongRun = 1 << 20;
    fcntl(fds[1], F_SETPIPE_SZ, kRoomForALongRun);
    mReadFd = fds[0];
    mSavedStderr = dup(STDERR_FILENO);
    dup2(fds[1], STDERR_FILENO);
    close(fds[1]);
    zebl::Log::RootLogger::GetInstance().SetLevel(static_cast<TolvoLogLevel>(level));
}

CapturedLog::~CapturedLog()
{
    zebl::Log::RootLogger::GetInstance().SetLevel(mSavedLevel);
    dup2(mSavedStderr, STDERR_FILENO);
    close(mSavedStderr);
    close(mReadFd);
}

std::vector<std::string> CapturedLog::Take()
{
    std::array<char, 4096> chunk{};
    for (ssize_t size = 0; (size = read(mReadFd, chunk.data(), chunk.size())) > 0;)
    {
        mPending.append(chunk.data(), static_cast<std::size_t>(size));
    }
    std::vector<std::string> lines;
    for (std::size_t end = 0; (end = mPending.find('\n')) != std::string::npos; mPending.erase(0, end + 1))
    {
        const std::size_t tag = mPending.find("][") + 1; // 0 for a line that is not the library's
        lines.push_back(mPending.substr(tag, end - tag));
    }
    return lines;
}

bool CapturedLog::Await(const std::string& text)
{
    constexpr int kPatienceMs = 10'000;
    pollfd item{mReadFd, POLLIN, 0};
    while (poll(&item, 1, kPatienceMs) > 0)
    {
        const std::vector<std::string> lines = Take();
        if (std::any_of(lines.begin(), lines.end(),
                        [&](const std::string& line) { return line.find(text) != std::string::npos; }))
        {
            return true;
        }
    }
    return false;
}
