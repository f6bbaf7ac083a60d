#pragma once

#include <zmq.h>

namespace zeb::tolvo::ipc
{

inline zmq_pollitem_t PollIn(void* socket) { return {socket, 0, ZMQ_POLLIN, 0}; }

inline bool IsReadable(const zmq_pollitem_t& item) { return (item.revents & ZMQ_POLLIN) != 0; }

} // namespace zeb::tolvo::ipc
