#pragma once

#include <vector>

namespace zeb::tolvo::ipc
{

/// The body of a request, a response or a registration message. The library never interprets it.
using ByteVector = std::vector<unsigned char>;

} // namespace zeb::tolvo::ipc
