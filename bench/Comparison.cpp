#include "Comparison.h"

#include <algorithm>
#include <future>
#include <iostream>
#include <iterator>
#include <regex>

namespace zeb::tolvo::bench
{

namespace
{

struct Benchmark
{
    std::string name;
    std::function<void()> release;
};

struct Case
{
    std::string name;
    Group group;
    std::vector<Benchmark> ways;
};

std::vector<Case>& Cases()
{
    static std::vector<Case> sCases;
    return sCases;
}

/// Makes one document of many runs.
class JoinedReporter : public benchmark::JSONReporter
{
public:
    bool ReportContext(const Context& context) override
    {
        if (mIsStarted) return true;
        mIsStarted = true;
        return JSONReporter::ReportContext(context);
    }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
        {
            if (run.error_occurred) throw std::runtime_error(run.benchmark_name() + ": " + run.error_message);
        }
        JSONReporter::ReportRuns(runs);
    }

    void Finalize() override {}

    void End()
    {
        if (mIsStarted) JSONReporter::Finalize();
    }

private:
    bool mIsStarted = false;
};

/// At the same time, for the stop of a server takes half a second.
void ReleaseSet(const Case& user)
{
    std::vector<std::future<void>> releases;
    for (const Benchmark& way : user.ways) releases.push_back(std::async(std::launch::async, way.release));
    for (std::future<void>& release : releases) release.get();
}

void RunRounds(const Case& chosen, int rounds, JoinedReporter& reporter)
{
    const std::size_t ways = chosen.ways.size();
    for (std::size_t turn = 0; turn < ways * static_cast<std::size_t>(rounds); ++turn)
    {
        const std::size_t way = (turn + turn / ways) % ways;
        benchmark::RunSpecifiedBenchmarks(&reporter, "^" + chosen.ways[way].name + "(/|$)");
    }
}

} // namespace

void AddBenchmark(const Group& group, const std::string& label, const std::string& way,
                  const std::function<void(benchmark::State&)>& run, const std::function<void()>& release)
{
    const std::string name = group.name + (label.empty() ? "" : "/" + label);
    auto* const added = benchmark::RegisterBenchmark((name + "/" + way).c_str(), run);
    if (group.clock == Clock::Processor)
        added->MeasureProcessCPUTime()->UseRealTime();
    else
        added->UseManualTime();
    if (group.clock == Clock::ManualOnce) added->Iterations(1);

    const auto isSame = [&](const Case& other) { return other.name == name; };
    auto found = std::find_if(Cases().begin(), Cases().end(), isSame);
    if (found == Cases().end()) found = Cases().insert(found, {name, group, {}});
    found->ways.push_back({name + "/" + way, release});
}

void RunComparisons(const std::string& pattern, double share)
{
    const std::regex wanted(pattern);
    std::vector<Case> cases;
    std::copy_if(Cases().begin(), Cases().end(), std::back_inserter(cases),
                 [&](const Case& each) { return std::regex_search(each.name, wanted); });

    JoinedReporter reporter;
    for (auto first = cases.begin(); first != cases.end();)
    {
        const Group& group = first->group;
        const auto last =
            std::find_if(first, cases.end(), [&](const Case& each) { return each.group.name != group.name; });
        std::cerr << group.name << std::endl;
        const int rounds = std::max(1, static_cast<int>(group.rounds * share));
        for (int sitting = 0; sitting < group.sittings; ++sitting)
        {
            std::for_each(first, last, [&](const Case& each) { RunRounds(each, rounds, reporter); });
            ReleaseSet(*first);
        }
        first = last;
    }
    reporter.End();
}

} // namespace zeb::tolvo::bench
