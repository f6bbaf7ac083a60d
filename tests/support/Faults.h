#pragma once

#include <atomic>
#include <string>
#include <vector>

/// ZeroMQ and system calls of the library pass through this program, where they can be seen and made to fail.
namespace faults
{

/// The next calls of `function` fail with `error`, so many `times`, after `skip` further ones. One fault for each
/// function.
void Fail(const std::string& function, int error, int skip = 0, int times = 1);

/// Starts to note the calls, for instance "zmq_connect inproc://a" or "zmq_close DEALER". The second socket of a type
/// that is made from now on is "DEALER2", and so on.
void Record();

/// The calls noted since `Record` that begin with a match of the regular expression. A socket closed by another thread
/// than the one that made it is noted as such.
std::vector<std::string> Recorded(const std::string& beginning = "");

/// Ends the recording and disarms what has not failed.
void Reset();

/// Whether a stop's half second ends at once, interrupted by a signal with 0.3 s remaining.
inline std::atomic<bool> areSleepsShort{false};

} // namespace faults
