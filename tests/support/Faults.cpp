#include "support/Faults.h"

#include <zebl/RootLogger.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <map>
#include <mutex>
#include <regex>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

namespace
{

using Lock = std::lock_guard<std::recursive_mutex>;

struct Fault
{
    int error, skip, times;
};

struct State
{
    std::recursive_mutex mutex;
    std::map<std::string, Fault> faults;                              // by function
    std::map<void*, std::pair<std::string, std::thread::id>> sockets; // those that are not ZeroMQ's own
    std::map<int, int> made;                                          // of each type
    std::vector<std::string> calls;
    bool isRecording = false;
};

constexpr const char* kSocketTypes[] = {"PAIR", "PUB", "SUB", "REQ", "REP", "DEALER", "ROUTER"};

/// ZeroMQ calls its own functions to set up a monitor: those are neither noted nor made to fail.
thread_local int tCallsInside = 0;

State& Get()
{
    static State& sInstance = *new State; // never destroyed: ZeroMQ calls until the process has ended
    return sInstance;
}

/// Notes a call; true when it has to fail, `errno` being set.
bool Fails(const std::string& function, const std::string& detail = {})
{
    if (tCallsInside > 0) return false;
    State& state = Get();
    const Lock lock(state.mutex);
    if (state.isRecording) state.calls.push_back(detail.empty() ? function : function + " " + detail);
    const auto fault = state.faults.find(function);
    if (fault == state.faults.end() || fault->second.skip-- > 0) return false;
    errno = fault->second.error;
    if (--fault->second.times == 0) state.faults.erase(fault);
    return true;
}

} // namespace

// Defines a function that fails when told to and is the real one otherwise.
#define PASS_ON(name, parameters, arguments, detail)                                                                   \
    int name parameters                                                                                                \
    {                                                                                                                  \
        static const auto real = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name));                           \
        if (Fails(#name, detail)) return -1;                                                                           \
        ++tCallsInside;                                                                                                \
        const int result = real arguments;                                                                             \
        --tCallsInside;                                                                                                \
        return result;                                                                                                 \
    }

extern "C"
{
    PASS_ON(zmq_connect, (void* socket, const char* endpoint), (socket, endpoint), endpoint)
    PASS_ON(zmq_bind, (void* socket, const char* endpoint), (socket, endpoint), endpoint)
    PASS_ON(zmq_unbind, (void* socket, const char* endpoint), (socket, endpoint), endpoint)
    PASS_ON(zmq_setsockopt, (void* socket, int option, const void* value, size_t size), (socket, option, value, size),
            std::to_string(option) + (size == sizeof(int) ? " " + std::to_string(*static_cast<const int*>(value)) : ""))
    PASS_ON(zmq_send, (void* socket, const void* data, size_t size, int flags), (socket, data, size, flags),
            std::string(static_cast<const char*>(data), size))
    PASS_ON(zmq_poll, (zmq_pollitem_t * items, int count, long timeout), (items, count, timeout), std::to_string(count))
    PASS_ON(zmq_msg_init, (zmq_msg_t * message), (message), "")
    PASS_ON(zmq_msg_recv, (zmq_msg_t * message, void* socket, int flags), (message, socket, flags), "")
    PASS_ON(zmq_msg_close, (zmq_msg_t * message), (message), "message")
    PASS_ON(zmq_errno, (), (), "")
    PASS_ON(zmq_socket_monitor, (void* socket, const char* endpoint, int events), (socket, endpoint, events),
            endpoint != nullptr ? endpoint : "off")
    PASS_ON(eventfd, (unsigned int value, int flags) noexcept, (value, flags), "")
    PASS_ON(pipe2, (int fds[2], int flags) noexcept, (fds, flags), "")

    void* zmq_socket(void* context, int type)
    {
        static const auto real = reinterpret_cast<decltype(&zmq_socket)>(dlsym(RTLD_NEXT, "zmq_socket"));
        if (Fails("zmq_socket", kSocketTypes[type])) return nullptr;
        void* socket = real(context, type);
        const Lock lock(Get().mutex);
        if (socket == nullptr || tCallsInside > 0) return socket;
        const int number = ++Get().made[type];
        Get().sockets[socket] = {kSocketTypes[type] + (number > 1 ? std::to_string(number) : ""),
                                 std::this_thread::get_id()};
        return socket;
    }

    int zmq_close(void* socket)
    {
        static const auto real = reinterpret_cast<decltype(&zmq_close)>(dlsym(RTLD_NEXT, "zmq_close"));
        const Lock lock(Get().mutex);
        if (const auto known = Get().sockets.extract(socket))
        {
            const auto& [type, maker] = known.mapped();
            Fails("zmq_close", type + (maker == std::this_thread::get_id() ? "" : " of another thread"));
        }
        return real(socket);
    }

    int nanosleep(const timespec* wanted, timespec* remaining)
    {
        static const auto real = reinterpret_cast<decltype(&nanosleep)>(dlsym(RTLD_NEXT, "nanosleep"));
        // The stop's sleeps only: ZeroMQ's and the runtimes' are their own.
        const bool isWhole = wanted->tv_nsec == 500'000'000;
        const bool isRest = wanted->tv_nsec == 300'000'000;
        if (!faults::areSleepsShort || remaining == nullptr || isWhole == isRest) return real(wanted, remaining);
        Fails("nanosleep", std::to_string(wanted->tv_nsec));
        if (isRest) return 0;
        *remaining = {0, 300'000'000};
        errno = EINTR;
        return -1;
    }
}

/// A logger that changes errno, as a device's may that opens something when it is first used.
zebl::Log::RootLogger& zebl::Log::RootLogger::GetInstance()
{
    using Getter = RootLogger& (*)();
    static const auto real = reinterpret_cast<Getter>(dlsym(RTLD_NEXT, "_ZN4zebl3Log10RootLogger11GetInstanceEv"));
    RootLogger& logger = real();
    errno = ENOENT;
    return logger;
}

namespace faults
{

void Fail(const std::string& function, int error, int skip, int times)
{
    const Lock lock(Get().mutex);
    Get().faults[function] = {error, skip, times};
}

void Record()
{
    const Lock lock(Get().mutex);
    Get().calls.clear();
    Get().made.clear();
    Get().isRecording = true;
}

std::vector<std::string> Recorded(const std::string& beginning)
{
    const Lock lock(Get().mutex);
    std::vector<std::string> calls;
    std::copy_if(Get().calls.begin(), Get().calls.end(), std::back_inserter(calls),
                 [&](const std::string& call) { return std::regex_search(call, std::regex("^(" + beginning + ")")); });
    return calls;
}

void Reset()
{
    const Lock lock(Get().mutex);
    Get().faults.clear();
    Get().isRecording = false;
}

} // namespace faults
