#include "common/AnswerTimes.h"
#include "quillmere/Questions.h"
#include "quillmere/Report.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace zeb::tolvo::desk;
using Kind = Passage::Kind;

TEST(Report, TraceLinesFitATerminalWhateverTheBodyHolds)
{
    const std::string made("\0\x01\x02\xab\xcd", 5);
    for (const auto& [kind, name, client, body, expected] : {
             std::tuple(Kind::Request, "status"s, made, "uptime\n"s,
                        "status           <- 0102abcd       7             \"uptime\\n\""s),
             std::tuple(Kind::Reply, "status"s, made, "\xff\x00\x10"s + "text",
                        "status           -> 0102abcd       7    1.500 ms 0xff001074657874"s),
             std::tuple(Kind::Request, "Köln 名"s, "me"s, ""s,
                        "Köln 名           <- me             0             \"\""s),
             std::tuple(Kind::Request, "\xc3\x28\xc0\xaf"s, "\u202e"s, ""s,
                        "\\xc3(\\xc0\\xaf    <- \\xe2\\x80\\xae       0             \"\""s),
             std::tuple(Kind::Registration, "id"s, ""s, std::string(4096, '"'),
                        "id               registers      4096             \"\"\"\"\"\"\"\"\"\"\"\"\"\"..."s),
             std::tuple(Kind::Reply, "status"s, made, std::string(1 << 20, '\1'),
                        "status           -> 0102abcd 1048576    1.500 ms 0x010101010101..."s),
         })
    {
        const std::string line = TraceLine({kind, name, client, body, 1500us}, {});
        EXPECT_EQ(line.substr("00:00:00.000 "s.size()), expected);
        EXPECT_LE(line.size(), 79U);
    }
}

TEST(Report, TellsOfEachServer)
{
    const std::vector<ServerReport> reports = {{"a", "an identity", 12'345'678, 1, 2, 3, 4, 1500us, 2s, 5s},
                                               {"\x01\xff", "name ------ö and no more"}};
    EXPECT_EQ(AnswerQuestion("services\n", reports),
              "  passed answered dropped waiting lost median    worst address  identity\n"
              "12345678        1       2       3    4  1.500 2000.000 a        an identity\n"
              "       0        0       0       0    0  0.000    0.000 \\x01\\xff name ------ö...\n");
    EXPECT_EQ(nlohmann::json::parse(AnswerQuestion("services json", reports))[0], nlohmann::json::parse(R"({
        "address": "a", "identity": "an identity", "passed": 12345678, "answered": 1, "dropped": 2, "waiting": 3,
        "lost": 4, "median_ms": 1.5, "worst_ms": 2000.0, "registered_s": 5.0})"));
    EXPECT_EQ(AnswerQuestion("what", reports), "unknown request \"what\"; known are: services, services json\n");
}

TEST(AnswerTimes, AreKnownWithinOnePercentAndTheWorstExactly)
{
    AnswerTimes times, others;
    EXPECT_EQ(times.Percentile(0.5), 0ns);
    for (int answer = 1; answer <= 1000; ++answer) (answer % 2 == 0 ? times : others).Add(answer * 1234ns);
    times.Add(others);
    EXPECT_EQ(times.Count(), 1000U);
    for (const int percent : {1, 50, 99})
        EXPECT_NEAR(static_cast<double>(times.Percentile(percent / 100.0).count()), percent * 12'340.0,
                    percent * 123.4);
    EXPECT_EQ(times.Percentile(1), times.Worst());
    EXPECT_EQ(times.Worst(), 1'234'000ns);
}

} // namespace
