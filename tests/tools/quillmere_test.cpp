#include "support/Peers.h"

#include <ipc/ZmqConnectorFactory.h>

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <poll.h>
#include <sys/prctl.h>
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

    void Start()
    {
        int ends[2] = {};
        if (pipe(ends) != 0 || (process = fork()) < 0) throw std::bad_alloc();
        if (process == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // it outlives no test, however that ends
            dup2(dup2(ends[1], STDOUT_FILENO), STDERR_FILENO);
            execl(TOLVO_QUILLMERE, TOLVO_QUILLMERE, "--servers", servers.c_str(), "--clients", clients.c_str(),
                  "--trace", nullptr);
            _exit(127);
        }
        close(ends[1]);
        output = ends[0];
        EXPECT_TRUE(AwaitLine("serving " + servers));
    }

    bool AwaitLine(const std::string& text)
    {
        std::string lines;
        pollfd item{output, POLLIN, 0};
        for (char byte = 0; poll(&item, 1, kPatience) == 1 && read(output, &byte, 1) == 1; lines += byte)
            if (byte == '\n' && lines.find(text) != std::string::npos) return true;
        return false;
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
    std::string clients = folder.Path("");
    zmq::context_t context;
    zmq::socket_t bareServer{context, zmq::socket_type::dealer};
    std::unique_ptr<ipc::ZmqServerConnector> server;
    pid_t process = -1;
    int output = -1;
};

TEST_F(Quillmere, BothPrioritiesAnswerBodiesOfEverySize)
{
    Serve("a\0b"s, "K\xc3\xb6ln 2", ipc::ServerType::TwoPriorities);
    for (const std::string address : {"K\xc3\xb6ln 2", "RTK\xc3\xb6ln 2"})
        for (const std::string& body : {""s, "\0\xff"s, std::string(8 << 20, '\x80')}) ExpectEcho(address, body);
    for (const char* line : {" <- ", " -> "}) EXPECT_TRUE(AwaitLine(line));
    kill(process, SIGUSR1);
    EXPECT_TRUE(AwaitLine("      3        3       0       0 "));
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
    EXPECT_TRUE(std::filesystem::is_empty(clients));
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

TEST_F(Quillmere, RefusedRegistrationsHarmNothing)
{
    Serve("service", "status", ipc::ServerType::OnePriority);
    std::ofstream(folder.Path("file")) << "precious";
    ConnectBare("bad");
    for (const auto& [frame, line] : {
             std::pair("hello"s, "no JSON object of type register"),
             std::pair(R"({"type":"register"})"s, "no address"),
             std::pair(Registration(".."), "name of a directory"),
             std::pair(Registration("../up"), "slash"),
             std::pair(Registration(std::string(108, 'x')), "too long for a socket path"),
             std::pair(Registration("file"), "exists and is no socket"),
             std::pair(Registration("servers"), "the servers' endpoint"),
         })
    {
        bareServer.send(zmq::buffer(frame));
        EXPECT_TRUE(AwaitLine(line)) << frame;
    }
    EXPECT_EQ(std::filesystem::file_size(folder.Path("file")), "precious"s.size());
    ExpectEcho("status", "going on");
}

} // namespace
