#include "DeviceStatus.h"
#include "support/Basics.h"

#include <fstream>

using namespace std::string_literals;

TEST(DeviceStatus, WordsAreAnsweredWithTheKernelsWholeFile)
{
    // What stays the same between two looks at each file: the beginning, and the number of lines.
    for (const auto& [word, stable] : {std::pair("uptime", 0U), {"loadavg", 0U}, {"meminfo", 20U}, {"cpuinfo", 20U}})
    {
        std::ifstream file("/proc/"s + word);
        const std::string content{std::istreambuf_iterator<char>(file), {}};
        const std::string answer = AnswerDeviceStatus(Bytes(word));
        EXPECT_EQ(answer.substr(0, stable), content.substr(0, stable)) << word;
        EXPECT_EQ(std::count(answer.begin(), answer.end(), '\n'), std::count(content.begin(), content.end(), '\n'));
    }
}

TEST(DeviceStatus, AnythingElseIsAnsweredWithTheKnownWords)
{
    for (const std::string& request : {""s, "uptim"s, "uptimes"s, "UPTIME"s, "uptime\0"s, "\0uptime"s,
                                       "../proc/uptime"s, "self/mem"s, "uptime" + std::string(1 << 20, '\xff')})
        EXPECT_EQ(AnswerDeviceStatus(Bytes(request)),
                  "unknown request; ask for one of: uptime loadavg meminfo cpuinfo\n")
            << request.substr(0, 40);
}
