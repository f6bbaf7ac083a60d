#pragma once

#include <tolvo/StatusCode.h>

#include <string>

namespace zeb::tolvo::desk
{

/// Why a request with this time-out has failed, in words.
std::string FailureText(StatusCode status, int timeoutMs);

} // namespace zeb::tolvo::desk
