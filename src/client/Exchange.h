#pragma once

#include <ipc/ByteVector.h>

#include <tolvo/StatusCode.h>

#include <zmq.h>

namespace zeb::tolvo::ipc
{

/// Waits until one of the items is readable, for `timeout` milliseconds at most. Failures and the time-out are logged
/// under `tag`.
/// @return success also when polling failed with error number 0: no item is then marked readable.
StatusCode AwaitReadable(zmq_pollitem_t* items, int count, int timeout, const char* tag);

/// Receives one frame from a readable socket and replaces `response` with its bytes. A failure is logged under `tag`
/// and leaves `response` as it was.
StatusCode ReceiveResponse(void* socket, ByteVector& response, const char* tag);

} // namespace zeb::tolvo::ipc
