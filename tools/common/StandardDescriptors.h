#pragma once

namespace zeb::tolvo::desk
{

/// Makes sure that standard input, output and error are what the caller of the program means. One that was closed
/// becomes a descriptor of ZeroMQ, and what is written there would reach ZeroMQ. Call it before opening any descriptor.
/// @throws std::system_error that names the closed one.
void RequireStandardDescriptors();

} // namespace zeb::tolvo::desk
