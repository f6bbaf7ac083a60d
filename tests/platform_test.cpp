#include "support/CapturedLog.h"

#include <tolvo/StatusCode.h>
#include <zebl/QuillmereDataScheme.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

using zeb::tolvo::MakeStatusCodeFromErrno;
using zeb::tolvo::StatusCode;
using zebl::Log::RootLogger;

TEST(Platform, ErrorNumbersBecomeStatusesOfTheirOwn)
{
    EXPECT_EQ(MakeStatusCodeFromErrno(0), StatusCode::Success);
    EXPECT_EQ(static_cast<unsigned>(MakeStatusCodeFromErrno(EINTR)), 1004U);
    EXPECT_EQ(static_cast<unsigned>(MakeStatusCodeFromErrno(156384765)), 156385765U);
}

TEST(Platform, LoggerWritesWholeLinesOfAnyLengthFromAnyThread)
{
    CapturedLog log(5);
    RootLogger& logger = RootLogger::GetInstance();
    EXPECT_EQ(static_cast<void*>(&logger.mLevel), static_cast<void*>(&logger));
    const std::vector<std::size_t> lengths = {0, 510, 511, 512, 5'000};
    for (const std::size_t length : lengths)
    {
        errno = ENOTTY;
        logger.Print(TolvoLogLevel::Notice, "%s", std::string(length, 'x').c_str());
        EXPECT_EQ(errno, ENOTTY);
        EXPECT_EQ(log.Take(), std::vector<std::string>{std::string(length, 'x')});
    }
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b', 'c', 'd'})
    {
        threads.emplace_back([&logger, letter] {
            for (int line = 0; line < 200; ++line)
            {
                logger.Print(TolvoLogLevel::Notice, "%s", std::string(600, letter).c_str());
                logger.Print(TolvoLogLevel::Info, "above the level");
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    const std::vector<std::string> lines = log.Take();
    EXPECT_EQ(lines.size(), 800U);
    for (const std::string& line : lines) EXPECT_EQ(line, std::string(600, line.at(0)));
}

TEST(Platform, RegistrationIsCompactJsonWhateverTheBytes)
{
    const std::pair<std::string, std::string> addresses[] = {{"", ""},
                                                             {"with space", "with space"},
                                                             {"ü✓", "ü✓"},
                                                             {"a\xff"
                                                              "b",
                                                              "a\xEF\xBF\xBD"
                                                              "b"},
                                                             {"q\"\n", "q\\\"\\n"}};
    std::vector<unsigned char> bytes(1'000, 'x');
    for (const auto& [address, encoded] : addresses)
    {
        zebl::QuillmereDataSchemeRegister(address).DumpToByteVector(bytes);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), R"({"address":")" + encoded + R"(","type":"register"})");
    }
}
