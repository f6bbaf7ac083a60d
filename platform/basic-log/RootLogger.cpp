#include <zebl/RootLogger.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>
#include <type_traits>
#include <unistd.h>

namespace zebl::Log
{

namespace
{

constexpr std::size_t kUsualLine = 512;

void WriteLine(char* line, std::size_t length)
{
    line[length++] = '\n';
    while (length > 0)
    {
        const ssize_t written = write(STDERR_FILENO, line, length);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        line += written;
        length -= static_cast<std::size_t>(written);
    }
}

} // namespace

// Trivially destructible and constant-initialised: no destructor runs at exit, and first use allocates nothing.
static_assert(std::is_trivially_destructible_v<RootLogger>);

RootLogger& RootLogger::GetInstance()
{
    static RootLogger sInstance;
    return sInstance;
}

void RootLogger::Print(TolvoLogLevel level, const char* format, ...)
{
    if (static_cast<int>(level) > mLevel->load(std::memory_order_relaxed)) return;

    const int savedErrno = errno;
    std::array<char, kUsualLine> usual; // NOLINT(cppcoreguidelines-pro-type-member-init): vsnprintf fills it
    va_list arguments;
    va_start(arguments, format);
    const int formatted = vsnprintf(usual.data(), usual.size(), format, arguments);
    va_end(arguments);

    const std::size_t length = formatted < 0 ? 0 : static_cast<std::size_t>(formatted);
    if (length < usual.size())
    {
        WriteLine(usual.data(), length);
    }
    else if (const std::unique_ptr<char[]> whole{new (std::nothrow) char[length + 1]})
    {
        va_start(arguments, format);
        static_cast<void>(vsnprintf(whole.get(), length + 1, format, arguments));
        va_end(arguments);
        WriteLine(whole.get(), length);
    }
    else
    {
        WriteLine(usual.data(), usual.size() - 1);
    }
    errno = savedErrno;
}

void RootLogger::SetLevel(TolvoLogLevel level)
{
    mCurrentLevel.store(static_cast<unsigned char>(level), std::memory_order_relaxed);
}

} // namespace zebl::Log
