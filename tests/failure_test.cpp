#include "support/World.h"

#include <cstring>
#include <fstream>
#include <regex>

Lines Split(const std::string& text, const std::string& separator)
{
    if (text.empty()) return {};
    const std::regex parting("\\s*(" + separator + ")\\s*");
    return {std::sregex_token_iterator(text.begin(), text.end(), parting, -1), {}};
}

/// A line of failures.txt, named after what is done and what fails.
struct Row
{
    std::string name, operation, failing, result, closed;
    Lines printed;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

std::vector<Row> ReadTable()
{
    std::ifstream table(FAILURES_TABLE);
    std::vector<Row> rows;
    for (std::string line; std::getline(table, line);)
    {
        if (line.front() == '#') continue;
        Lines cells = Split(line, "\\|");
        cells.resize(5);
        const std::string name = std::regex_replace(cells[0] + " " + cells[1], std::regex("\\W+"), "_");
        rows.push_back({name, cells[0], cells[1], cells[2], cells[3], Split(cells[4], " / ")});
        if (cells[0].rfind("start", 0) == 0)
            rows.back().printed.push_back("{server} Server thread startup failed, wait for completion, " + cells[2]);
    }
    return rows;
}

std::string Words(StatusCode status)
{
    static const std::map<StatusCode, std::string> kWords = {{StatusCode::Success, "Success"},
                                                             {StatusCode::Failure, "Failure"},
                                                             {StatusCode::Interrupted, "Interrupted"},
                                                             {StatusCode::TimedOut, "TimedOut"}};
    const auto known = kWords.find(status);
    return known != kWords.end() ? known->second : strerrorname_np(static_cast<int>(status) - 1000);
}

std::string Status(StatusCode status) { return "status " + Words(status); }

std::string Left(Wire& wire)
{
    faults::Reset();
    return "frames left: " + std::to_string(Drain(wire.inside).size());
}

const std::map<std::string, std::string (*)(World&)> kOperations = {
    {"two requests",
     [](World& world) {
         ipc::ZmqClientConnector client(kService, world.mode, world.context.handle());
         const StatusCode first = client.SendRequest({}, world.response, 0);
         return Status(first) + ", " + Words(client.SendRequest({}, world.response, 0));
     }},
    {"request replied", [](World& world) { return Status(world.Send()); }},
    {"dealer", [](World& world) { return Status(world.dealer.SendRequest({}, world.response, 0)); }},
    {"dealer replied", [](World& world) { return Status(world.Await()); }},
    {"dealer interrupted",
     [](World& world) {
         world.interrupter.Send({""});
         return Status(world.Await());
     }},
    {"start", [](World& world) { return Status(world.one.StartListening()); }},
    {"start both", [](World& world) { return Status(world.two.StartListening()); }},
    {"burst unhandled",
     [](World& world) {
         world.one.RegisterCallback({});
         return Left(world.Burst(100));
     }},
    {"burst of three", [](World& world) { return Left(world.Burst(100)); }},
    {"connection event", [](World& world) { return Left(world.ProcessEvent()); }},
};

void Arm(const std::string& failing)
{
    static const std::map<std::string, int> kErrors = {{"error 0", 0},        {"EAGAIN", EAGAIN}, {"EINTR", EINTR},
                                                       {"EINVAL", EINVAL},    {"EMFILE", EMFILE}, {"ENOMEM", ENOMEM},
                                                       {"ENOTSOCK", ENOTSOCK}};
    static const std::map<std::string, int> kSpared = {
        {"", 0}, {"second ", 1}, {"third ", 2}, {"fourth ", 3}, {"fifth ", 4}};
    if (failing == "nothing fails") return;
    for (const std::string& call : Split(failing, ", "))
    {
        std::smatch words;
        std::regex_match(call, words, std::regex("(\\w+ |)(\\w+): (.*)"));
        faults::Fail(words[2], kErrors.at(words[3]), kSpared.at(words[1]));
    }
}

/// A printed line as the table has it.
std::string Plain(std::string line)
{
    for (const auto& [pattern, name] : {std::pair("\\[zeb.ipc.transport.connectors.rpc.library\\]", "{library}"),
                                        {"\\[ipc::ZmqClientConnector\\]", "{client}"},
                                        {"\\[ipc::ZmqClientDealerConnector\\]", "{dealer}"},
                                        {"\\[ipc::ZmqServerConnector\\]", "{server}"},
                                        {"inproc://server/control//[0-9]+", "{control}"},
                                        {"inproc://server/monitor/[0-9]+", "{monitor}"}})
        line = std::regex_replace(line, std::regex(pattern), name);
    std::smatch status;
    if (!std::regex_search(line, status, std::regex("status=([0-9]+)$"))) return line;
    return status.prefix().str() + Status(static_cast<StatusCode>(std::stoi(status[1])));
}

using Operation = testing::TestWithParam<Row>;

// At the level that prints errors and at the one that does not: only the lines may differ.
TEST_P(Operation, DoesWhatItsRowSaysAndLeavesNothingOpen)
{
    const Row& row = GetParam();
    for (const int level : {3, 2})
    {
        SCOPED_TRACE("at log level " + std::to_string(level));
        const DescriptorsComeBack guard;
        World world;
        world.Send();
        world.service.Send({"reply"});
        world.frontEnd.Queue(3, "reply");
        world.monitor.QueueEvent(ZMQ_EVENT_CONNECTED);
        world.one.RegisterCallback([](const ByteVector&, ByteVector&) {});
        world.one.SetStartupMessage("svc");
        world.log.Take();
        world.log.SetLevel(level);

        Arm(row.failing);
        faults::Record();
        std::string result = kOperations.at(row.operation)(world);
        faults::Reset();
        if (Text(world.response) != "untouched") result += ", " + Text(world.response);
        EXPECT_EQ(result, row.result);

        std::string closed;
        for (const std::string& call : faults::Recorded("zmq_msg_close|zmq_close"))
            closed += call.substr(call.find(' '));
        EXPECT_EQ("closes" + (closed.empty() ? " nothing" : closed), row.closed);

        Lines printed;
        for (const std::string& line : world.log.Take()) printed.push_back(Plain(line));
        EXPECT_EQ(printed, level == 3 ? row.printed : Lines{});
    }
}

INSTANTIATE_TEST_SUITE_P(Failures, Operation, testing::ValuesIn(ReadTable()),
                         [](const testing::TestParamInfo<Row>& row) { return row.param.name; });
