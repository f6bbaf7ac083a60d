#include "support/Faults.h"

#include <zmq.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <list>
#include <map>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace
{

struct Fault
{
    std::string function;
    int error;
    int skip;
};

struct Socket
{
    int type;
    std::thread::id maker;
    bool isOfZeroMQ;
};

struct State
{
    std::mutex mutex;
    std::list<Fault> faults;
    std::map<void*, Socket> sockets;
    std::vector<std::string> calls;
    bool isRecording = false;
};

// Zero until main: the library makes its first call while it is loaded, before this program's objects exist.
std::atomic<State*> sState{nullptr};
std::atomic<bool> sAreSleepsShort{false};
std::atomic<bool> sIsFirstSleep{false};

/// ZeroMQ calls its own functions to set up a monitor: those are neither noted nor made to fail.
thread_local int tCallsInside = 0;

struct Inside
{
    Inside() { ++tCallsInside; }

    ~Inside() { --tCallsInside; }
};

State& Get()
{
    static State& sInstance = *new State; // never destroyed: ZeroMQ calls until the process has ended
    sState = &sInstance;
    return sInstance;
}

std::string TypeName(int type)
{
    static const std::map<int, std::string> kNames = {
        {ZMQ_PAIR, "PAIR"}, {ZMQ_PUB, "PUB"}, {ZMQ_SUB, "SUB"}, {ZMQ_DEALER, "DEALER"}};
    const auto name = kNames.find(type);
    return name == kNames.end() ? std::to_string(type) : name->second;
}

/// Notes a call; true when it has to fail, `errno` being set.
bool Fails(const char* function, const std::string& detail = {})
{
    State* state = sState;
    if (state == nullptr || tCallsInside > 0) return false;
    const std::lock_guard<std::mutex> lock(state->mutex);
    if (state->isRecording) state->calls.push_back(detail.empty() ? function : function + (" " + detail));
    for (auto fault = state->faults.begin(); fault != state->faults.end(); ++fault)
    {
        if (fault->function != function || fault->skip-- > 0) continue;
        errno = fault->error;
        state->faults.erase(fault);
        return true;
    }
    return false;
}

Socket Known(void* socket)
{
    State& state = Get();
    const std::lock_guard<std::mutex> lock(state.mutex);
    return state.sockets[socket];
}

template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// Defines a function of ZeroMQ that fails when told to and is the real one otherwise.
#define PASS_ON(name, parameters, arguments, detail)                                                                   \
    int name parameters                                                                                                \
    {                                                                                                                  \
        static const auto real = Real<int parameters>(#name);                                                          \
        if (Fails(#name, detail)) return -1;                                                                           \
        const Inside inside;                                                                                           \
        return real arguments;                                                                                         \
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
    PASS_ON(zmq_msg_close, (zmq_msg_t * message), (message), "")
    PASS_ON(zmq_socket_monitor, (void* socket, const char* endpoint, int events), (socket, endpoint, events), endpoint)
    PASS_ON(pipe2, (int fds[2], int flags) noexcept, (fds, flags), "")

    void* zmq_socket(void* context, int type)
    {
        static const auto real = Real<void*(void*, int)>("zmq_socket");
        if (Fails("zmq_socket", TypeName(type))) return nullptr;
        void* socket = real(context, type);
        State& state = Get();
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (socket != nullptr) state.sockets[socket] = {type, std::this_thread::get_id(), tCallsInside > 0};
        return socket;
    }

    int zmq_close(void* socket)
    {
        static const auto real = Real<int(void*)>("zmq_close");
        const Socket known = Known(socket);
        const bool isMaker = known.maker == std::this_thread::get_id();
        if (!known.isOfZeroMQ) Fails("zmq_close", TypeName(known.type) + (isMaker ? "" : " of another thread"));
        return real(socket);
    }

    int nanosleep(const timespec* wanted, timespec* remaining)
    {
        constexpr long kStopDelayNs = 500'000'000;
        constexpr long kRemainingNs = 300'000'000;
        static const auto real = Real<int(const timespec*, timespec*)>("nanosleep");
        // The stop's sleeps only: ZeroMQ's and the runtimes' are their own.
        const bool isStop = wanted->tv_sec == 0 && (wanted->tv_nsec == kStopDelayNs || wanted->tv_nsec == kRemainingNs);
        if (!sAreSleepsShort || !isStop || remaining == nullptr) return real(wanted, remaining);
        const bool isInterrupted = sIsFirstSleep.exchange(false);
        Fails("nanosleep", std::to_string(wanted->tv_nsec));
        if (!isInterrupted) return 0;
        *remaining = {0, kRemainingNs};
        errno = EINTR;
        return -1;
    }
}

namespace faults
{

void Fail(const std::string& function, int error, int skip)
{
    State& state = Get();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.faults.push_back({function, error, skip});
}

void Record()
{
    State& state = Get();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.calls.clear();
    state.isRecording = true;
}

std::vector<std::string> Recorded(const std::vector<std::string>& functions)
{
    State& state = Get();
    const std::lock_guard<std::mutex> lock(state.mutex);
    std::vector<std::string> calls;
    std::copy_if(state.calls.begin(), state.calls.end(), std::back_inserter(calls), [&](const std::string& call) {
        return functions.empty() || std::any_of(functions.begin(), functions.end(), [&](const std::string& function) {
                   return call.compare(0, function.size(), function) == 0;
               });
    });
    return calls;
}

void ShortenSleeps()
{
    sAreSleepsShort = true;
    sIsFirstSleep = true;
}

void Stop()
{
    State& state = Get();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.faults.clear();
    state.isRecording = false;
}

void Reset()
{
    Stop();
    sAreSleepsShort = false;
}

} // namespace faults
