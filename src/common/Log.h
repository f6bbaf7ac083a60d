#pragma once

#include <zebl/RootLogger.h>

#include <pthread.h>

namespace zeb::tolvo::ipc
{

constexpr auto kLogError = static_cast<TolvoLogLevel>(3);
constexpr auto kLogNotice = static_cast<TolvoLogLevel>(5);
constexpr auto kLogInfo = static_cast<TolvoLogLevel>(6);
constexpr auto kLogTrace = static_cast<TolvoLogLevel>(7);

} // namespace zeb::tolvo::ipc

/// Prints "[thread][tag]" and the text. `format` is a literal that continues after the tag; the arguments are the tag
/// (a C string), then those of the format. None of them is evaluated when the level suppresses the line, and
/// nothing before them changes `errno`, so `zmq_errno()` may be one.
#define TOLVO_IPC_LOG(level, format, ...)                                                                              \
    do {                                                                                                               \
        ::zebl::Log::RootLogger& rootLogger = ::zebl::Log::RootLogger::GetInstance();                                  \
        if (rootLogger.mLevel->load(std::memory_order_relaxed) >= static_cast<unsigned char>(level))                   \
        {                                                                                                              \
            rootLogger.Print(level, "[%lu][%s]" format, static_cast<unsigned long>(pthread_self()), __VA_ARGS__);      \
        }                                                                                                              \
    } while (false)
