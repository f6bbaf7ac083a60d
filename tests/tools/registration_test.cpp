#include "quillmere/Registration.h"

#include <gtest/gtest.h>

namespace
{

using namespace std::string_literals;

TEST(Registration, IsReadOrRefusedOrSomethingElse)
{
    constexpr std::size_t kLongestAddress = 8;
    const std::string usual = R"({"type":"register","address":"12345678"})";
    for (const auto& [frame, expected] : {
             std::pair(usual, "12345678|"s),
             std::pair(R"( {"address":"a \u00f6 名","more":[1],"type":"register"} )"s, "a ö 名|"s),
             std::pair(R"({"type":"register","address":"."})"s, ".|its address is the name of a directory"s),
             std::pair(R"({"type":"register","address":"a\u0000b"})"s, "a\0b|its address contains a zero byte"s),
             std::pair(R"({"type":"register","address":""})"s, "|its address is empty"s),
             std::pair(R"({"type":"register","address":7})"s, "|it has no address in text"s),
             std::pair(usual + std::string(4096, ' '), "none"s),
             std::pair("[" + usual + "]", "none"s),
             std::pair("{\"type\":\"register\",\"address\":\"\xff\"}"s, "none"s),
             std::pair(R"({"type":1,"address":"a"})"s, "none"s),
             std::pair(R"({"address":"a"})"s, "none"s),
             std::pair(std::string(4096, '{'), "none"s),
         })
    {
        const auto registration = zeb::tolvo::desk::ReadRegistration(frame, kLongestAddress);
        EXPECT_EQ(registration ? registration->address + "|" + registration->fault : "none", expected) << frame;
    }
}

} // namespace
