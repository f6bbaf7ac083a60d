// What the convenience layer costs, opposite a peer that echoes: `Caller` against the connector below it, in turns, and
// one loop with an `AsyncCaller`. Run it on one processor (taskset), where processor time is that of a round trip.

#include "Peers.h"

#include <ipc/convenience/AsyncCaller.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <poll.h>

static thread_local int tAllocations = 0;

void* operator new(std::size_t size)
{
    ++tAllocations;
    void* const memory = std::malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace
{

using namespace zeb::tolvo;
using namespace std::chrono_literals;

double MicrosecondsOf(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) * 1e-3;
}

void CompareCaller(const std::string& endpoint, std::size_t size)
{
    constexpr std::size_t kRounds = 101;
    constexpr int kCalls = 200;
    ipc::convenience::WaitingAllowed mode;
    const auto connector = ipc::ZmqConnectorFactory::GetInstance().CreateZmqClientConnector(endpoint, mode);
    ipc::convenience::Caller caller(endpoint);
    const ipc::ByteVector request(size, 'x');
    ipc::ByteVector response;
    std::array<std::vector<double>, 3> results; // microseconds of the connector, of `Caller`, and their ratio
    std::array<int, 2> allocations{};
    for (std::size_t run = 0; run < 2 * kRounds; ++run)
    {
        const std::size_t way = (run + run / 2) % 2; // the first of a round is the second of the next
        const int before = tAllocations;
        const double start = MicrosecondsOf(CLOCK_PROCESS_CPUTIME_ID);
        for (int call = 0; call < kCalls; ++call)
            if (way == 0 ? connector->SendRequest(request, response, 5000) != StatusCode{0} : !caller.Call(request, 5s))
                throw std::runtime_error("no reply");
        results[way].push_back((MicrosecondsOf(CLOCK_PROCESS_CPUTIME_ID) - start) / kCalls);
        allocations[way] = (tAllocations - before) / kCalls;
        if (run % 2 == 1) results[2].push_back(results[1].back() / results[0].back());
    }
    for (auto& values : results) std::sort(values.begin(), values.end());
    std::printf("%5zu bytes: connector %.1f us, Caller %.1f us, ratio %.3f (%.3f to %.3f), allocations %d and %d\n",
                size, results[0][kRounds / 2], results[1][kRounds / 2], results[2][kRounds / 2],
                results[2][kRounds / 4], results[2][kRounds * 3 / 4], allocations[0], allocations[1]);
}

/// Microseconds of one call in a loop that has `underWay` at a time.
double MicrosecondsOfACall(const std::string& endpoint, int underWay)
{
    constexpr int kCalls = 20'000;
    ipc::convenience::AsyncCaller caller(endpoint);
    pollfd item{caller.GetFd(), POLLIN, 0};
    int ended = 0;
    const double start = MicrosecondsOf(CLOCK_MONOTONIC);
    for (int called = 0; ended < kCalls; caller.Dispatch())
    {
        for (const auto done = [&](const ipc::convenience::Reply&) { ++ended; };
             called < std::min(ended + underWay, kCalls) && caller.Call("sixteen bytes ok", 5s, done);)
            ++called;
        poll(&item, 1, -1);
    }
    return (MicrosecondsOf(CLOCK_MONOTONIC) - start) / kCalls;
}

} // namespace

int main()
{
    const bench::Wiring wiring("ipc");
    const bench::EchoPeer peer(wiring.GetPeerContext(), wiring.Endpoint("echo"));
    for (const std::size_t size : {std::size_t{16}, std::size_t{64} << 10})
        CompareCaller(wiring.Endpoint("echo"), size);
    std::printf("AsyncCaller, 16 bytes: round trip %.1f us", MicrosecondsOfACall(wiring.Endpoint("echo"), 1));
    std::printf(", %.0f calls a second of one loop\n", 1e6 / MicrosecondsOfACall(wiring.Endpoint("echo"), 500));
}
