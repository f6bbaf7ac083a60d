#include "quillmere/Lines.h"

#include "common/Bytes.h"
#include "quillmere/Outlet.h"

#include <zebl/RootLogger.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <unistd.h>

namespace zeb::tolvo::desk
{

namespace
{

constexpr std::size_t kLongestShown = 255;

Outlet& StandardOutput()
{
    static Outlet sOutlet(STDOUT_FILENO);
    return sOutlet;
}

Outlet& StandardError()
{
    static Outlet sOutlet(STDERR_FILENO);
    return sOutlet;
}

} // namespace

std::string Escape(std::string_view name)
{
    std::string escaped;
    for (std::string_view rest = name.substr(0, kLongestShown); !rest.empty();)
    {
        const bool isMark = rest.front() == '"' || rest.front() == '\\';
        const std::size_t shown = isMark ? 0 : ShownCharacter(rest);
        if (shown > 0)
            escaped.append(rest.substr(0, shown));
        else
            escaped.append("\\x").append(Hex(rest.substr(0, 1)));
        rest.remove_prefix(std::max<std::size_t>(shown, 1));
    }
    return name.size() > kLongestShown ? escaped.append("...") : escaped;
}

std::string Quote(std::string_view name) { return '"' + Escape(name) + '"'; }

// At the logger's level, but not by its `Print`, which waits for a reader.
void Note(const std::string& line)
{
    if (*zebl::Log::RootLogger::GetInstance().mLevel < static_cast<int>(TolvoLogLevel::Notice)) return;
    StandardError().Write("tolvo-quillmere: " + line + '\n');
}

void StopWaitingForReaders()
{
    StandardOutput().StopWaiting();
    StandardError().StopWaiting();
}

int Print(std::string_view lines)
{
    const int error = StandardOutput().Write(lines);
    if (error == EPIPE) throw OutputClosed();
    return error;
}

} // namespace zeb::tolvo::desk
