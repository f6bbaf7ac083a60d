#include "support/CapturedLog.h"

#include <zebl/QuillmereDataScheme.h>

TEST(Platform, LoggerWritesWholeLinesOfAnyLength)
{
    CapturedLog log(5);
    auto& logger = zebl::Log::RootLogger::GetInstance();
    EXPECT_EQ(static_cast<void*>(&logger.mLevel), static_cast<void*>(&logger));
    for (const std::size_t length : {0U, 510U, 511U, 512U, 5'000U})
    {
        errno = ENOTTY;
        logger.Print(TolvoLogLevel::Notice, "%s", std::string(length, 'x').c_str());
        EXPECT_EQ(errno, ENOTTY);
        logger.Print(TolvoLogLevel::Info, "above the level");
        EXPECT_EQ(log.Take(), Lines{std::string(length, 'x')});
    }
}

TEST(Platform, RegistrationIsCompactJsonWhateverTheBytes)
{
    ByteVector bytes(1'000, 'x');
    zebl::QuillmereDataSchemeRegister("with space, ü✓\xff!q\"\n").DumpToByteVector(bytes);
    EXPECT_EQ(Text(bytes), R"({"address":"with space, ü✓)"
                           "\xEF\xBF\xBD"
                           R"(!q\"\n","type":"register"})");
}
