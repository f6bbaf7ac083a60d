#include "support/CapturedLog.h"
#include "support/Exposed.h"
#include "support/Faults.h"
#include "support/Peers.h"

#include <ipc/ZmqClientConnector.h>

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>

namespace
{

using Lines = std::vector<std::string>;
using Result = unsigned int;

Lines Split(const std::string& text, const std::string& separator)
{
    if (text.empty()) return {};
    const std::regex parting("\\s*(" + separator + ")\\s*");
    return {std::sregex_token_iterator(text.begin(), text.end(), parting, -1), {}};
}

/// What the operations work on, with a ZMQ_DEALER as the service.
struct World
{
    World()
    {
        peer.bind("inproc://service");
        publisher.bind("inproc://interrupt");
        server.SetStartupMessage("svc");
    }

    void Connect()
    {
        dealerSocket.connect("inproc://service");
        subscriber.connect("inproc://interrupt");
        subscriber.set(zmq::sockopt::subscribe, "");
    }

    void Queue(const std::string& frame, zmq::send_flags more = {}) { peer.send(zmq::buffer(frame), more); }

    Result SendPersistent() { return static_cast<Result>(persistent.SendRequest({'r'}, response, 0)); }

    Result SendDealer() { return static_cast<Result>(dealer.SendRequest({'r'}, response, 0)); }

    Result Await()
    {
        return static_cast<Result>(dealer.WaitForResponse(dealerSocket.handle(), subscriber.handle(), response, 0));
    }

    Result Burst()
    {
        server.ReadAndProcessBurstOfRequests(dealerSocket.handle(), 100);
        return FramesLeft();
    }

    Result Event()
    {
        server.ProcessConnectionEvents(dealerSocket.handle(), dealerSocket.handle(), registration);
        return FramesLeft();
    }

    Result FramesLeft()
    {
        faults::Stop();
        Result frames = 0;
        for (zmq::message_t frame; dealerSocket.recv(frame, zmq::recv_flags::dontwait);) ++frames;
        return frames;
    }

    zmq::context_t context;
    zmq::socket_t peer{context, zmq::socket_type::dealer};
    zmq::socket_t publisher{context, zmq::socket_type::pub};
    zmq::socket_t dealerSocket{context, zmq::socket_type::dealer};
    zmq::socket_t subscriber{context, zmq::socket_type::sub};
    OperatingMode mode;
    ipc::ZmqClientConnector persistent{"inproc://service", mode, context.handle()};
    ExposedDealerClient dealer{context.handle(), "inproc://service", "inproc://interrupt"};
    OnePriority server{"inproc://service", context.handle(), "id"};
    TwoPriorities both{"inproc://service", context.handle(), "id"};
    ByteVector registration = Bytes("registration");
    ByteVector response = Bytes("untouched");
};

struct Operation
{
    std::function<void(World&)> prepare;
    std::function<Result(World&)> run;
};

const std::map<std::string, Operation> kOperations = {
    {"persistent, first", {[](World&) {}, &World::SendPersistent}},
    {"persistent, replied",
     {[](World& world) {
          world.SendPersistent();
          world.Queue("reply");
      },
      &World::SendPersistent}},
    {"dealer", {[](World&) {}, &World::SendDealer}},
    {"dealer, replied",
     {[](World& world) {
          world.Connect();
          world.Queue("reply");
      },
      &World::Await}},
    {"dealer, interrupted",
     {[](World& world) {
          world.Connect();
          world.Queue("reply");
          world.publisher.send(zmq::message_t(), zmq::send_flags::none);
      },
      &World::Await}},
    {"start", {[](World&) {}, [](World& world) { return static_cast<Result>(world.server.StartListening()); }}},
    {"start both", {[](World&) {}, [](World& world) { return static_cast<Result>(world.both.StartListening()); }}},
    {"burst of three",
     {[](World& world) {
          world.Connect();
          for (int request = 0; request < 3; ++request) world.Queue("request");
          world.server.RegisterCallback([](const ByteVector&, ByteVector&) {});
      },
      &World::Burst}},
    {"connection event",
     {[](World& world) {
          world.Connect();
          const std::uint16_t id = ZMQ_EVENT_CONNECTED;
          world.Queue({reinterpret_cast<const char*>(&id), sizeof id}, zmq::send_flags::sndmore);
          world.Queue("address");
      },
      &World::Event}},
};

/// One line of the table, run at the level that prints errors and at the one that does not: only the lines may differ.
void ExpectFailure(const Lines& cells, int level)
{
    const Operation& operation = kOperations.at(cells.at(0));
    World world;
    CapturedLog log(level);
    operation.prepare(world);
    log.Take();
    for (const std::string& failing : Split(cells.at(1), ","))
    {
        std::smatch call;
        ASSERT_TRUE(std::regex_match(failing, call, std::regex("(\\w+) (\\d+)\\+?(\\d*)"))) << failing;
        faults::Fail(call[1], std::stoi(call[2]), call[3].length() > 0 ? std::stoi(call[3]) : 0);
    }
    faults::Record();
    EXPECT_EQ(operation.run(world), std::stoul(cells.at(2)));
    faults::Stop();

    std::string closed;
    for (const std::string& call : faults::Recorded({"zmq_msg_close", "zmq_close"}))
    {
        // The publisher that releases a failed start's subscriber is the owner's, and not ordered with the others.
        if (call == "zmq_close PUB") continue;
        closed += (closed.empty() ? "" : " ") + (call == "zmq_msg_close" ? "message" : call.substr(sizeof "zmq_close"));
    }
    EXPECT_EQ(closed, cells.at(3));
    EXPECT_EQ(Text(world.response), "untouched");

    Lines lines = Split(cells.at(4), " / ");
    for (std::string& line : lines)
    {
        for (const auto& [name, text] : std::map<std::string, std::string>{
                 {"\\{shared\\}", "[zeb.ipc.transport.connectors.rpc.library]"},
                 {"\\{client\\}", "[ipc::ZmqClientConnector]"},
                 {"\\{dealer\\}", "[ipc::ZmqClientDealerConnector]"},
                 {"\\{failed\\}", "{server} Server thread startup failed, wait for completion, status="},
                 {"\\{server\\}", "[ipc::ZmqServerConnector]"},
                 {"\\{control\\}", world.server.mControlEndpoint}})
        {
            line = std::regex_replace(line, std::regex(name), text);
        }
    }
    EXPECT_EQ(log.Take(), level == 3 ? lines : Lines{});
}

TEST(Failures, HaveTheirLinesStatusesAndClosesAndLeaveNothingOpen)
{
    std::ifstream table(FAILURES_TABLE);
    int rows = 0;
    for (std::string line; std::getline(table, line);)
    {
        if (line.front() == '#') continue;
        ++rows;
        SCOPED_TRACE(line);
        Lines cells = Split(line, "\\|");
        cells.resize(5);
        const std::size_t descriptors = OpenDescriptors();
        for (const int level : {3, 2}) ExpectFailure(cells, level);
        EXPECT_EQ(AwaitDescriptors(descriptors), descriptors);
        faults::Reset();
    }
    EXPECT_GT(rows, 40);
}

} // namespace
