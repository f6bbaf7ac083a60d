#pragma once

#include <zebl/RootLogger.h>

#include <cerrno>
#include <pthread.h>

namespace zeb::tolvo::ipc
{

// Made from syslog's numbers: the names of the enumerators belong to the device's logging library.
constexpr auto kLogError = static_cast<TolvoLogLevel>(3);
constexpr auto kLogNotice = static_cast<TolvoLogLevel>(5);
constexpr auto kLogInfo = static_cast<TolvoLogLevel>(6);
constexpr auto kLogTrace = static_cast<TolvoLogLevel>(7);

} // namespace zeb::tolvo::ipc

/// Prints "[thread][tag]" and the text. `format` is a literal that continues after the tag; the arguments are the tag
/// (a C string), then those of the format. None of them is evaluated when the level suppresses the line. They find
/// `errno` as it was before: a logger that is built on first use may change it. So `zmq_errno()` may be one.
#define TOLVO_IPC_LOG(level, format, ...)                                                                              \
    do {                                                                                                               \
        const int errorBefore = errno;                                                                                 \
        ::zebl::Log::RootLogger& rootLogger = ::zebl::Log::RootLogger::GetInstance();                                  \
        if (rootLogger.mLevel->load(std::memory_order_relaxed) >= static_cast<unsigned char>(level))                   \
        {                                                                                                              \
            errno = errorBefore;                                                                                       \
            rootLogger.Print(level, "[%lu][%s]" format, static_cast<unsigned long>(pthread_self()), __VA_ARGS__);      \
        }                                                                                                              \
    } while (false)
