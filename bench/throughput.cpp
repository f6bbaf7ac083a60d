#include "Comparison.h"
#include "Peers.h"

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
struct Throughput
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        bodies.assign(parameters.count, ByteVector(parameters.bytes, 'x'));
        sent = answered = lost = 0;
        while (sent < parameters.count) SendNext();
        for (auto _ : state)
        {
            TakeReply();
            while (sent < answered + parameters.count) SendNext();
        }
        while (answered < sent && server.GetCaller().IsReplyThere(kPatience)) TakeReply();
        std::uint64_t& lostSoFar = sLost[transport + parameters.label];
        lostSoFar += lost + sent - answered;
        state.counters["lost_so_far"] = static_cast<double>(lostSoFar);
    }

    static constexpr auto kPatience = std::chrono::milliseconds(500);

    void SendNext()
    {
        ByteVector& body = bodies[sent % bodies.size()]; // its earlier use is answered or lost
        std::memcpy(body.data(), &sent, sizeof sent);
        server.GetCaller().Send(server.Identity(), body);
        ++sent;
    }

    void TakeReply()
    {
        ZmqMessage& reply = server.GetCaller().Receive();
        if (reply.Size() != bodies.front().size()) throw std::runtime_error("a reply of another size");
        std::uint64_t number = 0;
        std::memcpy(&number, reply.Data(), sizeof number);
        lost += number - answered;
        answered = number + 1;
    }

    inline static std::map<std::string, std::uint64_t> sLost; // by case

    std::string transport;
    Servers<Way> server{transport, 1};
    std::vector<ByteVector> bodies{};
    std::uint64_t sent = 0;
    std::uint64_t answered = 0; // or lost
    std::uint64_t lost = 0;
};

/// Requests go to a number of servers in turn, one under way at a time.
template <typename Way>
struct Connectors
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        while (servers.Count() < parameters.count) servers.Add();
        const ByteVector body(parameters.bytes, 'x');
        for (auto _ : state) servers.Exchange(body, turn++ % parameters.count);
    }

    std::string transport;
    Servers<Way> servers{transport};
    std::size_t turn = 0;
};

} // namespace

void CompareThroughput(const Choice& choice)
{
    std::vector<Parameters> cases;
    for (const std::size_t bytes : {16U, 1024U})
    {
        for (const std::size_t count : {1U, 16U, 500U, 900U})
            cases.push_back({std::to_string(count) + "x" + std::to_string(bytes), bytes, count});
    }
    for (const std::string transport : {"ipc", "inproc"})
        Compare<Throughput>(choice, {"throughput/" + transport, 5, 5, Clock::Processor}, cases, transport);

    const std::vector<Parameters> counts = {
        {"1", 16, 1}, {"10", 16, 10}, {"100", 16, 100}}; // in this order: they add up
    for (const std::string transport : {"ipc", "inproc"})
        Compare<Connectors>(choice, {"connectors/" + transport, 5, 6, Clock::Processor}, counts, transport);
}

} // namespace zeb::tolvo::bench
