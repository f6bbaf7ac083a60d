#include "Comparison.h"

#include <zebl/RootLogger.h>

#include <cstdlib>
#include <exception>
#include <iostream>

namespace
{

void Run(int argc, char** argv)
{
    using namespace zeb::tolvo::bench;
    const Choice choice{std::regex(benchmark::GetBenchmarkFilter()), argc == 2 ? std::stod(argv[1]) : 1};
    CompareRoundTrips(choice);
    CompareThroughput(choice);
    ComparePriorities(choice);
    CompareClientSide(choice);
    CompareLifeCycle(choice);
}

} // namespace

// tolvo-ipc-bench [Google Benchmark's flags] [SHARE]: SHARE of the usual number of rounds, such as 0.1.
int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Error);
    try
    {
        Run(argc, argv);
    }
    catch (const std::exception& failure)
    {
        std::cerr << "tolvo-ipc-bench: " << failure.what() << "\n";
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
