#include "Comparison.h"

#include <algorithm>
#include <future>
#include <iostream>

namespace zeb::tolvo::bench
{

namespace
{

class LineReporter : public benchmark::BenchmarkReporter
{
public:
    explicit LineReporter(Clock clock) : mClock(clock) {}

    bool ReportContext(const Context& /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
        {
            std::cout << run.run_name.function_name << ' '
                      << (mClock == Clock::Processor ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime());
            for (const auto& [name, counter] : run.counters) std::cout << ' ' << name << '=' << counter.value;
            std::cout << std::endl;
        }
    }

private:
    Clock mClock;
};

/// At the same time, for the stop of a server takes half a second.
void Release(const std::vector<Side>& sides)
{
    std::vector<std::future<void>> releases;
    for (const Side& side : sides) releases.push_back(std::async(std::launch::async, side.release));
    for (std::future<void>& release : releases) release.get();
}

} // namespace

void RunGroup(const Choice& choice, const Group& group, const std::vector<Parameters>& cases,
              const std::vector<Side>& sides)
{
    std::vector<std::string> chosen;
    for (const Parameters& each : cases)
    {
        const std::string name = group.name + (each.label.empty() ? "" : "/" + each.label);
        if (!std::regex_search(name, choice.cases)) continue;
        chosen.push_back(name);
        for (const Side& side : sides)
        {
            const auto run = [&](benchmark::State& state) { side.run(state, each); };
            auto* const added = benchmark::RegisterBenchmark((name + "/" + side.name).c_str(), run);
            if (group.clock == Clock::Processor)
                added->MeasureProcessCPUTime()->UseRealTime();
            else
                added->UseManualTime();
            if (group.clock == Clock::ManualOnce) added->Iterations(1);
        }
    }
    if (chosen.empty()) return;

    std::cerr << group.name << std::endl;
    LineReporter reporter(group.clock);
    const auto turns = sides.size() * static_cast<std::size_t>(std::max(1.0, group.rounds * choice.share));
    for (int sitting = 0; sitting < group.sittings; ++sitting)
    {
        for (const std::string& name : chosen)
        {
            for (std::size_t turn = 0; turn < turns; ++turn)
            {
                const Side& side = sides[(turn + turn / sides.size()) % sides.size()];
                benchmark::RunSpecifiedBenchmarks(&reporter, "^" + name + "/" + side.name + "(/|$)");
            }
        }
        Release(sides);
    }
    benchmark::ClearRegisteredBenchmarks();
}

} // namespace zeb::tolvo::bench
