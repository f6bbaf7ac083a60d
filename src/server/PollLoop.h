#pragma once

#include <zmq.h>

#include <cstddef>

namespace zeb::tolvo::ipc
{

/// Waits without time-out until an item is readable; a signal does not end the wait.
/// @return false when polling has failed, which is logged under `tag`.
bool WaitForEvents(zmq_pollitem_t* items, int count, const char* tag);

template <std::size_t Count>
bool WaitForEvents(zmq_pollitem_t (&items)[Count], const char* tag)
{
    return WaitForEvents(items, static_cast<int>(Count), tag);
}

} // namespace zeb::tolvo::ipc
