#include "ipc-call/Progress.h"

#include <algorithm>
#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace zeb::tolvo::desk
{

namespace
{

std::size_t Columns()
{
    constexpr unsigned short kFewest = 10;
    constexpr unsigned short kMost = 80;
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kMost;
    return std::clamp(size.ws_col, kFewest, kMost);
}

} // namespace

Progress::Progress(bool isWanted) : mIsShown(isWanted && isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() { Clear(); }

void Progress::Show(std::string text)
{
    constexpr std::size_t kRoomForEcho = 2; // of Ctrl-C
    if (!mIsShown) return;
    const std::size_t longest = Columns() - 1 - kRoomForEcho;
    text.resize(std::min(text.size(), longest));
    const std::size_t length = text.size();
    text.resize(std::max(length, std::min(mLength, longest)), ' ');
    std::cerr << '\r' + text; // one write
    mLength = length;
}

void Progress::Clear()
{
    if (mLength == 0) return;
    std::cerr << '\r' + std::string(Columns() - 1, ' ') + '\r';
    mLength = 0;
}

} // namespace zeb::tolvo::desk
