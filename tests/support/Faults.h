#pragma once

#include <string>
#include <vector>

/// ZeroMQ and system calls of the library pass through this program, where they can be seen and made to fail.
namespace faults
{

/// The next call of `function` fails with `error`, or the one after `skip` further ones. Several may be armed.
void Fail(const std::string& function, int error, int skip = 0);

/// Starts to note the calls, for instance "zmq_connect inproc://a" or "zmq_close DEALER".
void Record();

/// The calls noted since `Record`, those that begin with one of `functions` only if any is named. A socket closed by
/// another thread than the one that made it is noted as such.
std::vector<std::string> Recorded(const std::vector<std::string>& functions = {});

/// Ends the recording and disarms what has not failed.
void Stop();

/// Sleeps of the library end at once. The first is interrupted by a signal with 0.3 s remaining.
void ShortenSleeps();

/// Forgets everything armed and recorded.
void Reset();

} // namespace faults
