#include "common/Descriptor.h"
#include "support/Process.h"
#include "support/ServerThread.h"

#include <ipc/ZmqConnectorFactory.h>

#include <nlohmann/json.hpp>

#include <deque>
#include <fstream>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace
{

using namespace std::string_literals;

/// With a space at the end, so that the sizes of a request and of its reply differ.
void AddSpace(const ByteVector& request, ByteVector& response) { response = Bytes(Text(request) + ' '); }

/// The registration service as a process, opposite the library's clients and its server, which echoes.
class Quillmere : public testing::Test
{
protected:
    Quillmere() { Start("--trace --timeline " + timeline); }

    void TearDown() override { EXPECT_EQ(server ? server->StopListening() : StatusCode::Success, StatusCode::Success); }

    void Start(const std::string& options)
    {
        process.emplace("ulimit -Sn 200; exec " TOLVO_QUILLMERE " --servers " + servers + " --clients " + addresses +
                            " " + options + " 2>&1",
                        output.ends[1]);
        output.Await("serving " + servers);
        EXPECT_EQ(fcntl(output.ends[1], F_GETFL) & O_NONBLOCK, 0) << "others who write there are not disturbed";
    }

    void Serve(const std::string& identity, const std::string& address,
               const std::function<void(const ByteVector&, ByteVector&)>& handler = AddSpace,
               ipc::ServerType type = ipc::ServerType::OnePriority)
    {
        server.reset(factory.CreateZmqServerConnector(servers, identity, type));
        server->RegisterCallback(handler);
        server->SetStartupMessage(address);
        EXPECT_EQ(server->StartListening(), StatusCode::Success);
        for (int frontEnds = type == ipc::ServerType::TwoPriorities ? 2 : 1; frontEnds > 0; --frontEnds)
            output.Await("registered as");
    }

    void ExpectEcho(const std::string& address, const std::string& body, int times = 1)
    {
        const auto client = factory.CreateZmqClientConnector(folder.Endpoint(address), operatingMode);
        for (; times > 0; --times)
        {
            ByteVector reply = Bytes("none");
            ASSERT_EQ(client->SendRequest(Bytes(body), reply, kPatience), StatusCode::Success) << address;
            EXPECT_TRUE(Text(reply) == body + ' ') << body.size() << " bytes to " << address;
        }
    }

    /// Makes a connection that says nothing.
    /// @return 0 or the error number.
    int ConnectPlainly(const std::string& name)
    {
        sockaddr_un address{AF_UNIX, {}};
        folder.Path(name).copy(address.sun_path, sizeof address.sun_path - 1);
        const int made = connections.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)).Get();
        return connect(made, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
    }

    /// As a server would; the connection once lost stays lost.
    void ConnectBare(const std::string& identity)
    {
        bareServer.set(zmq::sockopt::routing_id, identity);
        bareServer.set(zmq::sockopt::reconnect_ivl, -1);
        bareServer.set(zmq::sockopt::linger, 0);
        bareServer.connect(servers);
    }

    void RegisterBare(const std::string& address)
    {
        bareServer.send(zmq::buffer(Registration(address)));
        output.Await("registered as");
    }

    ipc::ZmqConnectorFactory& factory = ipc::ZmqConnectorFactory::GetInstance();
    OperatingMode operatingMode;
    TempFolder folder, files;
    std::string timeline = files.Path("timeline");
    std::string servers = folder.Endpoint("servers");
    std::string addresses = folder.Path("");
    zmq::context_t context;
    zmq::socket_t bareServer{context, zmq::socket_type::dealer};
    std::unique_ptr<ipc::ZmqServerConnector> server;
    Output output;
    std::optional<Process> process;
    std::deque<zeb::tolvo::desk::Descriptor> connections;
};

TEST_F(Quillmere, BothPrioritiesAnswerBodiesOfEverySizeBesideThousandsOfConnections)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max; // as it does
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < 3200) GTEST_SKIP() << "only " << limit.rlim_max << " descriptors allowed";
    Serve("a\0b"s, "K\xc3\xb6ln 2", AddSpace, ipc::ServerType::TwoPriorities);
    while (connections.size() < 3000) ASSERT_EQ(ConnectPlainly("K\xc3\xb6ln 2"), 0);
    for (const std::string address : {"K\xc3\xb6ln 2", "RTK\xc3\xb6ln 2"})
        for (const std::string& body : {""s, "\0\xff"s, std::string(1 << 20, '\x80')}) ExpectEcho(address, body);
}

TEST_F(Quillmere, ServiceReplacesItsLingeringConnectionAndComesBackAfterAKill)
{
    ConnectBare("service");
    RegisterBare("status");
    Serve("service", "status");
    ExpectEcho("status", "replaced");
    EXPECT_EQ(process->End(SIGKILL), SIGKILL);
    Start("--trace");
    ExpectEcho("status", "back");
    EXPECT_EQ(process->End(SIGTERM), 0);
    EXPECT_TRUE(std::filesystem::is_empty(addresses));
}

TEST_F(Quillmere, TellsWhatThereIsWhileAServiceFloods)
{
    Serve("service", "status");
    ExpectEcho("status", "once");
    ConnectBare("flood");
    RegisterBare("flooded");
    std::atomic<bool> isOver{false};
    const auto flood = std::async(std::launch::async, [&] {
        while (!isOver) bareServer.send(zmq::str_buffer("nobody asked"), zmq::send_flags::dontwait);
    });
    const std::shared_ptr<void> end(nullptr, [&](void*) { isOver = true; });
    for (int question = 0; question < 8; ++question)
    {
        ByteVector reply;
        const auto client = factory.CreateZmqClientConnector(folder.Endpoint(".registry"), operatingMode);
        ASSERT_EQ(client->SendRequest(Bytes("services json"), reply, kPatience), StatusCode::Success);
        const auto services = nlohmann::json::parse(reply);
        ASSERT_EQ(services.size(), 2U);
        EXPECT_EQ(services[0]["address"], "flooded");
        EXPECT_EQ(services[1]["answered"], 1);
        EXPECT_GT(services[1]["median_ms"], 0.0);
        EXPECT_GT(services[1]["registered_s"], 0.0);
    }
}

TEST_F(Quillmere, TimelineHasEachRequestOnceAlsoAfterAKillAndOnAFullDisk)
{
    constexpr std::size_t kClients = 8;
    constexpr int kEach = 5;
    Serve("service", "status");
    std::vector<std::future<void>> clients;
    while (clients.size() < kClients)
        clients.push_back(std::async(std::launch::async, [this, body = std::string(clients.size(), 'x')] {
            ExpectEcho("status", body, kEach);
        }));
    clients.clear();
    zmq::socket_t bareClient(context, zmq::socket_type::dealer);
    bareClient.connect(folder.Endpoint("status"));
    bareClient.send(zmq::str_buffer("two"), zmq::send_flags::sndmore);
    bareClient.send(zmq::str_buffer("frames"));
    output.Await("it has 2 frames");
    const rlimit full{static_cast<rlim_t>(std::filesystem::file_size(timeline)) + 1, RLIM_INFINITY};
    EXPECT_EQ(prlimit(process->id, RLIMIT_FSIZE, &full, nullptr), 0);
    ExpectEcho("status", "not noted");
    output.Await("timeline is incomplete from here on: File too large");
    EXPECT_EQ(server->StopListening(), StatusCode::Success); // or what it has not sent would keep its context
    EXPECT_EQ(process->End(SIGKILL), SIGKILL);

    std::map<std::string, int> seen, expected = {{"M process_name", 1},
                                                 {"i \"service\" registered as \"status\"", 1},
                                                 {"i request dropped: it has 2 frames", 1}};
    for (std::size_t size = 0; size < kClients; ++size) expected["X request " + std::to_string(size)] = kEach;
    std::map<int, double> laneEnds;
    nlohmann::json underWay;
    std::ifstream file(timeline);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(text.rfind(",\n") + 2, text.size()) << "the last line is not a whole one";
    for (const auto& event : nlohmann::json::parse(text.substr(0, text.rfind(',')) + ']'))
    {
        std::string kind = event["ph"].get<std::string>() + ' ' + event["name"].get<std::string>();
        if (event["ph"] == "X")
        {
            const int size = event["args"]["request bytes"];
            kind += ' ' + std::to_string(size);
            EXPECT_EQ(event["args"]["reply bytes"], size + 1);
            EXPECT_EQ(event["args"]["client"].get<std::string>().size(), 8U) << event;
            double& end = laneEnds[event["tid"].get<int>()];
            EXPECT_GE(event["ts"].get<double>(), end - 0.001) << "boxes of one lane overlap";
            end = event["ts"].get<double>() + event["dur"].get<double>();
        }
        if (event["ph"] == "C")
            underWay = event["args"]["requests"];
        else
            ++seen[kind];
    }
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(underWay, 0);
}

TEST_F(Quillmere, RemovedSocketsAreBoundAgain)
{
    ConnectBare("service");
    RegisterBare("status");
    std::filesystem::remove_all(addresses);
    std::filesystem::create_directory(addresses);
    RegisterBare("status"); // by the connection that stands
    for (const char* name : {"status", "servers"}) EXPECT_EQ(ConnectPlainly(name), 0) << name;

    std::filesystem::remove(folder.Path("servers"));
    kill(process->id, SIGUSR1);
    Serve("service", "status");
    ExpectEcho("status", "bound again");

    std::filesystem::remove(folder.Path("status"));
    std::ofstream(folder.Path("status")) << "somebody else's";
    EXPECT_EQ(process->End(SIGINT), 0);
    EXPECT_TRUE(std::filesystem::exists(folder.Path("status")));
}

TEST_F(Quillmere, ServerStopsInTimeWhileFourClientsFloodIt)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLongestStop(3000); // half a second of it is the stop's own
    const CapturedLog log(2);
    process->End(SIGTERM);
    Start("--quiet=0");
    const auto keeper = factory.CreateZmqClientConnector(servers, operatingMode); // ZeroMQ's threads run from here on
    // A reply that is not taken before the registration service ends would keep the end of this process waiting.
    const DescriptorsComeBack guard;
    std::array<std::atomic<int>, 4> handled{};
    Serve("service", "flooded", [&](const ByteVector& request, ByteVector&) { ++handled[request.at(0)]; });
    std::atomic<bool> isOver{false};
    std::vector<std::future<void>> flood;
    for (unsigned char number = 0; number < handled.size(); ++number)
    {
        flood.push_back(std::async(std::launch::async, [&, number] {
            const auto client = factory.CreateZmqClientConnector(folder.Endpoint("flooded"), operatingMode);
            for (ByteVector reply; !isOver;) client->SendRequest({number}, reply, 0);
        }));
    }
    const std::shared_ptr<void> end(nullptr, [&](void*) { isOver = true; });
    for (int stop = 0; stop < 20; ++stop)
    {
        for (auto& count : handled) count = 0;
        EXPECT_EQ(server->StartListening(), StatusCode::Success); // the first time it listens already
        const auto isServed = [](int count) { return count > 20; };
        ASSERT_TRUE(Await([&] { return std::all_of(handled.begin(), handled.end(), isServed); }));
        faults::areSleepsShort = stop >= 2;
        const auto start = Clock::now();
        EXPECT_EQ(server->StopListening(), StatusCode::Success);
        EXPECT_LT(Clock::now() - start, kLongestStop);
    }
}

TEST_F(Quillmere, RefusedAndEchoedRegistrationsCostOnlyTheWaitingRequests)
{
    Serve("service", "status");
    std::ofstream(folder.Path("file")) << "precious";
    const Peer other(context, zmq::socket_type::router, folder.Endpoint("taken"));
    ConnectBare("bad");
    for (const auto& [frame, line] : {
             std::pair(Registration(std::string(108, 'x')), "too long for a socket path"),
             std::pair(Registration("file"), "exists and is no socket"),
             std::pair(Registration("servers"), "somebody answers there"),
             std::pair(Registration(".registry"), "the registration service's own socket"),
             std::pair(Registration("taken"), "somebody answers there"),
         })
    {
        bareServer.send(zmq::buffer(frame));
        output.Await(line);
    }
    EXPECT_EQ(std::filesystem::file_size(folder.Path("file")), "precious"s.size());

    const auto client = factory.CreateZmqClientConnector(folder.Endpoint("status"), operatingMode);
    ByteVector reply;
    for (const auto& [address, line] : {std::pair("status", "registered as"), std::pair("other", "keeps its address")})
    {
        EXPECT_EQ(client->SendRequest(Bytes(Registration(address)), reply, 0), StatusCode::TimedOut);
        for (const char* expected : {"dropped: 1", line}) output.Await(expected);
    }
    ExpectEcho("status", "going on");
}

} // namespace
