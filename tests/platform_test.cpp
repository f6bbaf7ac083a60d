#include "support/CapturedLog.h"

#include <zebl/QuillmereDataScheme.h>

TEST(Platform, ErrorNumbersBecomeStatusesOfTheirOwn)
{
    EXPECT_EQ(MakeStatusCodeFromErrno(0), StatusCode::Success);
    EXPECT_EQ(static_cast<unsigned>(MakeStatusCodeFromErrno(EINTR)), 1004U);
    EXPECT_EQ(static_cast<unsigned>(MakeStatusCodeFromErrno(156384765)), 156385765U);
}

TEST(Platform, LoggerWritesWholeLinesOfAnyLengthFromAnyThread)
{
    CapturedLog log(5);
    auto& logger = zebl::Log::RootLogger::GetInstance();
    EXPECT_EQ(static_cast<void*>(&logger.mLevel), static_cast<void*>(&logger));
    for (const std::size_t length : {0U, 510U, 511U, 512U, 5'000U})
    {
        errno = ENOTTY;
        logger.Print(TolvoLogLevel::Notice, "%s", std::string(length, 'x').c_str());
        EXPECT_EQ(errno, ENOTTY);
        EXPECT_EQ(log.Take(), Lines{std::string(length, 'x')});
    }
    const auto print = [&logger](char letter) {
        for (int line = 0; line < 200; ++line)
        {
            logger.Print(TolvoLogLevel::Notice, "%s", std::string(600, letter).c_str());
            logger.Print(TolvoLogLevel::Info, "above the level");
        }
    };
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b', 'c', 'd'}) threads.emplace_back(print, letter);
    for (std::thread& thread : threads) thread.join();
    const Lines lines = log.Take();
    EXPECT_EQ(lines.size(), 800U);
    for (const std::string& line : lines) EXPECT_EQ(line, std::string(600, line.at(0)));
}

TEST(Platform, RegistrationIsCompactJsonWhateverTheBytes)
{
    ByteVector bytes(1'000, 'x');
    for (const auto& [address, encoded] : {std::pair("", ""),
                                           {"with space", "with space"},
                                           {"ü✓", "ü✓"},
                                           {"\xff!", "\xEF\xBF\xBD!"},
                                           {"q\"\n", "q\\\"\\n"}})
    {
        zebl::QuillmereDataSchemeRegister(address).DumpToByteVector(bytes);
        EXPECT_EQ(Text(bytes), std::string(R"({"address":")") + encoded + R"(","type":"register"})");
    }
}
