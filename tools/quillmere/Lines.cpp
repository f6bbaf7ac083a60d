#include "quillmere/Lines.h"

#include "common/Bytes.h"

#include <zebl/RootLogger.h>

#include <cerrno>
#include <cstddef>
#include <system_error>
#include <unistd.h>

namespace zeb::tolvo::desk
{

namespace
{

constexpr std::size_t kLongestShown = 255;

void PrintError(TolvoLogLevel level, const std::string& line)
{
    zebl::Log::RootLogger::GetInstance().Print(level, "tolvo-quillmere: %s", line.c_str());
}

} // namespace

std::string Escape(std::string_view name)
{
    std::string escaped;
    for (const char& character : name.substr(0, kLongestShown))
    {
        if (IsPrintable(character) && character != '"' && character != '\\')
            escaped += character;
        else
            escaped.append("\\x").append(Hex({&character, 1}));
    }
    return name.size() > kLongestShown ? escaped.append("...") : escaped;
}

std::string Quote(std::string_view name) { return '"' + Escape(name) + '"'; }

void Note(const std::string& line) { PrintError(TolvoLogLevel::Notice, line); }

void Warn(const std::string& line) { PrintError(TolvoLogLevel::Warning, line); }

void Complain(const std::string& line) { PrintError(TolvoLogLevel::Error, line); }

void Print(std::string_view lines)
{
    while (!lines.empty())
    {
        const ssize_t written = write(STDOUT_FILENO, lines.data(), lines.size());
        if (written >= 0)
            lines.remove_prefix(static_cast<std::size_t>(written));
        else if (errno == EPIPE)
            throw OutputClosed();
        else if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "standard output");
    }
}

} // namespace zeb::tolvo::desk
