#include "quillmere/RequestOrder.h"
#include "support/Faults.h"
#include "support/Peers.h"

#include <ipc/ZmqConnectorFactory.h>
#include <zebl/RootLogger.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <future>
#include <grp.h>
#include <map>
#include <optional>
#include <poll.h>
#include <set>
#include <sstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace std::string_literals;
using zeb::tolvo::desk::RequestOrder;

std::string Registration(const std::string& address) { return R"({"type":"register","address":")" + address + "\"}"; }

/// The registration service as a process, opposite the library's clients and its server, which echoes.
class Quillmere : public testing::Test
{
protected:
    Quillmere() { Start(); }

    ~Quillmere() override
    {
        zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Notice);
        End(SIGKILL);
    }

    void TearDown() override { EXPECT_TRUE(!server || server->StopListening() == StatusCode::Success); }

    void Start(const Lines& options = {"--trace"})
    {
        int ends[2] = {};
        if (pipe(ends) != 0 || (process = fork()) < 0) throw std::bad_alloc();
        if (process == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // it outlives no test, however that ends
            dup2(dup2(ends[1], STDOUT_FILENO), STDERR_FILENO);
            Lines words = {TOLVO_QUILLMERE, "--servers", servers, "--clients", addresses};
            words.insert(words.end(), options.begin(), options.end());
            std::vector<char*> arguments;
            for (std::string& word : words) arguments.push_back(word.data());
            arguments.push_back(nullptr);
            execv(TOLVO_QUILLMERE, arguments.data());
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

    static nlohmann::json ReadTimeline(const std::string& path)
    {
        std::stringstream text;
        text << std::ifstream(path).rdbuf();
        EXPECT_EQ(text.str().rfind(",\n") + 2, text.str().size()) << "the last line is not a whole one";
        return nlohmann::json::parse(text.str().substr(0, text.str().rfind(',')) + ']');
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

TEST_F(Quillmere, TellsWhatThereIsWhileAServiceFloods)
{
    Serve("service", "status", ipc::ServerType::OnePriority);
    ExpectEcho("status", "once");
    ConnectBare("flood");
    bareServer.send(zmq::buffer(Registration("flooded")));
    EXPECT_TRUE(AwaitLine("registered as"));
    std::atomic<bool> isOver{false};
    const auto flood = std::async(std::launch::async, [&] {
        while (!isOver) bareServer.send(zmq::str_buffer("nobody asked"), zmq::send_flags::dontwait);
    });
    const auto ask = [&](const std::string& question) {
        ByteVector reply;
        const auto client = factory.CreateZmqClientConnector(folder.Endpoint(".registry"), operatingMode);
        EXPECT_EQ(client->SendRequest(Bytes(question), reply, kPatience), StatusCode::Success);
        return Text(reply);
    };
    std::vector<std::future<std::string>> answers;
    while (answers.size() < 8) answers.push_back(std::async(std::launch::async, ask, "services json"));
    EXPECT_NE(ask("services\n").find(" median ms worst ms address identity\n"), std::string::npos);
    EXPECT_EQ(ask("what"), "unknown request \"what\"; known are: services, services json\n");
    for (auto& answer : answers)
    {
        const auto services = nlohmann::json::parse(answer.get());
        ASSERT_EQ(services.size(), 2U);
        EXPECT_EQ(services[0]["address"], "flooded");
        EXPECT_EQ(services[1]["identity"], "service");
        for (const char* count : {"passed", "answered"}) EXPECT_EQ(services[1][count], 1) << count;
        for (const char* count : {"dropped", "waiting", "lost"}) EXPECT_EQ(services[1][count], 0) << count;
        EXPECT_GT(services[1]["registered_s"], 0.0);
        EXPECT_GT(services[1]["median_ms"], 0.0);
        EXPECT_GE(services[1]["worst_ms"], services[1]["median_ms"]);
    }
    isOver = true;
}

TEST_F(Quillmere, OnlyTheGroupConnects)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root becomes other users";
    constexpr gid_t kGroup = 1; // "daemon" on each Debian
    std::filesystem::permissions(addresses, std::filesystem::perms(0755));
    End(SIGTERM);
    Start({"--mode", "0660", "--group", "daemon"});
    const auto connectAs = [&](uid_t user, gid_t group, const std::string& name) {
        const pid_t child = fork();
        if (child == 0)
        {
            const bool isOther = setgroups(0, nullptr) == 0 && setgid(group) == 0 && setuid(user) == 0;
            _exit(isOther && ConnectPlainly(name) >= 0 ? 0 : errno);
        }
        int status = -1;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    };

    ConnectBare("service");
    bareServer.send(zmq::buffer(Registration("status")));
    EXPECT_TRUE(AwaitLine("registered as"));
    for (const std::string name : {"servers", ".registry", "status"})
    {
        EXPECT_EQ(connectAs(60001, kGroup, name), 0) << name;
        EXPECT_EQ(connectAs(60002, kGroup, name), 0) << name;
        EXPECT_EQ(connectAs(60003, kGroup + 1, name), EACCES) << name;
    }
}

TEST_F(Quillmere, TimelineHasEachRequestOnceAlsoAfterAKill)
{
    using Json = nlohmann::json;
    const std::string path = folder.Path("timeline");
    End(SIGTERM);
    Start({"--timeline", path});
    ConnectBare("service");
    bareServer.send(zmq::buffer(Registration("status")));
    EXPECT_TRUE(AwaitLine("registered as"));
    zmq::socket_t client(context, zmq::socket_type::dealer);
    client.set(zmq::sockopt::routing_id, "me \xff");
    client.set(zmq::sockopt::linger, 0);
    client.connect(folder.Endpoint("status"));
    client.send(zmq::str_buffer("two"), zmq::send_flags::sndmore);
    client.send(zmq::str_buffer("frames"));
    constexpr std::size_t kRequests = 40;
    constexpr std::size_t kTogether = 4;
    for (std::size_t size = 1; size <= kRequests; ++size)
    {
        client.send(zmq::buffer(std::string(size, 'x')));
        if (size % kTogether != 0) continue;
        zmq::message_t frame;
        for (std::size_t request = 0; request < kTogether; ++request) static_cast<void>(bareServer.recv(frame));
        for (std::size_t request = 0; request < kTogether; ++request) bareServer.send(zmq::str_buffer("reply"));
        for (std::size_t request = 0; request < kTogether; ++request) static_cast<void>(client.recv(frame));
    }
    EXPECT_FALSE(ReadTimeline(path).empty()); // while it runs
    EXPECT_EQ(End(SIGKILL), SIGKILL);

    std::map<std::string, int> named;
    std::multiset<std::size_t> sizes;
    std::map<int, double> laneEnds;
    Json underWay;
    for (const Json& event : ReadTimeline(path))
    {
        ++named[event["ph"].get<std::string>() + ' ' + event["name"].get<std::string>()];
        if (event["ph"] == "C") underWay = event["args"]["requests"];
        if (event["ph"] != "X") continue;
        sizes.insert(event["args"]["request bytes"].get<std::size_t>());
        EXPECT_EQ(event["args"]["reply bytes"], 5);
        EXPECT_EQ(event["args"]["client"], "me \\xff");
        double& end = laneEnds[event["tid"].get<int>()];
        EXPECT_GE(event["ts"].get<double>(), end - 0.001) << "boxes of one lane overlap";
        end = event["ts"].get<double>() + event["dur"].get<double>();
    }
    for (std::size_t size = 1; size <= kRequests; ++size) EXPECT_EQ(sizes.count(size), 1U) << size;
    EXPECT_EQ(named["X request"], static_cast<int>(kRequests));
    EXPECT_EQ(named["M process_name"], 1);
    EXPECT_EQ(named["i \"service\" registered as \"status\""], 1);
    EXPECT_EQ(named["i request dropped: it has 2 frames"], 1);
    EXPECT_EQ(underWay, 0);
}

TEST_F(Quillmere, TimelineThatCanNotBeWrittenStopsNobody)
{
    const std::string path = folder.Path("timeline");
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{4096, limit.rlim_max};
    End(SIGTERM);
    setrlimit(RLIMIT_FSIZE, &small);
    Start({"--timeline", path});
    setrlimit(RLIMIT_FSIZE, &limit);
    Serve("service", "status", ipc::ServerType::OnePriority);
    const auto client = factory.CreateZmqClientConnector(folder.Endpoint("status"), operatingMode);
    ByteVector reply;
    for (int request = 0; request < 100; ++request)
        ASSERT_EQ(client->SendRequest(Bytes("x"), reply, kPatience), StatusCode::Success) << request;
    EXPECT_TRUE(AwaitLine("timeline is incomplete from here on: File too large"));
    kill(process, SIGUSR1);
    EXPECT_TRUE(AwaitLine("   100      100       0       0 "));
    EXPECT_GT(ReadTimeline(path).size(), 10U);
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
    Start({"--quiet=0"});
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
             std::pair(Registration(".registry"), "the registration service's own socket"),
             std::pair(Registration("taken"), "somebody answers there"),
         })
    {
        bareServer.send(zmq::buffer(frame));
        EXPECT_TRUE(AwaitLine(line)) << frame;
    }
    EXPECT_EQ(std::filesystem::file_size(folder.Path("file")), "precious"s.size());
    ExpectEcho("status", "going on");
}

/// What the order of replies rests on.
TEST(ServerOfTheLibrary, AnswersWhatItHoldsBeforeItRegistersAnew)
{
    for (const auto type : {ipc::ServerType::OnePriority, ipc::ServerType::TwoPriorities})
    {
        const TempFolder folder;
        const std::string endpoint = folder.Endpoint("servers");
        zmq::context_t context;
        std::optional<Peer> peer(std::in_place, context, zmq::socket_type::router, endpoint);
        auto& factory = ipc::ZmqConnectorFactory::GetInstance();
        const std::unique_ptr<ipc::ZmqServerConnector> server(factory.CreateZmqServerConnector(endpoint, "x", type));
        std::promise<void> released;
        server->RegisterCallback(
            [wait = released.get_future().share()](const ByteVector& request, ByteVector& response) {
                wait.wait();
                response = request;
            });
        server->SetStartupMessage("a");
        EXPECT_EQ(server->StartListening(), StatusCode::Success);
        const std::string registration = R"(x|{"address":"a","type":"register"})";
        while (peer->Receive() != registration) continue;

        std::string replies;
        for (std::size_t request = 0; request < 2 * RequestOrder::kMostUnderWay; ++request)
        {
            peer->Send({"x", std::to_string(request)});
            replies += "x|" + std::to_string(request) + ' ';
        }
        peer->set(zmq::sockopt::linger, kPatience);
        peer.emplace(context, zmq::socket_type::router, endpoint);
        zmq_socket_monitor(peer->handle(), "inproc://events", ZMQ_EVENT_ACCEPTED);
        zmq::socket_t events(context, zmq::socket_type::pair);
        events.set(zmq::sockopt::rcvtimeo, kPatience);
        events.connect("inproc://events");
        zmq::message_t event;
        EXPECT_TRUE(events.recv(event)); // it has connected anew while it holds them all
        released.set_value();
        std::string received;
        for (std::string frame; (frame = peer->Receive()) != registration;)
            if (frame.find("RT|") == std::string::npos) received += frame + ' '; // the other priority registers
        EXPECT_EQ(received, replies);
        peer->Send({"x", "new"});
        while ((received = peer->Receive()).find("RT|") != std::string::npos) continue;
        EXPECT_EQ(received, "x|new");
        EXPECT_EQ(server->StopListening(), StatusCode::Success);
    }
}

} // namespace
