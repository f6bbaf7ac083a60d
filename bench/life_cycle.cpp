#include "Comparison.h"
#include "Peers.h"

#include <chrono>
#include <malloc.h>

namespace zeb::tolvo::bench
{

namespace
{

/// @return seconds.
template <typename Operation>
double Time(const Operation& operation)
{
    const auto start = std::chrono::steady_clock::now();
    operation();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// From nothing to the first answer.
template <typename Way>
struct Start
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        Servers<Way> servers(transport);
        const ByteVector body(parameters.bytes, 'x');
        const auto start = [&] {
            while (servers.Count() < parameters.count)
            {
                servers.Add();
                servers.Exchange(body, servers.Count() - 1);
            }
        };
        for (auto _ : state) state.SetIterationTime(Time(start) / static_cast<double>(parameters.count));
    }

    std::string transport;
};

/// What a stop takes beyond the half second that it always takes.
template <typename Way>
struct Stop
{
    void Run(benchmark::State& state, const Parameters& /*parameters*/)
    {
        constexpr double kStopDelay = 0.5; // seconds
        Servers<Way> server("ipc", 1);
        for (auto _ : state) state.SetIterationTime(Time([&] { server.Last().Stop(); }) - kStopDelay);
    }
};

std::size_t HeapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/// Heap that each of `connectors` takes, ZeroMQ's part included.
template <typename Operation>
void MeasureHeap(benchmark::State& state, std::size_t connectors, const Operation& makeOne)
{
    for (auto _ : state)
    {
        const std::size_t before = HeapInUse();
        for (std::size_t made = 0; made < connectors; ++made) makeOne();
        state.counters["bytes"] = static_cast<double>(HeapInUse() - before) / static_cast<double>(connectors);
        state.SetIterationTime(1); // not a matter of time
    }
}

/// Of servers that have registered.
template <typename Way>
struct ServerMemory
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        Servers<Way> servers("ipc");
        MeasureHeap(state, parameters.count, [&] { servers.Add(); });
    }
};

/// Of clients that have had a reply.
template <typename Way>
struct ClientMemory
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        const Wiring wiring("ipc");
        const EchoPeer peer(wiring.GetPeerContext(), wiring.Endpoint("clients"));
        std::vector<std::unique_ptr<typename Way::Client>> clients;
        const ByteVector request(16, 'x');
        ByteVector response = request;
        MeasureHeap(state, parameters.count, [&] {
            clients.push_back(
                std::make_unique<typename Way::Client>(wiring.GetConnectorContext(), wiring.Endpoint("clients")));
            Ask(*clients.back(), request, response);
        });
    }
};

} // namespace

void CompareLifeCycle(const Choice& choice)
{
    constexpr std::size_t kServers = 4; // of one measurement: they stop at the same time
    for (const std::string transport : {"ipc", "inproc"})
        Compare<Start>(choice, {"start/" + transport, 1, 12, Clock::ManualOnce}, {{"", 16, kServers}}, transport);
    Compare<Stop>(choice, {"stop/ipc", 1, 12, Clock::ManualOnce}, {{""}});

    const std::vector<Parameters> counts = {{"1", 0, 1}, {"10", 0, 10}, {"100", 0, 100}};
    Compare<ServerMemory>(choice, {"memory/server", 1, 3, Clock::ManualOnce}, counts);
    Compare<ClientMemory>(choice, {"memory/client", 1, 3, Clock::ManualOnce}, counts);
}

} // namespace zeb::tolvo::bench
