#include "Comparison.h"
#include "Peers.h"

#include <poll.h>

namespace zeb::tolvo::bench
{

namespace
{

/// A client that makes fresh sockets for every request.
template <typename Way>
class DealerClient
{
public:
    explicit DealerClient(const std::string& transport) : mWiring(transport)
    {
        Require(zmq_bind(mInterrupter.get(), mWiring.Endpoint("interrupts").c_str()) == 0, "zmq_bind");
    }

    void Run(benchmark::State& state, const Parameters& parameters)
    {
        const ByteVector request(parameters.bytes, 'x');
        ByteVector response;
        for (auto _ : state)
        {
            Ask(mClient, request, response);
            if (++mAsked % kAsksBetweenLooks == 0) LookAtInterrupter();
        }
    }

private:
    static constexpr std::size_t kAsksBetweenLooks = 64;

    /// Over inproc a closed subscriber is only freed when its publisher is used.
    void LookAtInterrupter()
    {
        int events = 0;
        std::size_t size = sizeof events;
        Require(zmq_getsockopt(mInterrupter.get(), ZMQ_EVENTS, &events, &size) == 0, "zmq_getsockopt");
    }

    std::size_t mAsked = 0;
    Wiring mWiring;
    Socket mInterrupter = MakeSocket(mWiring.GetPeerContext(), ZMQ_PUB);
    EchoPeer mPeer{mWiring.GetPeerContext(), mWiring.Endpoint("clients")};
    typename Way::DealerClient mClient{mWiring.GetConnectorContext(), mWiring.Endpoint("clients"),
                                       mWiring.Endpoint("interrupts")};
};

/// Responses are pushed by a number of threads and popped by one that polls, or, with no other thread, in turn.
template <typename Way>
class Fifo
{
public:
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        const ByteVector response(parameters.bytes, 'x');
        if (parameters.count == 0)
        {
            for (auto _ : state)
            {
                mFifo.Push(response);
                benchmark::DoNotOptimize(mFifo.Pop());
            }
            return;
        }
        for (auto _ : state) PassAlong(parameters.count, response);
        state.counters["responses"] = static_cast<double>(parameters.count * kPushes); // of an iteration
    }

private:
    static constexpr std::size_t kPushes = 1000; // of each thread

    void PassAlong(std::size_t producers, const ByteVector& response)
    {
        std::vector<std::thread> threads;
        while (threads.size() < producers)
        {
            threads.emplace_back([&] {
                for (std::size_t pushed = 0; pushed < kPushes; ++pushed) mFifo.Push(response);
            });
        }
        pollfd readable{mFifo.GetReadFd(), POLLIN, 0};
        for (std::size_t popped = 0; popped < producers * kPushes; ++popped)
        {
            poll(&readable, 1, -1);
            benchmark::DoNotOptimize(mFifo.Pop());
        }
        for (std::thread& thread : threads) thread.join();
    }

    typename Way::Fifo mFifo;
};

} // namespace

void AddDealerClient()
{
    for (const std::string transport : {"ipc", "inproc"})
        Compare<DealerClient>({"dealer-client/" + transport, 5, 8, Clock::Processor}, {{"16", 16}}, transport);
}

void AddFifo() { Compare<Fifo>({"fifo", 5, 8, Clock::Processor}, {{"alone", 16, 0}, {"4-producers", 16, 4}}); }

} // namespace zeb::tolvo::bench
