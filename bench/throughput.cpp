#include "Comparison.h"
#include "EchoServers.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>

namespace zeb::tolvo::bench
{

namespace
{

/// A number of requests is under way to the server under test all the time: each reply lets the next request go. The
/// requests are numbered and answered in order, so a gap shows replies that were lost; others take their place at once.
/// Those that are lost while Google Benchmark looks for a number of iterations count as well: it doesn't report these
/// runs, so each reports what was lost since the program began.
template <typename Way>
class Throughput
{
public:
    explicit Throughput(const std::string& transport) : mTransport(transport), mServer(transport, 1) {}

    void Run(benchmark::State& state, const Parameters& parameters)
    {
        mBodies.assign(parameters.count, ByteVector(parameters.bytes, 'x'));
        mSent = mAnswered = mLost = 0;
        while (mSent < parameters.count) SendNext();
        for (auto _ : state)
        {
            TakeReply();
            while (mSent < mAnswered + parameters.count) SendNext();
        }
        while (mAnswered < mSent && mServer.GetCaller().IsReplyThere(kPatience)) TakeReply();
        std::uint64_t& lost = sLost[mTransport + parameters.label];
        lost += mLost + mSent - mAnswered;
        state.counters["lost_so_far"] = static_cast<double>(lost);
    }

private:
    static constexpr auto kPatience = std::chrono::milliseconds(500);

    void SendNext()
    {
        ByteVector& body = mBodies[mSent % mBodies.size()]; // its earlier use is answered or lost
        std::memcpy(body.data(), &mSent, sizeof mSent);
        mServer.Send(body);
        ++mSent;
    }

    void TakeReply()
    {
        Frame& reply = mServer.GetCaller().Receive();
        if (reply.Size() != mBodies.front().size()) throw std::runtime_error("a reply of another size");
        std::uint64_t number = 0;
        std::memcpy(&number, reply.Data(), sizeof number);
        mLost += number - mAnswered;
        mAnswered = number + 1;
    }

    inline static std::map<std::string, std::uint64_t> sLost; // by case

    std::string mTransport;
    EchoServers<Way> mServer;
    std::vector<ByteVector> mBodies;
    std::uint64_t mSent = 0;
    std::uint64_t mAnswered = 0; // or lost
    std::uint64_t mLost = 0;
};

/// Requests go to a number of servers in turn, one under way at a time.
template <typename Way>
class Connectors
{
public:
    Connectors(const std::string& transport, std::size_t count) : mServers(transport, count) {}

    void Run(benchmark::State& state, const Parameters& parameters)
    {
        const ByteVector body(parameters.bytes, 'x');
        for (auto _ : state) mServers.Exchange(body, mTurn++ % mServers.Count());
    }

private:
    EchoServers<Way> mServers;
    std::size_t mTurn = 0;
};

} // namespace

void AddThroughput()
{
    constexpr int kSittings = 5;
    constexpr int kRounds = 5;
    const std::vector<Parameters> cases = {{"1x16", 16, 1},         {"16x16", 16, 16},      {"500x16", 16, 500},
                                           {"900x16", 16, 900},     {"1x1024", 1024, 1},    {"16x1024", 1024, 16},
                                           {"500x1024", 1024, 500}, {"900x1024", 1024, 900}};
    for (const std::string transport : {"ipc", "inproc"})
        Compare<Throughput>({"throughput/" + transport, kSittings, kRounds, Clock::Processor}, cases, transport);
}

void AddConnectors()
{
    constexpr int kSittings = 5;
    constexpr int kRounds = 6;
    for (const std::string transport : {"ipc", "inproc"})
    {
        for (const std::size_t count : {1U, 10U, 100U})
        {
            const Group group{"connectors/" + transport + "/" + std::to_string(count), kSittings, kRounds,
                              Clock::Processor};
            Compare<Connectors>(group, {{"", 16, count}}, transport, count);
        }
    }
}

} // namespace zeb::tolvo::bench
