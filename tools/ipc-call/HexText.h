#pragma once

#include <ipc/ByteVector.h>

#include <string>

namespace zeb::tolvo::desk
{

/// @return one line for the reply, without a newline: its bytes in hex, then its printable ASCII between bars with a
/// dot for every other byte. "hi\n" becomes "68 69 0a  |hi.|".
std::string HexText(const ipc::ByteVector& reply);

} // namespace zeb::tolvo::desk
