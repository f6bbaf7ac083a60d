#include "Comparison.h"
#include "Peers.h"

#include "quillmere/RegistrationService.h"

#include <ipc/convenience/AsyncCaller.h>

#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <unistd.h>

namespace zeb::tolvo::bench
{

namespace
{

/// The server under test opposite a plain router.
template <typename Way>
struct ServerRoundTrip
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        const ByteVector body(parameters.bytes, 'x');
        for (auto _ : state) server.Exchange(body);
    }

    std::string transport;
    Servers<Way> server{transport, 1};
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
struct ClientRoundTrip
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        MeasureRequests(client, state, parameters.bytes);
    }

    std::string transport;
    Wiring wiring{transport};
    EchoPeer peer{wiring.GetPeerContext(), wiring.Endpoint("clients")};
    typename Way::Client client{wiring.GetConnectorContext(), wiring.Endpoint("clients")};
};

/// The convenience layer's clients, used as the connector below them; each is a way of its own.
class CallerClient
{
public:
    using Client = CallerClient;

    CallerClient(void* /*context*/, const std::string& endpoint) : mCaller(endpoint) {}

    StatusCode SendRequest(const ByteVector& request, ByteVector& response, int timeout)
    {
        ipc::convenience::Reply reply = mCaller.Call(request, std::chrono::milliseconds(timeout));
        response = std::move(reply.body);
        return reply.status;
    }

private:
    ipc::convenience::Caller mCaller;
};

class AsyncCallerClient
{
public:
    using Client = AsyncCallerClient;

    AsyncCallerClient(void* /*context*/, const std::string& endpoint) : mCaller(endpoint) {}

    StatusCode SendRequest(const ByteVector& request, ByteVector& response, int timeout)
    {
        ipc::convenience::Reply reply;
        const auto done = [&](ipc::convenience::Reply ended) { reply = std::move(ended); };
        Require(mCaller.Call(request, std::chrono::milliseconds(timeout), done), "AsyncCaller::Call");
        pollfd readable{mCaller.GetFd(), POLLIN, 0};
        poll(&readable, 1, -1);
        mCaller.Dispatch();
        response = std::move(reply.body);
        return reply.status;
    }

private:
    ipc::convenience::AsyncCaller mCaller;
};

/// In the place of plain ZeroMQ stands the library's own connector, below the layer.
template <typename LayerClient>
void CompareWithConnector(const Choice& choice, const Group& group, const std::vector<Parameters>& cases)
{
    const std::string transport = "ipc";
    RunGroup(choice, group, cases,
             {MakeSide<ClientRoundTrip<Library>>("plain", transport),
              MakeSide<ClientRoundTrip<LayerClient>>("library", transport),
              MakeSide<ClientRoundTrip<Library>>("plain-again", transport)});
}

/// The desk registration service on a thread of its own.
class DeskService
{
public:
    DeskService(const std::string& servers, const std::string& clients)
    {
        Require(pipe2(mStop, O_CLOEXEC) == 0, "pipe2");
        mThread = std::thread([=] {
            zmq::context_t context;
            desk::RegistrationService service(context, servers, clients, std::nullopt, std::chrono::milliseconds(1));
            service.Run(mStop[0]);
        });
    }

    ~DeskService()
    {
        static_cast<void>(!write(mStop[1], "", 1));
        mThread.join();
        for (const int end : mStop) close(end);
    }

private:
    int mStop[2] = {-1, -1}; // a pipe that is readable once the service must end
    std::thread mThread;
};

/// Both under test, through the desk registration service.
template <typename Way>
struct ServiceRoundTrip
{
    void Run(benchmark::State& state, const Parameters& parameters)
    {
        MeasureRequests(client, state, parameters.bytes);
    }

    Wiring wiring{"ipc"};
    DeskService desk{wiring.Endpoint("servers"), wiring.Path(".")};
    typename Way::Server server{wiring.GetConnectorContext(), wiring.Endpoint("servers"), "echo", Echo,
                                ServerType::OnePriority};
    typename Way::Client client{wiring.GetConnectorContext(), wiring.Endpoint("echo")};
};

} // namespace

void CompareRoundTrips(const Choice& choice)
{
    constexpr int kSittings = 5;
    constexpr int kRounds = 7;
    std::vector<Parameters> sizes;
    for (const std::size_t bytes : {0U, 16U, 256U, 4096U, 65536U, 1048576U})
        sizes.push_back({std::to_string(bytes), bytes});
    for (const std::string transport : {"ipc", "inproc"})
    {
        Compare<ServerRoundTrip>(choice, {"server/" + transport, kSittings, kRounds, Clock::Processor}, sizes,
                                 transport);
        Compare<ClientRoundTrip>(choice, {"client/" + transport, kSittings, kRounds, Clock::Processor}, sizes,
                                 transport);
    }
    Compare<ServiceRoundTrip>(choice, {"service/ipc", kSittings, kRounds, Clock::Processor}, sizes);

    const Parameters small = sizes[1], large = sizes[4];
    CompareWithConnector<CallerClient>(choice, {"layer/Caller", kSittings, kRounds, Clock::Processor}, {small, large});
    CompareWithConnector<AsyncCallerClient>(choice, {"layer/AsyncCaller", kSittings, kRounds, Clock::Processor},
                                            {small});
}

} // namespace zeb::tolvo::bench
