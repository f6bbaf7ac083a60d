#include "quillmere/Lines.h"

#include <zebl/RootLogger.h>

#include <cstddef>

namespace zeb::tolvo::desk
{

namespace
{

constexpr std::size_t kLongestShown = 255;

void Print(TolvoLogLevel level, const std::string& line)
{
    zebl::Log::RootLogger::GetInstance().Print(level, "tolvo-quillmere: %s", line.c_str());
}

} // namespace

std::string Quote(std::string_view name)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string quoted = "\"";
    for (const char character : name.substr(0, kLongestShown))
    {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\')
            quoted += character;
        else
            quoted.append("\\x").append(1, kDigits[byte / 16]).append(1, kDigits[byte % 16]);
    }
    return quoted.append(name.size() > kLongestShown ? "...\"" : "\"");
}

void Note(const std::string& line) { Print(TolvoLogLevel::Notice, line); }

void Warn(const std::string& line) { Print(TolvoLogLevel::Warning, line); }

void Complain(const std::string& line) { Print(TolvoLogLevel::Error, line); }

} // namespace zeb::tolvo::desk
