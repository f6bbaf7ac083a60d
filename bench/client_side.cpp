#include "Comparison.h"
#include "Peers.h"

#include <poll.h>

namespace zeb::tolvo::bench
{

namespace
{

/// Fresh sockets for every request.
template <typename Way>
struct DealerClient
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        const ByteVector request(parameters.bytes, 'x');
        ByteVector response;
        for (auto _ : state)
        {
            Ask(client, request, response);
            if (++asked % kAsksBetweenLooks == 0) LookAtInterrupter();
        }
    }

    static constexpr std::size_t kAsksBetweenLooks = 64;

    /// Over inproc a closed subscriber is only freed when its publisher is used.
    void LookAtInterrupter()
    {
        int events = 0;
        std::size_t size = sizeof events;
        Require(zmq_getsockopt(interrupter.Get(), ZMQ_EVENTS, &events, &size) == 0, "zmq_getsockopt");
    }

    std::string transport;
    Wiring wiring{transport};
    ZmqSocket interrupter = MakeBound(wiring.GetPeerContext(), ZMQ_PUB, wiring.Endpoint("interrupts"));
    EchoPeer peer{wiring.GetPeerContext(), wiring.Endpoint("clients")};
    typename Way::DealerClient client{wiring.GetConnectorContext(), wiring.Endpoint("clients"),
                                      wiring.Endpoint("interrupts")};
    std::size_t asked = 0;
};

/// Responses are pushed by a number of threads and popped by one that polls, or, with no other thread, in turn.
template <typename Way>
struct Fifo
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        RequireSuccess(status, "Initialize");
        const ByteVector response(parameters.bytes, 'x');
        if (parameters.count == 0)
        {
            for (auto _ : state)
            {
                fifo.PushResponse(response);
                benchmark::DoNotOptimize(fifo.PopResponse());
            }
            return;
        }
        for (auto _ : state) PassAlong(parameters.count, response);
        state.counters["responses"] = static_cast<double>(parameters.count * kPushes); // of an iteration
    }

    static constexpr std::size_t kPushes = 1000; // of each thread

    void PassAlong(std::size_t producers, const ByteVector& response)
    {
        std::vector<std::thread> threads;
        while (threads.size() < producers)
        {
            threads.emplace_back([&] {
                for (std::size_t pushed = 0; pushed < kPushes; ++pushed) fifo.PushResponse(response);
            });
        }
        pollfd readable{fifo.GetReadFd(), POLLIN, 0};
        for (std::size_t popped = 0; popped < producers * kPushes; ++popped)
        {
            poll(&readable, 1, -1);
            benchmark::DoNotOptimize(fifo.PopResponse());
        }
        for (std::thread& thread : threads) thread.join();
    }

    typename Way::Fifo fifo{};
    StatusCode status = fifo.Initialize();
};

} // namespace

void CompareClientSide(const Choice& choice)
{
    for (const std::string transport : {"ipc", "inproc"})
        Compare<DealerClient>(choice, {"dealer-client/" + transport, 5, 8, Clock::Processor}, {{"16", 16}}, transport);
    Compare<Fifo>(choice, {"fifo", 5, 8, Clock::Processor}, {{"alone", 16, 0}, {"4-producers", 16, 4}});
}

} // namespace zeb::tolvo::bench
