#include "DeviceStatus.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

namespace
{

struct Source
{
    std::string_view request;
    const char* path;
};

constexpr std::array<Source, 4> kSources{{
    {"uptime", "/proc/uptime"},
    {"loadavg", "/proc/loadavg"},
    {"meminfo", "/proc/meminfo"},
    {"cpuinfo", "/proc/cpuinfo"},
}};

// To the end of the stream: the kernel's files have size 0 until they are read.
std::string ReadWhole(const char* path)
{
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    if (!(content << file.rdbuf())) throw std::system_error(errno, std::generic_category(), path);
    return content.str();
}

} // namespace

std::string AnswerDeviceStatus(const zeb::tolvo::ipc::ByteVector& request)
{
    const auto* source = std::find_if(kSources.begin(), kSources.end(), [&](const Source& candidate) {
        return std::equal(candidate.request.begin(), candidate.request.end(), request.begin(), request.end());
    });
    if (source != kSources.end()) return ReadWhole(source->path);

    std::string answer = "unknown request; ask for one of:";
    for (const Source& known : kSources) answer.append(" ").append(known.request);
    return answer.append("\n");
}
