#pragma once

#include "Ways.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <regex>
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

/// Cases that share one set of servers, clients and peers for each side.
struct Group
{
    std::string name;
    int sittings; ///< each has a fresh set: where its memory lies may matter more than what is compared
    int rounds;   ///< of each sitting
    Clock clock;
};

struct Choice
{
    std::regex cases;
    double share; ///< of each group's rounds
};

struct Side
{
    std::string name;
    std::function<void(benchmark::State&, const Parameters&)> run;
    std::function<void()> release;
};

template <typename Bench, typename... Arguments>
Side MakeSide(const std::string& name, const Arguments&... arguments)
{
    const auto bench = std::make_shared<std::unique_ptr<Bench>>(); // made when it is first needed
    return {name,
            [=](benchmark::State& state, const Parameters& parameters) {
                if (*bench == nullptr) bench->reset(new Bench{arguments...});
                (*bench)->Run(state, parameters);
            },
            [=] { bench->reset(); }};
}

/// Runs the chosen cases: in each round first one side, then the next, then the third, and the first moves on by one
/// from round to round. Writes a line for each run: case and side, nanoseconds, counters.
void RunGroup(const Choice& choice, const Group& group, const std::vector<Parameters>& cases,
              const std::vector<Side>& sides);

/// Runs the cases of one group. Plain ZeroMQ runs twice, on sockets of its own each time: how far its two results lie
/// apart shows what a difference between plain ZeroMQ and the library may mean.
/// @tparam Bench made from `arguments`, once for each side; its `Run(state, parameters)` measures.
template <template <typename> class Bench, typename... Arguments>
void Compare(const Choice& choice, const Group& group, const std::vector<Parameters>& cases,
             const Arguments&... arguments)
{
    RunGroup(choice, group, cases,
             {MakeSide<Bench<Plain>>("plain", arguments...), MakeSide<Bench<Library>>("library", arguments...),
              MakeSide<Bench<Plain>>("plain-again", arguments...)});
}

void CompareRoundTrips(const Choice& choice);
void CompareThroughput(const Choice& choice);
void ComparePriorities(const Choice& choice);
void CompareClientSide(const Choice& choice);
void CompareLifeCycle(const Choice& choice);

} // namespace zeb::tolvo::bench
