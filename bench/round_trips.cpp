#include "Comparison.h"
#include "EchoServers.h"

namespace zeb::tolvo::bench
{

namespace
{

/// The server under test opposite a plain router.
template <typename Way>
class ServerRoundTrip
{
public:
    explicit ServerRoundTrip(const std::string& transport) : mServer(transport, 1) {}

    void Run(benchmark::State& state, const Parameters& parameters)
    {
        const ByteVector body(parameters.bytes, 'x');
        for (auto _ : state) mServer.Exchange(body);
    }

private:
    EchoServers<Way> mServer;
};

template <typename Client>
void MeasureRequests(Client& client, benchmark::State& state, std::size_t bytes)
{
    const ByteVector request(bytes, 'x');
    ByteVector response;
    Ask(client, request, response); // the connection stands, and the response is large enough
    for (auto _ : state) Ask(client, request, response);
}

/// The client under test opposite a plain router.
template <typename Way>
class ClientRoundTrip
{
public:
    explicit ClientRoundTrip(const std::string& transport) : mWiring(transport) {}

    void Run(benchmark::State& state, const Parameters& parameters)
    {
        MeasureRequests(mClient, state, parameters.bytes);
    }

private:
    Wiring mWiring;
    EchoPeer mPeer{mWiring.GetPeerContext(), mWiring.Endpoint("clients")};
    typename Way::Client mClient{mWiring.GetConnectorContext(), mWiring.Endpoint("clients")};
};

/// Both under test, through the desk registration service.
template <typename Way>
class ServiceRoundTrip
{
public:
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        MeasureRequests(mClient, state, parameters.bytes);
    }

private:
    Wiring mWiring{"ipc"};
    DeskService mDesk{mWiring.Endpoint("servers"), mWiring.Path(".")};
    typename Way::Server mServer{mWiring.GetConnectorContext(), mWiring.Endpoint("servers"), "echo", Echo,
                                 ServerType::OnePriority};
    typename Way::Client mClient{mWiring.GetConnectorContext(), mWiring.Endpoint("echo")};
};

} // namespace

void AddRoundTrips()
{
    constexpr int kSittings = 5;
    constexpr int kRounds = 7;
    const std::vector<Parameters> sizes = {{"0", 0},       {"16", 16},       {"256", 256},
                                           {"4096", 4096}, {"65536", 65536}, {"1048576", 1048576}};
    for (const std::string transport : {"ipc", "inproc"})
    {
        Compare<ServerRoundTrip>({"server/" + transport, kSittings, kRounds, Clock::Processor}, sizes, transport);
        Compare<ClientRoundTrip>({"client/" + transport, kSittings, kRounds, Clock::Processor}, sizes, transport);
    }
    Compare<ServiceRoundTrip>({"service/ipc", kSittings, kRounds, Clock::Processor}, sizes);
}

} // namespace zeb::tolvo::bench
