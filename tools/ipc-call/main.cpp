#include "common/StandardDescriptors.h"
#include "ipc-call/Caller.h"
#include "ipc-call/Diagnosis.h"
#include "ipc-call/HexText.h"
#include "ipc-call/Options.h"
#include "ipc-call/StandardStreams.h"
#include "ipc-call/SummedRun.h"

#include <zebl/RootLogger.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace zeb::tolvo::desk;
using zeb::tolvo::StatusCode;
using zeb::tolvo::ipc::ByteVector;

void Complain(const std::string& text) { std::cerr << "tolvo-ipc-call: " + text + '\n'; }

void WriteReply(ByteVector reply, const Options& options)
{
    if (options.isHex)
        Write(HexText(reply) + '\n');
    else
    {
        if (options.isByLine) reply.push_back('\n');
        Write(reply);
    }
}

/// Writes the reply, or says why there is none.
/// @param last how the request before it ended: what was found after a time-out still holds after the next one.
StatusCode Exchange(Caller& caller, const ByteVector& request, const Options& options, StatusCode last)
{
    ByteVector reply;
    const StatusCode status = caller.Call(request, reply);
    if (status == StatusCode::Success)
        WriteReply(std::move(reply), options);
    else
        Complain("the request failed: " + (status == last ? FailureText(status, options.timeoutMs)
                                                          : Diagnosis(status, options.timeoutMs, options.endpoint)));
    return status;
}

/// @return whether every line was answered.
bool ExchangeLines(Caller& caller, const Options& options)
{
    bool isAllAnswered = true;
    StatusCode last = StatusCode::Success;
    for (ByteVector line; ReadLine(line);)
    {
        last = Exchange(caller, line, options, last);
        if (last != StatusCode::Success) isAllAnswered = false;
    }
    return isAllAnswered;
}

std::vector<ByteVector> ReadRequests(bool isByLine)
{
    if (!isByLine) return {ReadAll()};
    std::vector<ByteVector> lines;
    for (ByteVector line; ReadLine(line);) lines.push_back(line);
    return lines;
}

/// @return whether every request was answered.
bool Run(const Options& options)
{
    RequireStandardDescriptors();
    const CallerMaker maker = MakeCallerMaker(options.endpoint, options.timeoutMs, options.interruptEndpoint);
    if (options.IsSummed()) return RunSummed(maker, ReadRequests(options.isByLine), options);
    const auto caller = maker();
    if (options.isByLine) return ExchangeLines(*caller, options);
    return Exchange(*caller, ReadAll(), options, StatusCode::Success) == StatusCode::Success;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    if (const auto exitCode = ReadOptions(argc, argv, options)) return *exitCode;
    zebl::Log::RootLogger::GetInstance().SetLevel(options.logLevel);
    try
    {
        return Run(options) ? 0 : EXIT_FAILURE;
    }
    catch (const std::exception& failure)
    {
        Complain(failure.what());
        return EXIT_FAILURE;
    }
}
