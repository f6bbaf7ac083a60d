#include "Comparison.h"

#include <zebl/RootLogger.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <malloc.h>
#include <string>
#include <sys/resource.h>

namespace
{

/// Three times a hundred servers are more sockets than the usual limit allows.
void RaiseDescriptorLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// Whether malloc gives large bodies back to the system after each request, and gets them page by page for the next, is
/// a matter of chance and of twentyfold time at 1 MiB: it keeps them.
void KeepFreedMemory()
{
    constexpr int kMostMapped = 32 << 20;
    mallopt(M_MMAP_THRESHOLD, kMostMapped);
    mallopt(M_TRIM_THRESHOLD, 2 * kMostMapped);
}

} // namespace

int main(int argc, char** argv)
{
    using namespace zeb::tolvo::bench;
    benchmark::Initialize(&argc, argv);
    if (argc > 2 || (argc == 2 && std::atof(argv[1]) <= 0))
    {
        std::cerr << "usage: tolvo-ipc-bench [Google Benchmark's flags] [SHARE]\n"
                     "SHARE of the usual number of rounds, such as 0.1; 1 when it is not given\n";
        return 2;
    }
    zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Error);
    RaiseDescriptorLimit();
    KeepFreedMemory();
    AddRoundTrips();
    AddThroughput();
    AddPriorities();
    AddDealerClient();
    AddFifo();
    AddLifeCycle();
    AddConnectors();
    try
    {
        RunComparisons(benchmark::GetBenchmarkFilter(), argc == 2 ? std::atof(argv[1]) : 1);
        return EXIT_SUCCESS;
    }
    catch (const std::exception& failure)
    {
        std::cerr << "tolvo-ipc-bench: " << failure.what() << "\n";
        return EXIT_FAILURE;
    }
}
