#include "Comparison.h"
#include "Peers.h"

#include <atomic>
#include <chrono>

namespace zeb::tolvo::bench
{

namespace
{

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kWork = 20us;                  // of each request
constexpr std::size_t kUnderWayPerClient = 8; // each flooding client's requests
constexpr int kOrdinaryBetweenUrgent = 45;    // no multiple of a burst, so that urgent ones come at any point of it

const ByteVector kOrdinary(16, 'o');
const ByteVector kUrgent(16, 'u');

/// An urgent request in the midst of ordinary ones. To the server, clients are what a router sends: one router keeps as
/// many requests under way as the clients would.
template <typename Way>
struct UrgentRequest
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        const std::size_t underWay = parameters.count * kUnderWayPerClient;
        for (std::size_t sent = 0; sent < underWay; ++sent) caller.Send(server.Identity(), kOrdinary);

        double answeredBefore = 0;
        for (auto _ : state)
        {
            for (int replies = 0; replies < kOrdinaryBetweenUrgent; ++replies) TakeReplyAndSend();
            const int answered = ordinaryAnswered;
            const auto start = SteadyClock::now();
            caller.Send(urgentIdentity, kUrgent);
            while (!TakeReplyAndSend())
            {
            }
            state.SetIterationTime(std::chrono::duration<double>(SteadyClock::now() - start).count());
            answeredBefore += answeredAtUrgent - answered;
        }
        for (std::size_t taken = 0; taken < underWay; ++taken) caller.Receive();
        state.counters["ordinary_before"] = answeredBefore / static_cast<double>(state.iterations());
    }

    void Handle(const ByteVector& request, ByteVector& response)
    {
        for (const auto end = SteadyClock::now() + kWork; SteadyClock::now() < end;)
        {
        }
        response = request;
        if (request == kUrgent)
            answeredAtUrgent = ordinaryAnswered.load();
        else
            ++ordinaryAnswered;
    }

    /// @return whether it was the urgent request's.
    bool TakeReplyAndSend()
    {
        if (*caller.Receive().Data() == kUrgent.front()) return true;
        caller.Send(server.Identity(), kOrdinary);
        return false;
    }

    std::string transport;
    ServerType type;
    std::atomic<int> ordinaryAnswered{0};
    std::atomic<int> answeredAtUrgent{0};
    Servers<Way> server{transport, 1, [this](auto& request, auto& response) { Handle(request, response); }, type};
    Caller& caller = server.GetCaller();
    std::string urgentIdentity = server.Identity() + (type == ServerType::TwoPriorities ? "RT" : "");
};

} // namespace

void ComparePriorities(const Choice& choice)
{
    const std::vector<Parameters> floods = {{"1-client", 0, 1}, {"4-clients", 0, 4}, {"16-clients", 0, 16}};
    for (const std::string transport : {"ipc", "inproc"})
    {
        Compare<UrgentRequest>(choice, {"urgent/two-priorities/" + transport, 4, 5, Clock::Manual}, floods, transport,
                               ServerType::TwoPriorities);
        Compare<UrgentRequest>(choice, {"urgent/one-priority/" + transport, 4, 5, Clock::Manual}, floods, transport,
                               ServerType::OnePriority);
    }
}

} // namespace zeb::tolvo::bench
