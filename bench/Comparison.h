#pragma once

#include "Ways.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zeb::tolvo::bench
{

struct Parameters
{
    std::string label; ///< last part of the case's name
    std::size_t bytes = 0;
    std::size_t count = 0;
};

enum class Clock
{
    Processor,  ///< processor time of the process, all threads of all sides
    Manual,     ///< the case sets the time of each iteration
    ManualOnce, ///< so, and one iteration is a measurement
};

/// Cases that share one set of servers, clients and peers for each way.
struct Group
{
    std::string name;
    int sittings; ///< each has a fresh set: where its memory lies may matter more than what is compared
    int rounds;   ///< of each sitting
    Clock clock;
};

/// Runs every case whose name matches `pattern`: in each round first one way, then the next, then the third, and the
/// first moves on by one from round to round. Writes Google Benchmark's JSON to standard output.
/// @param share of the groups' rounds
void RunComparisons(const std::string& pattern, double share);

void AddBenchmark(const Group& group, const std::string& label, const std::string& way,
                  const std::function<void(benchmark::State&)>& run, const std::function<void()>& release);

template <typename Bench, typename... Arguments>
void AddWay(const Group& group, const std::vector<Parameters>& cases, const std::string& way, Arguments... arguments)
{
    const auto bench = std::make_shared<std::unique_ptr<Bench>>(); // made when it is first needed
    for (const Parameters& parameters : cases)
    {
        const auto run = [=](benchmark::State& state) {
            if (*bench == nullptr) *bench = std::make_unique<Bench>(arguments...);
            (*bench)->Run(state, parameters);
        };
        AddBenchmark(group, parameters.label, way, run, [=] { bench->reset(); });
    }
}

/// Adds the cases of one group. Plain ZeroMQ runs twice, on sockets of its own each time: how far its two results lie
/// apart shows what a difference between plain ZeroMQ and the library may mean.
/// @tparam Bench made from `arguments`, once for each way; its `Run(state, parameters)` measures.
template <template <typename> class Bench, typename... Arguments>
void Compare(const Group& group, const std::vector<Parameters>& cases, Arguments... arguments)
{
    AddWay<Bench<Plain>>(group, cases, "plain", arguments...);
    AddWay<Bench<Library>>(group, cases, "library", arguments...);
    AddWay<Bench<Plain>>(group, cases, "plain-again", arguments...);
}

void AddRoundTrips();
void AddThroughput();
void AddPriorities();
void AddDealerClient();
void AddFifo();
void AddLifeCycle();
void AddConnectors();

} // namespace zeb::tolvo::bench
