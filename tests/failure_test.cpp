#include "support/World.h"

#include <fstream>
#include <map>
#include <regex>

namespace
{

Lines Split(const std::string& text, const std::string& separator)
{
    if (text.empty()) return {};
    const std::regex parting("\\s*(" + separator + ")\\s*");
    return {std::sregex_token_iterator(text.begin(), text.end(), parting, -1), {}};
}

std::string Number(StatusCode status) { return std::to_string(static_cast<unsigned>(status)); }

std::string FramesLeft(Wire& wire)
{
    faults::Reset();
    return std::to_string(Drain(wire.inside).size());
}

const std::map<std::string, std::string (*)(World&)> kOperations = {
    {"two requests",
     [](World& world) {
         ipc::ZmqClientConnector client(kService, world.mode, world.context.handle());
         const std::string first = Number(client.SendRequest({}, world.response, 0));
         return first + " " + Number(client.SendRequest({}, world.response, 0));
     }},
    {"request, replied", [](World& world) { return Number(world.Send()); }},
    {"dealer", [](World& world) { return Number(world.dealer.SendRequest({}, world.response, 0)); }},
    {"dealer, replied", [](World& world) { return Number(world.Await()); }},
    {"dealer, interrupted", [](World& world) { return Number(world.Await()); }},
    {"start", [](World& world) { return Number(world.one.StartListening()); }},
    {"start both", [](World& world) { return Number(world.two.StartListening()); }},
    {"burst of three", [](World& world) { return FramesLeft(world.Burst(100)); }},
    {"connection event", [](World& world) { return FramesLeft(world.ProcessEvent()); }},
};

/// One line of the table, run at the level that prints errors and at the one that does not: only the lines may differ.
void ExpectRow(const Lines& cells, int level)
{
    const DescriptorsComeBack guard;
    World world;
    world.Send();
    world.service.Send({"reply"});
    world.frontEnd.Queue(3, "reply");
    if (cells.at(0) == "dealer, interrupted") world.interrupter.Send({""});
    world.monitor.QueueEvent(ZMQ_EVENT_CONNECTED);
    world.one.RegisterCallback([](const ByteVector&, ByteVector&) {});
    world.one.SetStartupMessage("svc");
    world.log.Take();
    world.log.SetLevel(level);

    const std::regex calls("(\\w+) (\\d+)\\+?(\\d*)");
    for (std::sregex_iterator call(cells.at(1).begin(), cells.at(1).end(), calls), end; call != end; ++call)
        faults::Fail((*call)[1], std::stoi((*call)[2]), std::atoi((*call)[3].str().c_str()));
    faults::Record();
    std::string result = kOperations.at(cells.at(0))(world);
    faults::Reset();
    if (Text(world.response) != "untouched") result += " " + Text(world.response);
    EXPECT_EQ(result, cells.at(2));

    Lines closed;
    for (const std::string& call : faults::Recorded("zmq_msg_close|zmq_close"))
        closed.push_back(call.substr(call.find(' ') + 1));
    EXPECT_EQ(closed, Split(cells.at(3), " "));

    std::string lines = cells.at(4);
    for (const auto& [name, text] : {std::pair("shared", "[zeb.ipc.transport.connectors.rpc.library]"),
                                     {"client", "[ipc::ZmqClientConnector]"},
                                     {"dealer", "[ipc::ZmqClientDealerConnector]"},
                                     {"failed", "{server} Server thread startup failed, wait for completion, status="},
                                     {"server", "[ipc::ZmqServerConnector]"},
                                     {"control", world.one.mControlEndpoint.c_str()}})
        lines = std::regex_replace(lines, std::regex("\\{" + std::string(name) + "\\}"), text);
    Lines printed = world.log.Take();
    for (std::string& line : printed)
        line = std::regex_replace(line, std::regex("inproc://server/monitor/[0-9]+"), "{monitor}");
    EXPECT_EQ(printed, level == 3 ? Split(lines, " / ") : Lines{});
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
        for (const int level : {3, 2}) ExpectRow(cells, level);
    }
    EXPECT_GT(rows, 50);
}

} // namespace
