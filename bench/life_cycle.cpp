#include "Comparison.h"
#include "EchoServers.h"

#include <chrono>
#include <malloc.h>

namespace zeb::tolvo::bench
{

namespace
{

using SteadyClock = std::chrono::steady_clock;

double SecondsSince(SteadyClock::time_point start)
{
    return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

/// From nothing to the first answer.
template <typename Way>
class Start
{
public:
    explicit Start(const std::string& transport) : mTransport(transport) {}

    void Run(benchmark::State& state, const Parameters& parameters)
    {
        EchoServers<Way> servers(mTransport);
        const ByteVector body(parameters.bytes, 'x');
        for (auto _ : state)
        {
            const auto start = SteadyClock::now();
            while (servers.Count() < parameters.count)
            {
                servers.Add();
                servers.Exchange(body, servers.Count() - 1);
            }
            state.SetIterationTime(SecondsSince(start) / static_cast<double>(parameters.count));
        }
    }

private:
    std::string mTransport;
};

/// What a stop takes beyond the half second that it always takes.
template <typename Way>
class Stop
{
public:
    void Run(benchmark::State& state, const Parameters& /*parameters*/)
    {
        constexpr double kStopDelay = 0.5; // seconds
        EchoServers<Way> server("ipc", 1);
        for (auto _ : state)
        {
            const auto start = SteadyClock::now();
            server.Last().Stop();
            state.SetIterationTime(SecondsSince(start) - kStopDelay);
        }
    }
};

std::size_t HeapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void ReportBytes(benchmark::State& state, std::size_t bytes, std::size_t connectors)
{
    state.counters["bytes"] = static_cast<double>(bytes) / static_cast<double>(connectors);
    state.SetIterationTime(1); // not a matter of time
}

/// Heap of a process for each server that has registered, ZeroMQ's part included.
template <typename Way>
class ServerMemory
{
public:
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        EchoServers<Way> servers("ipc");
        for (auto _ : state)
        {
            const std::size_t before = HeapInUse();
            while (servers.Count() < parameters.count) servers.Add();
            ReportBytes(state, HeapInUse() - before, parameters.count);
        }
    }
};

/// Heap of a process for each client that has had a reply, ZeroMQ's part included.
template <typename Way>
class ClientMemory
{
public:
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        const Wiring wiring("ipc");
        const EchoPeer peer(wiring.GetPeerContext(), wiring.Endpoint("clients"));
        std::vector<std::unique_ptr<typename Way::Client>> clients;
        const ByteVector request(16, 'x');
        ByteVector response = request;
        for (auto _ : state)
        {
            const std::size_t before = HeapInUse();
            while (clients.size() < parameters.count)
            {
                clients.push_back(
                    std::make_unique<typename Way::Client>(wiring.GetConnectorContext(), wiring.Endpoint("clients")));
                Ask(*clients.back(), request, response);
            }
            ReportBytes(state, HeapInUse() - before, parameters.count);
        }
    }
};

} // namespace

void AddLifeCycle()
{
    constexpr std::size_t kServers = 4; // of one measurement: they stop at the same time
    for (const std::string transport : {"ipc", "inproc"})
        Compare<Start>({"start/" + transport, 1, 12, Clock::ManualOnce}, {{"", 16, kServers}}, transport);
    Compare<Stop>({"stop/ipc", 1, 12, Clock::ManualOnce}, {{""}});

    const std::vector<Parameters> counts = {{"1", 0, 1}, {"10", 0, 10}, {"100", 0, 100}};
    Compare<ServerMemory>({"memory/server", 1, 3, Clock::ManualOnce}, counts);
    Compare<ClientMemory>({"memory/client", 1, 3, Clock::ManualOnce}, counts);
}

} // namespace zeb::tolvo::bench
