#include "common/CommandLine.h"
#include "common/StandardDescriptors.h"
#include "ipc-call/Caller.h"
#include "ipc-call/FailureText.h"
#include "ipc-call/StandardStreams.h"

#include <zebl/RootLogger.h>

#include <exception>
#include <limits>
#include <string>

namespace
{

using namespace zeb::tolvo::desk;
using zeb::tolvo::StatusCode;
using zeb::tolvo::ipc::ByteVector;

struct Options
{
    std::string endpoint;
    int timeoutMs = 5000;
    bool isByLine = false;
};

void Complain(const std::string& text)
{
    zebl::Log::RootLogger::GetInstance().Print(TolvoLogLevel::Critical, "tolvo-ipc-call: %s", text.c_str());
}

/// @return whether the request was answered.
bool Exchange(Caller& caller, const ByteVector& request, const Options& options)
{
    ByteVector reply;
    const StatusCode status = caller.Call(request, reply);
    if (status == StatusCode::Success)
        Write(reply, options.isByLine ? "\n" : "");
    else
        Complain(FailureText(status, options.timeoutMs));
    return status == StatusCode::Success;
}

/// @return whether every request was answered.
bool Run(const Options& options)
{
    RequireStandardDescriptors();
    Caller caller(options.endpoint, options.timeoutMs);
    if (!options.isByLine) return Exchange(caller, ReadAll(), options);

    bool isAllAnswered = true;
    for (ByteVector line; ReadLine(line);)
    {
        if (!Exchange(caller, line, options)) isAllAnswered = false;
    }
    return isAllAnswered;
}

} // namespace

int main(int argc, char** argv)
{
    zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Critical);
    Options options;
    CLI::App app(
        "Sends standard input as one request to the service at ENDPOINT and writes its reply to standard output.",
        "tolvo-ipc-call");
    app.add_option("ENDPOINT", options.endpoint, "ZeroMQ endpoint, such as ipc:///tmp/desk/clients/status")
        ->required()
        ->type_name("");
    app.add_option("--timeout", options.timeoutMs, "how long to wait for each reply; -1 waits without limit")
        ->check(CLI::Range(-1, std::numeric_limits<int>::max()))
        ->capture_default_str()
        ->type_name("MS");
    app.add_flag("--lines", options.isByLine, "send each line as a request and write each reply on a line");
    if (const auto exitCode = ParseCommandLine(app, argc, argv)) return *exitCode;

    try
    {
        return Run(options) ? 0 : kExitFailure;
    }
    catch (const std::exception& failure)
    {
        Complain(failure.what());
        return kExitFailure;
    }
}
