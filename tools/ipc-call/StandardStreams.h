#pragma once

#include <ipc/ByteVector.h>

#include <string_view>

namespace zeb::tolvo::desk
{

// Each operation throws `std::system_error` when its stream fails.

/// @return everything up to the end of standard input.
ipc::ByteVector ReadAll();

/// Replaces `line` with the next line of standard input, without its newline.
/// @return false at the end.
bool ReadLine(ipc::ByteVector& line);

/// Each writes to standard output at once.
void Write(const ipc::ByteVector& bytes);
void Write(std::string_view text);

} // namespace zeb::tolvo::desk
