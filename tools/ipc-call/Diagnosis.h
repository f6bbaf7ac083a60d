#pragma once

#include <tolvo/StatusCode.h>

#include <string>

namespace zeb::tolvo::desk
{

/// Why a request with this time-out has failed, in words.
std::string FailureText(StatusCode status, int timeoutMs);

/// As `FailureText`. After a time-out it also looks whether anybody listens at the endpoint, by one connect of the
/// system's own, which takes a second at most: "no reply within 50 ms: nobody listens at clients/status".
std::string Diagnosis(StatusCode status, int timeoutMs, const std::string& endpoint);

} // namespace zeb::tolvo::desk
