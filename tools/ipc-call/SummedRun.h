#pragma once

#include "ipc-call/Caller.h"
#include "ipc-call/Options.h"

#include <ipc/ByteVector.h>

#include <vector>

namespace zeb::tolvo::desk
{

/// Sends the requests as `--repeat` and `--parallel` say and writes a summary to standard output. SIGINT and SIGTERM
/// still end the process, after a summary of what was done until then. Call it before there is another thread.
/// @return whether every request was answered.
bool RunSummed(const CallerMaker& maker, std::vector<ipc::ByteVector> requests, const Options& options);

} // namespace zeb::tolvo::desk
