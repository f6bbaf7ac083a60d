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
#include <fcntl.h>
#include <fstream>
#include <future>
#include <grp.h>
#include <map>
#include <optional>
#include <poll.h>
#include <set>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace std::string_literals;
using zeb::tolvo::desk::RequestOrder;

std::string Registration(const std::string& address) { return R"({"type":"register","address":")" + address + "\"}"; }

/// With a space at the end, so that the sizes of a request and of its reply differ.
void Echo(const ByteVector& request, ByteVector& response) { response = Bytes(Text(request) + ' '); }

using Handler = std::function<void(const ByteVector& request, ByteVector& response)>;

constexpr auto kOne = ipc::ServerType::OnePriority;

/// The registration service as a process, opposite the library's clients and its server, which echoes.
class Quillmere : public testing::Test
{
protected:
    Quillmere() { Start("--trace --timeline " + timeline); }

    ~Quillmere() override
    {
        zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Notice);
        End(SIGKILL);
    }

    void TearDown() override { EXPECT_EQ(server ? server->StopListening() : StatusCode::Success, StatusCode::Success); }

    void Start(const std::string& options)
    {
        const std::string command = "ulimit -Sn 200; exec " TOLVO_QUILLMERE " --servers " + servers + " --clients " +
                                    addresses + " " + options + " 2>&1";
        int ends[2] = {};
        if (pipe(ends) != 0 || (process = fork()) < 0) throw std::bad_alloc();
        if (process == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // it outlives no test, however that ends
            dup2(ends[1], STDOUT_FILENO);
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        output = ends[0];
        AwaitLine("serving " + servers);
        EXPECT_EQ(fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0) << "others who write there are not disturbed";
        close(ends[1]);
    }

    void AwaitLine(const std::string& text)
    {
        std::string block(1 << 16, ' ');
        pollfd item{output, POLLIN, 0};
        while (true)
        {
            const std::size_t end = written.find('\n', written.find(text));
            written.erase(0, (end != std::string::npos ? end : written.rfind('\n')) + 1);
            if (end != std::string::npos) return;
            const ssize_t size = poll(&item, 1, kPatience) == 1 ? read(output, block.data(), block.size()) : 0;
            ASSERT_GT(size, 0) << "no line \"" << text << '"';
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

    void Serve(const std::string& identity, const std::string& address, ipc::ServerType type = kOne,
               const Handler& handler = Echo)
    {
        server.reset(factory.CreateZmqServerConnector(servers, identity, type));
        server->RegisterCallback(handler);
        server->SetStartupMessage(address);
        EXPECT_EQ(server->StartListening(), StatusCode::Success);
        AwaitLine("registered as");
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

    nlohmann::json ReadTimeline() const
    {
        std::ifstream file(timeline);
        const std::string text(std::istreambuf_iterator<char>(file), {});
        EXPECT_EQ(text.rfind(",\n") + 2, text.size()) << "the last line is not a whole one";
        return nlohmann::json::parse(text.substr(0, text.rfind(',')) + ']');
    }

    /// Connects as a server would; the connection once lost stays lost.
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
        AwaitLine("registered as");
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
    pid_t process = -1;
    int output = -1;
    std::string written; // not yet awaited
};

TEST_F(Quillmere, BothPrioritiesAnswerBodiesOfEverySize)
{
    Serve("a\0b"s, "K\xc3\xb6ln 2", ipc::ServerType::TwoPriorities);
    for (const std::string address : {"K\xc3\xb6ln 2", "RTK\xc3\xb6ln 2"})
        for (const std::string& body : {""s, "\0\xff"s, std::string(8 << 20, '\x80')}) ExpectEcho(address, body);
}

TEST_F(Quillmere, ServiceReplacesItsLingeringConnectionAndComesBackAfterAKill)
{
    ConnectBare("service");
    RegisterBare("status");
    Serve("service", "status");
    ExpectEcho("status", "replaced");
    EXPECT_EQ(End(SIGKILL), SIGKILL);
    Start("--trace");
    ExpectEcho("status", "back");
    EXPECT_EQ(End(SIGTERM), 0);
    EXPECT_TRUE(std::filesystem::is_empty(addresses));
}

TEST_F(Quillmere, PausedReaderOfItsOutputStopsNobody)
{
    constexpr int kMoreThanAPipeHolds = 1000;
    Serve("service", "status");
    ExpectEcho("status", "x", kMoreThanAPipeHolds);
    for (const char* line : {" <- ", " -> "}) AwaitLine(line);
    kill(process, SIGUSR1);
    for (const char* line : {"lines could not be written", "  1000     1000       0       0 "}) AwaitLine(line);
    ExpectEcho("status", "x", kMoreThanAPipeHolds);
    const int unread = std::exchange(output, -1);
    EXPECT_EQ(End(SIGHUP), 0);
    EXPECT_TRUE(std::filesystem::is_empty(addresses));
    close(unread);
}

TEST_F(Quillmere, ThousandsOfConnectionsWithinTheHardLimit)
{
    constexpr std::size_t kConnections = 3000;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < kConnections + 200) GTEST_SKIP() << "only " << limit.rlim_max << " descriptors allowed";
    Serve("service", "status");

    std::vector<int> idle;
    while (idle.size() < kConnections) idle.push_back(ConnectPlainly("status"));
    EXPECT_EQ(std::count(idle.begin(), idle.end(), -1), 0);
    ExpectEcho("status", "going on");
    for (const int connection : idle) close(connection);
    EXPECT_EQ(End(SIGTERM), 0);
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
    const auto ask = [&] {
        ByteVector reply;
        const auto client = factory.CreateZmqClientConnector(folder.Endpoint(".registry"), operatingMode);
        EXPECT_EQ(client->SendRequest(Bytes("services json"), reply, kPatience), StatusCode::Success);
        return Text(reply);
    };
    std::vector<std::future<std::string>> answers;
    while (answers.size() < 8) answers.push_back(std::async(std::launch::async, ask));
    for (auto& answer : answers)
    {
        const auto services = nlohmann::json::parse(answer.get());
        ASSERT_EQ(services.size(), 2U);
        EXPECT_EQ(services[0]["address"], "flooded");
        EXPECT_EQ(services[1]["answered"], 1);
        EXPECT_GT(services[1]["median_ms"], 0.0);
        EXPECT_GT(services[1]["registered_s"], 0.0);
    }
    isOver = true;
}

TEST_F(Quillmere, OnlyTheGroupConnects)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root becomes other users";
    constexpr gid_t kGroup = 1; // "daemon" on each Debian
    std::filesystem::permissions(addresses, std::filesystem::perms(0755));
    End(SIGTERM);
    Start("--mode 0660 --group daemon");
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
    RegisterBare("status");
    for (const std::string name : {"servers", ".registry", "status"})
    {
        for (const uid_t member : {60001U, 60002U}) EXPECT_EQ(connectAs(member, kGroup, name), 0) << name;
        EXPECT_EQ(connectAs(60003, kGroup + 1, name), EACCES) << name;
    }
}

TEST_F(Quillmere, TimelineHasEachRequestOnceAlsoAfterAKillAndOnAFullDisk)
{
    constexpr std::size_t kClients = 8;
    constexpr std::size_t kEach = 5;
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
    AwaitLine("it has 2 frames");
    EXPECT_FALSE(ReadTimeline().empty()); // while it runs
    const rlimit full{static_cast<rlim_t>(std::filesystem::file_size(timeline)) + 1, RLIM_INFINITY};
    EXPECT_EQ(prlimit(process, RLIMIT_FSIZE, &full, nullptr), 0);
    ExpectEcho("status", "not noted");
    AwaitLine("timeline is incomplete from here on: File too large");
    EXPECT_EQ(server->StopListening(), StatusCode::Success); // or what it has not sent would keep its context
    EXPECT_EQ(End(SIGKILL), SIGKILL);

    std::multiset<std::size_t> noted;
    std::map<std::string, int> named;
    std::map<int, double> laneEnds;
    nlohmann::json underWay;
    for (const auto& event : ReadTimeline())
    {
        ++named[event["ph"].get<std::string>() + ' ' + event["name"].get<std::string>()];
        if (event["ph"] == "C") underWay = event["args"]["requests"];
        if (event["ph"] != "X") continue;
        noted.insert(event["args"]["request bytes"].get<std::size_t>());
        EXPECT_EQ(event["args"]["reply bytes"].get<int>(), event["args"]["request bytes"].get<int>() + 1);
        EXPECT_EQ(event["args"]["client"].get<std::string>().size(), 8U) << event;
        double& end = laneEnds[event["tid"].get<int>()];
        EXPECT_GE(event["ts"].get<double>(), end - 0.001) << "boxes of one lane overlap";
        end = event["ts"].get<double>() + event["dur"].get<double>();
    }
    EXPECT_EQ(noted.size(), kClients * kEach);
    for (std::size_t size = 0; size < kClients; ++size) EXPECT_EQ(noted.count(size), kEach) << size;
    for (const char* once :
         {"M process_name", "i \"service\" registered as \"status\"", "i request dropped: it has 2 frames"})
        EXPECT_EQ(named[once], 1) << once;
    EXPECT_EQ(underWay, 0);
}

TEST_F(Quillmere, RemovedSocketsAreBoundAgain)
{
    ConnectBare("service");
    RegisterBare("status");
    std::filesystem::remove_all(addresses);
    std::filesystem::create_directory(addresses);
    RegisterBare("status"); // by the connection that stands
    for (const char* name : {"status", "servers"}) EXPECT_NE(close(ConnectPlainly(name)), -1) << name;

    std::filesystem::remove(folder.Path("servers"));
    kill(process, SIGUSR1);
    Serve("service", "status");
    ExpectEcho("status", "bound again");

    std::filesystem::remove(folder.Path("status"));
    std::ofstream(folder.Path("status")) << "somebody else's";
    EXPECT_EQ(End(SIGTERM), 0);
    EXPECT_TRUE(std::filesystem::exists(folder.Path("status")));
}

TEST_F(Quillmere, ServerStopsInTimeWhileFourClientsFloodIt)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLongestStop(1500); // half a second of it is the stop's own
    constexpr int kStops = 20;
    constexpr int kLongStops = 2;
    zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Critical);
    End(SIGTERM);
    Start("--quiet=0");
    const auto keeper = factory.CreateZmqClientConnector(servers, operatingMode); // ZeroMQ's threads run from here on
    // A reply that is not taken before the registration service ends would keep the end of this process waiting.
    const DescriptorsComeBack guard;
    std::array<std::atomic<int>, 4> handled{};
    Serve("service", "flooded", kOne, [&](const ByteVector& request, ByteVector&) { ++handled[request.at(0)]; });
    std::atomic<bool> isOver{false};
    std::vector<std::future<void>> flood;
    for (unsigned char number = 0; number < handled.size(); ++number)
    {
        flood.push_back(std::async(std::launch::async, [&, number] {
            const auto client = factory.CreateZmqClientConnector(folder.Endpoint("flooded"), operatingMode);
            for (ByteVector reply; !isOver;) client->SendRequest({number}, reply, 0);
        }));
    }
    for (int stop = 1; stop <= kStops; ++stop)
    {
        for (auto& count : handled) count = 0;
        EXPECT_EQ(server->StartListening(), StatusCode::Success); // the first time it listens already
        const auto isServed = [](int count) { return count > 20; };
        EXPECT_TRUE(Await([&] { return std::all_of(handled.begin(), handled.end(), isServed); }));
        faults::areSleepsShort = stop > kLongStops;
        const auto start = Clock::now();
        EXPECT_EQ(server->StopListening(), StatusCode::Success);
        EXPECT_LT(Clock::now() - start, kLongestStop);
    }
    isOver = true;
}

TEST_F(Quillmere, RefusedAndEchoedRegistrationsCostOnlyTheWaitingRequests)
{
    Serve("service", "status");
    std::ofstream(folder.Path("file")) << "precious";
    const Peer other(context, zmq::socket_type::router, folder.Endpoint("taken"));
    ConnectBare("bad");
    for (const auto& [frame, line] : {
             std::pair("hello"s, "no JSON object of type register"),
             std::pair(Registration(std::string(108, 'x')), "too long for a socket path"),
             std::pair(Registration("file"), "exists and is no socket"),
             std::pair(Registration("servers"), "somebody answers there"),
             std::pair(Registration(".registry"), "the registration service's own socket"),
             std::pair(Registration("taken"), "somebody answers there"),
         })
    {
        bareServer.send(zmq::buffer(frame));
        AwaitLine(line);
    }
    EXPECT_EQ(std::filesystem::file_size(folder.Path("file")), "precious"s.size());

    const auto client = factory.CreateZmqClientConnector(folder.Endpoint("status"), operatingMode);
    ByteVector reply;
    for (const auto& [address, line] : {std::pair("status", "registered as"), std::pair("other", "keeps its address")})
    {
        EXPECT_EQ(client->SendRequest(Bytes(Registration(address)), reply, 0), StatusCode::TimedOut);
        for (const char* expected : {"dropped: 1", line}) AwaitLine(expected);
    }
    ExpectEcho("status", "going on");
}

/// What the order of replies rests on.
TEST(ServerOfTheLibrary, AnswersWhatItHoldsBeforeItRegistersAnew)
{
    for (const auto type : {kOne, ipc::ServerType::TwoPriorities})
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
        const auto expectNext = [&](const std::string& frames) {
            std::string received;
            do received = peer->Receive();
            while (received.find("RT|") != std::string::npos); // the other priority registers
            EXPECT_EQ(received, frames);
        };
        const std::string registration = R"(x|{"address":"a","type":"register"})";
        expectNext(registration);

        Lines held;
        while (held.size() < 2 * RequestOrder::kMostUnderWay) held.push_back(std::to_string(held.size()));
        for (const std::string& request : held) peer->Send({"x", request});
        peer->set(zmq::sockopt::linger, kPatience);
        peer.emplace(context, zmq::socket_type::router, endpoint);
        zmq_socket_monitor(peer->handle(), "inproc://events", ZMQ_EVENT_ACCEPTED);
        zmq::socket_t events(context, zmq::socket_type::pair);
        events.set(zmq::sockopt::rcvtimeo, kPatience);
        events.connect("inproc://events");
        zmq::message_t event;
        EXPECT_TRUE(events.recv(event)); // it has connected anew while it holds them all
        released.set_value();
        for (const std::string& request : held) expectNext("x|" + request);
        expectNext(registration);
        peer->Send({"x", "new"});
        expectNext("x|new");
        EXPECT_EQ(server->StopListening(), StatusCode::Success);
    }
}

} // namespace
