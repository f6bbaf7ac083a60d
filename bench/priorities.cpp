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
class UrgentRequest
{
public:
    UrgentRequest(const std::string& transport, ServerType type)
        : mWiring(transport),
          mUrgentIdentity(type == ServerType::TwoPriorities ? "floodRT" : "flood"),
          mServer(mWiring.GetConnectorContext(), mWiring.Endpoint("servers"), "flood", MakeHandler(), type)
    {
        mCaller.AwaitServer(mWiring, "flood");
        if (type == ServerType::TwoPriorities) mCaller.AwaitServer(mWiring, mUrgentIdentity);
    }

    void Run(benchmark::State& state, const Parameters& parameters)
    {
        const std::size_t underWay = parameters.count * kUnderWayPerClient;
        for (std::size_t sent = 0; sent < underWay; ++sent) mCaller.Send("flood", kOrdinary);

        double answeredBefore = 0;
        for (auto _ : state)
        {
            for (int replies = 0; replies < kOrdinaryBetweenUrgent; ++replies) TakeReplyAndSend();
            const int answered = mOrdinaryAnswered;
            const auto start = SteadyClock::now();
            mCaller.Send(mUrgentIdentity, kUrgent);
            while (!TakeReplyAndSend())
            {
            }
            state.SetIterationTime(std::chrono::duration<double>(SteadyClock::now() - start).count());
            answeredBefore += mAnsweredAtUrgent - answered;
        }
        for (std::size_t taken = 0; taken < underWay; ++taken) mCaller.Receive();
        state.counters["ordinary_before"] = answeredBefore / static_cast<double>(state.iterations());
    }

private:
    Handler MakeHandler()
    {
        return [this](const ByteVector& request, ByteVector& response) {
            for (const auto end = SteadyClock::now() + kWork; SteadyClock::now() < end;)
            {
            }
            response = request;
            if (request == kUrgent)
                mAnsweredAtUrgent = mOrdinaryAnswered.load();
            else
                ++mOrdinaryAnswered;
        };
    }

    /// @return whether it was the urgent request's.
    bool TakeReplyAndSend()
    {
        if (*mCaller.Receive().Data() == kUrgent.front()) return true;
        mCaller.Send("flood", kOrdinary);
        return false;
    }

    Wiring mWiring;
    Caller mCaller{mWiring.GetPeerContext(), mWiring.Endpoint("servers")};
    std::string mUrgentIdentity;
    std::atomic<int> mOrdinaryAnswered{0};
    std::atomic<int> mAnsweredAtUrgent{0};
    typename Way::Server mServer;
};

} // namespace

void AddPriorities()
{
    constexpr int kSittings = 4;
    constexpr int kRounds = 5;
    const std::vector<Parameters> floods = {{"1-client", 0, 1}, {"4-clients", 0, 4}, {"16-clients", 0, 16}};
    for (const std::string transport : {"ipc", "inproc"})
    {
        Compare<UrgentRequest>({"urgent/two-priorities/" + transport, kSittings, kRounds, Clock::Manual}, floods,
                               transport, ServerType::TwoPriorities);
        Compare<UrgentRequest>({"urgent/one-priority/" + transport, kSittings, kRounds, Clock::Manual}, floods,
                               transport, ServerType::OnePriority);
    }
}

} // namespace zeb::tolvo::bench
