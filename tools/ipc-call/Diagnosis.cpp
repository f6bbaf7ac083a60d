#include "ipc-call/Diagnosis.h"

#include <ipc/convenience/Describe.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <netdb.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace zeb::tolvo::desk
{

namespace
{

constexpr std::string_view kIpc = "ipc://";
constexpr std::string_view kTcp = "tcp://";

bool StartsWith(const std::string& text, std::string_view start) { return text.compare(0, start.size(), start) == 0; }

/// @return the error number, 0 when somebody listens at `address`.
int Connect(const sockaddr* address, socklen_t size)
{
    const int descriptor = socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return errno;
    const int error = connect(descriptor, address, size) == 0 ? 0 : errno;
    close(descriptor);
    return error;
}

std::string Finding(int error, const std::string& place)
{
    switch (error)
    {
    case 0:
        return "somebody listens at " + place +
               ", but the service did not answer (there may be none at this address, or it is slow)";
    case ENOENT:
        return "there is no socket file " + place;
    case ECONNREFUSED:
        return "nobody listens at " + place;
    case EACCES:
        return "not allowed to write to " + place;
    case EHOSTUNREACH:
    case ENETUNREACH:
    case ETIMEDOUT:
        return place + " can't be reached";
    default:
        return "no connection to " + place + ": " + std::generic_category().message(error);
    }
}

std::string LookAtPath(const std::string& path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return Finding(ENAMETOOLONG, path);
    std::error_code ignored;
    const auto status = std::filesystem::status(path, ignored);
    if (exists(status) && !is_socket(status)) return path + " is no socket";
    std::memcpy(address.sun_path, path.data(), path.size());
    if (path[0] == '@') address.sun_path[0] = '\0'; // ZeroMQ's mark of a name that is no file
    const std::size_t size = offsetof(sockaddr_un, sun_path) + path.size();
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the system's way to pass addresses
    return Finding(Connect(reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(size)), path);
}

/// @param place host and port.
std::string LookAtPort(std::string place)
{
    place.erase(0, place.find(';') + 1); // the address to connect from
    const std::size_t colon = place.rfind(':');
    addrinfo hints = {};
    hints.ai_family = AF_INET; // as ZeroMQ unless told
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(place.substr(0, colon).c_str(), place.substr(colon + 1).c_str(), &hints, &found);
    if (error != 0) return place + " can't be reached: " + gai_strerror(error);
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(found, freeaddrinfo);
    return Finding(Connect(found->ai_addr, found->ai_addrlen), place);
}

std::string LookAt(const std::string& endpoint)
{
    return StartsWith(endpoint, kIpc) ? LookAtPath(endpoint.substr(kIpc.size()))
                                      : LookAtPort(endpoint.substr(kTcp.size()));
}

} // namespace

std::string FailureText(StatusCode status, int timeoutMs)
{
    if (status == StatusCode::TimedOut) return "no reply within " + std::to_string(timeoutMs) + " ms";
    return ipc::convenience::Describe(status);
}

std::string Diagnosis(StatusCode status, int timeoutMs, const std::string& endpoint)
{
    constexpr auto kPatience = std::chrono::seconds(1);
    std::string text = FailureText(status, timeoutMs);
    if (status != StatusCode::TimedOut || (!StartsWith(endpoint, kIpc) && !StartsWith(endpoint, kTcp))) return text;

    // On a thread that is left behind when neither a name nor a machine answers.
    std::packaged_task<std::string()> task([endpoint] { return LookAt(endpoint); });
    auto finding = task.get_future();
    std::thread(std::move(task)).detach();
    if (finding.wait_for(kPatience) == std::future_status::ready) return text + ": " + finding.get();
    return text + ": " + endpoint + " can't be reached";
}

} // namespace zeb::tolvo::desk
