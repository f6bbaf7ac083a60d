#pragma once

#include "common/Log.h"

#include <tolvo/StatusCode.h>

#include <zmq.h>

namespace zeb::tolvo::ipc
{

// Made from the numbers: the names of the enumerators belong to the device's foundation library.
constexpr StatusCode kSuccess{0};
constexpr StatusCode kFailure{1};
constexpr StatusCode kInterrupted{12};
constexpr StatusCode kBlockingForbidden{27};
constexpr StatusCode kTimedOut{76};

} // namespace zeb::tolvo::ipc

/// Directly after a failed ZeroMQ call: reads its error number once, logs the line with that number as the last
/// argument, and yields the status made from it. The arguments are those of `TOLVO_IPC_LOG` without the number.
#define TOLVO_IPC_ZMQ_FAILURE(format, ...)                                                                             \
    [&] {                                                                                                              \
        const int zmqError = zmq_errno();                                                                              \
        TOLVO_IPC_LOG(kLogError, format, __VA_ARGS__, zmqError);                                                       \
        return MakeStatusCodeFromErrno(zmqError);                                                                      \
    }()
