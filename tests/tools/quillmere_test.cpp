#include "support/Faults.h"
#include "support/Peers.h"

#include <ipc/ZmqConnectorFactory.h>
#include <zebl/RootLogger.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <future>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace std::string_literals;

std::string Registration(const std::string& address) { return R"({"type":"register","address":")" + address + "\"}"; }

/// The registration service as a process, opposite the library's clients and its server, which echoes.
class Quillmere : public testing::Test
{
protected:
    Quillmere() { Start(); }

    ~Quillmere() override { End(SIGKILL); }

    void TearDown() override { EXPECT_EQ(server->StopListening(), StatusCode::Success); }

    void Start(const char* option = "--trace")
    {
        int ends[2] = {};
        if (pipe(ends) != 0 || (process = fork()) < 0) throw std::bad_alloc();
        if (process == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // it outlives no test, however that ends
            dup2(dup2(ends[1], STDOUT_FILENO), STDERR_FILENO);
            execl(TOLVO_QUILLMERE, TOLVO_QUILLMERE, "--servers", servers.c_str(), "--clients", addresses.c_str(),
                  option, nullptr);
            _exit(127);
        }
        output = ends[0];
        EXPECT_TRUE(AwaitLine("serving " + servers));
        EXPECT_EQ(fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0) << "others who write there are not disturbed";
        close(ends[1]);
    }

    /// Runs another one to its end.
    /// @return its exit code and what it wrote.
    static std::string Run(const std::string& options)
    {
        // A root without the right to write everywhere.
        const std::string command = geteuid() == 0 ? "setpriv --bounding-set=-dac_override " : "";
        FILE* const other = popen((command + "timeout 9 " TOLVO_QUILLMERE " " + options + " 2>&1").c_str(), "r");
        std::string text(4096, '\0');
        text.resize(fread(text.data(), 1, text.size(), other));
        return std::to_string(WEXITSTATUS(pclose(other))) + ": " + text;
    }

    bool AwaitLine(const std::string& text)
    {
        std::string block(1 << 16, ' ');
        pollfd item{output, POLLIN, 0};
        while (true)
        {
            const std::size_t end = written.find('\n', written.find(text));
            written.erase(0, (end != std::string::npos ? end : written.rfind('\n')) + 1);
            if (end != std::string::npos) return true;
            const ssize_t size = poll(&item, 1, kPatience) == 1 ? read(output, block.data(), block.size()) : 0;
            if (size <= 0) return false;
            written.append(block, 0, static_cast<std::size_t>(size));
        }
    }

    /// @return as waitpid: 0 for the exit code 0, the number of a signal that ended it.
    int End(int signal)
    {
        int status = -1;
        if (process > 0 && kill(process, signal) == 0) waitpid(process, &status, 0);
        close(output);
        process = output = -1;
        return status;
    }

    void Serve(const std::string& identity, const std::string& address, ipc::ServerType type)
    {
        server.reset(factory.CreateZmqServerConnector(servers, identity, type));
        server->RegisterCallback([](const ByteVector& request, ByteVector& response) { response = request; });
        server->SetStartupMessage(address);
        EXPECT_TRUE(server->StartListening() == StatusCode::Success && AwaitLine("registered as"));
    }

    void ExpectEcho(const std::string& address, const std::string& body)
    {
        ByteVector reply = Bytes("none");
        const auto client = factory.CreateZmqClientConnector(folder.Endpoint(address), operatingMode);
        EXPECT_EQ(client->SendRequest(Bytes(body), reply, kPatience), StatusCode::Success);
        EXPECT_TRUE(Text(reply) == body) << body.size() << " bytes to " << address;
    }

    /// @return a connection that says nothing, -1 when there is none.
    int ConnectPlainly(const std::string& name)
    {
        sockaddr_un address{AF_UNIX, {}};
        folder.Path(name).copy(address.sun_path, sizeof address.sun_path - 1);
        const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return connection;
        close(connection);
        return -1;
    }

    /// Connects as a server would; the connection once lost stays lost.
    void ConnectBare(const std::string& identity)
    {
        bareServer.set(zmq::sockopt::routing_id, identity);
        bareServer.set(zmq::sockopt::reconnect_ivl, -1);
        bareServer.set(zmq::sockopt::linger, 0);
        bareServer.connect(servers);
    }

    ipc::ZmqConnectorFactory& factory = ipc::ZmqConnectorFactory::GetInstance();
    OperatingMode operatingMode;
    TempFolder folder;
    std::string servers = folder.Endpoint("servers");
    std::string addresses = folder.Path("");
    zmq::context_t context;
    zmq::socket_t bareServer{context, zmq::socket_type::dealer};
    std::unique_ptr<ipc::ZmqServerConnector> server;
    pid_t process = -1;
    int output = -1;
    std::string written; // not yet awaited
};

TEST_F(Quillmere, BothPrioritiesAnswerBodiesOfEverySize)
{
    Serve("a\0b"s, "K\xc3\xb6ln 2", ipc::ServerType::TwoPriorities);
    for (const std::string address : {"K\xc3\xb6ln 2", "RTK\xc3\xb6ln 2"})
        for (const std::string& body : {""s, "\0\xff"s, std::string(8 << 20, '\x80')}) ExpectEcho(address, body);
    for (const char* line : {" <- ", " -> "}) EXPECT_TRUE(AwaitLine(line));
    kill(process, SIGUSR1);
    EXPECT_TRUE(AwaitLine("     3        3       0       0    0 "));
}

TEST_F(Quillmere, ServiceReplacesItsLingeringConnectionAndComesBackAfterAKill)
{
    ConnectBare("service");
    bareServer.send(zmq::buffer(Registration("status")));
    EXPECT_TRUE(AwaitLine("registered as"));
    Serve("service", "status", ipc::ServerType::OnePriority);
    ExpectEcho("status", "replaced");
    EXPECT_EQ(End(SIGKILL), SIGKILL);
    Start();
    ExpectEcho("status", "back");
    EXPECT_EQ(End(SIGTERM), 0);
    EXPECT_TRUE(std::filesystem::is_empty(addresses));
}

TEST_F(Quillmere, UnusableOptionsEndItAtOnceAndTakeNothingFromALiveOne)
{
    Serve("service", "status", ipc::ServerType::OnePriority);
    const std::string locked = folder.Path("locked");
    std::filesystem::create_directory(locked);
    std::filesystem::permissions(locked, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    const auto with = [&](const std::string& endpoint) { return "--clients " + addresses + " --servers " + endpoint; };
    for (const auto& [options, code, line] : {
             std::tuple(with(servers), "1: ", "somebody answers there"),
             std::tuple(with("inproc://servers"), "2: ", "neither ipc://PATH nor tcp://ADDRESS:PORT"),
             std::tuple(with("ipc://"), "2: ", "neither ipc://PATH"),
             std::tuple(with("tcp://127.0.0.1:65536"), "2: ", "no port from 1 to 65535"),
             std::tuple(with("tcp://127.0.0.1:0"), "2: ", "no port from 1 to 65535"),
             std::tuple(with("tcp://127.0.0.1:5x"), "2: ", "no port from 1 to 65535"),
             std::tuple(with(folder.Endpoint("other")) + " --tarce", "2: ", "--tarce"),
             std::tuple("--clients . --server "s + servers, "2: ", "not expected: --server\n"),
             std::tuple("--clients " + locked + " --servers " + folder.Endpoint("other"), "1: ", "Permission denied"),
         })
    {
        const std::string outcome = Run(options);
        EXPECT_EQ(outcome.substr(0, 3), code) << options;
        EXPECT_NE(outcome.find(line), std::string::npos) << outcome;
    }
    EXPECT_FALSE(std::filesystem::exists(folder.Path("other")));
    ExpectEcho("status", "going on");
}

TEST_F(Quillmere, PausedReaderOfItsOutputStopsNobody)
{
    constexpr int kMoreThanAPipeHolds = 1000;
    Serve("service", "status", ipc::ServerType::OnePriority);
    const auto client = factory.CreateZmqClientConnector(folder.Endpoint("status"), operatingMode);
    const auto fill = [&] {
        ByteVector reply;
        for (int request = 0; request < kMoreThanAPipeHolds; ++request)
            ASSERT_EQ(client->SendRequest(Bytes("x"), reply, kPatience), StatusCode::Success) << request;
    };
    fill();
    EXPECT_TRUE(AwaitLine(" <- ") && AwaitLine(" -> "));
    kill(process, SIGUSR1);
    EXPECT_TRUE(AwaitLine("lines could not be written") && AwaitLine("  1000     1000       0       0 "));
    fill();
    const int unread = std::exchange(output, -1);
    EXPECT_EQ(End(SIGHUP), 0);
    EXPECT_TRUE(std::filesystem::is_empty(addresses));
    close(unread);
}

TEST_F(Quillmere, ThousandsOfConnectionsWithinTheHardLimit)
{
    constexpr rlim_t kConnections = 3000;
    constexpr rlim_t kOthers = 200;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < kConnections + kOthers) GTEST_SKIP() << "only " << limit.rlim_max << " descriptors allowed";
    End(SIGTERM);
    const rlimit few{kOthers, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    Start();
    limit.rlim_cur = kConnections + kOthers;
    setrlimit(RLIMIT_NOFILE, &limit);
    Serve("service", "status", ipc::ServerType::OnePriority);

    std::vector<int> idle;
    while (idle.size() < kConnections) idle.push_back(ConnectPlainly("status"));
    EXPECT_EQ(std::count(idle.begin(), idle.end(), -1), 0);
    ExpectEcho("status", "going on");
    for (const int connection : idle) close(connection);
    EXPECT_EQ(End(SIGTERM), 0);
}

TEST_F(Quillmere, RemovedSocketsAreBoundAgain)
{
    ConnectBare("service");
    const auto awaitRegistration = [&] {
        bareServer.send(zmq::buffer(Registration("status")));
        EXPECT_TRUE(AwaitLine("registered as"));
    };
    awaitRegistration();
    std::filesystem::remove_all(addresses);
    std::filesystem::create_directory(addresses);
    awaitRegistration(); // by the connection that stands
    for (const char* name : {"status", "servers"}) EXPECT_NE(close(ConnectPlainly(name)), -1) << name;

    std::filesystem::remove(folder.Path("servers"));
    kill(process, SIGUSR1);
    Serve("service", "status", ipc::ServerType::OnePriority);
    ExpectEcho("status", "bound again");

    std::filesystem::remove(folder.Path("status"));
    std::ofstream(folder.Path("status")) << "somebody else's";
    EXPECT_EQ(End(SIGTERM), 0);
    EXPECT_TRUE(std::filesystem::exists(folder.Path("status")));
}

TEST_F(Quillmere, EchoedRegistrationCostsOnlyTheWaitingRequests)
{
    Serve("service", "echo", ipc::ServerType::OnePriority);
    const auto client = factory.CreateZmqClientConnector(folder.Endpoint("echo"), operatingMode);
    ByteVector reply;
    for (const auto& [address, line] : {std::pair("echo", "registered as"), std::pair("other", "keeps its address")})
    {
        EXPECT_EQ(client->SendRequest(Bytes(Registration(address)), reply, 0), StatusCode::TimedOut);
        EXPECT_TRUE(AwaitLine("dropped: 1") && AwaitLine(line));
    }
    EXPECT_FALSE(std::filesystem::exists(folder.Path("other")));
    ExpectEcho("echo", "going on");
}

TEST_F(Quillmere, ServerStopsInTimeWhileFourClientsFloodIt)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLongestStop(1500); // half a second of it is the stop's own
    zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Critical);
    End(SIGTERM);
    Start("--quiet=0");
    std::vector<std::unique_ptr<ipc::AbstractClientConnector>> clients;
    while (clients.size() < 4)
        clients.push_back(factory.CreateZmqClientConnector(folder.Endpoint("flooded"), operatingMode));
    {
        const DescriptorsComeBack guard;
        Serve("service", "flooded", ipc::ServerType::OnePriority);
        server->StopListening();
    }

    auto drained = std::async(std::launch::async, [&] { return AwaitLine("no such line"); });
    std::array<std::atomic<int>, 4> handled{};
    server->RegisterCallback([&](const ByteVector& request, ByteVector&) { ++handled[request.at(0)]; });
    std::atomic<bool> isOver{false};
    std::vector<std::future<void>> flood;
    for (unsigned char number = 0; number < handled.size(); ++number)
    {
        flood.push_back(std::async(std::launch::async, [&, number] {
            for (ByteVector reply; !isOver;) clients[number]->SendRequest({number}, reply, 0);
        }));
    }
    std::ptrdiff_t openWhenServed = 0;
    for (int stop = 0; stop < 50; ++stop)
    {
        EXPECT_EQ(server->StartListening(), StatusCode::Success);
        for (auto& count : handled) count = 0;
        const auto isServed = [](int count) { return count > 20; };
        EXPECT_TRUE(Await([&] { return std::all_of(handled.begin(), handled.end(), isServed); }));
        if (stop == 0) openWhenServed = DescriptorsComeBack::Open();
        EXPECT_TRUE(Await([&] { return DescriptorsComeBack::Open() == openWhenServed; }));
        faults::areSleepsShort = stop >= 5;
        const auto start = Clock::now();
        EXPECT_EQ(server->StopListening(), StatusCode::Success);
        EXPECT_LT(Clock::now() - start, kLongestStop);
    }
    isOver = true;
    flood.clear();
    kill(process, SIGTERM);
    EXPECT_FALSE(drained.get());
}

TEST_F(Quillmere, RefusedRegistrationsHarmNothing)
{
    Serve("service", "status", ipc::ServerType::OnePriority);
    std::ofstream(folder.Path("file")) << "precious";
    const Peer other(context, zmq::socket_type::router, folder.Endpoint("taken"));
    ConnectBare("bad");
    for (const auto& [frame, line] : {
             std::pair("hello"s, "no JSON object of type register"),
             std::pair(R"({"type":"register"})"s, "no address"),
             std::pair(Registration(".."), "name of a directory"),
             std::pair(Registration("../up"), "slash"),
             std::pair(Registration(std::string(108, 'x')), "too long for a socket path"),
             std::pair(Registration("file"), "exists and is no socket"),
             std::pair(Registration("servers"), "somebody answers there"),
             std::pair(Registration("taken"), "somebody answers there"),
         })
    {
        bareServer.send(zmq::buffer(frame));
        EXPECT_TRUE(AwaitLine(line)) << frame;
    }
    EXPECT_EQ(std::filesystem::file_size(folder.Path("file")), "precious"s.size());
    ExpectEcho("status", "going on");
}

} // namespace
