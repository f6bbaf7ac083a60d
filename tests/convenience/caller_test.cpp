#include "support/Peers.h"

#include <ipc/convenience/AsyncCaller.h>

#include <cmath>
#include <csignal>
#include <dlfcn.h>
#include <future>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

thread_local bool areDescriptorsRefused = false;

extern "C" int eventfd(unsigned int value, int flags) noexcept
{
    static const auto real = reinterpret_cast<decltype(&eventfd)>(dlsym(RTLD_NEXT, "eventfd"));
    if (!areDescriptorsRefused) return real(value, flags);
    errno = EMFILE;
    return -1;
}

namespace
{

using namespace std::chrono_literals;
using ipc::convenience::AsyncCaller;
using ipc::convenience::Caller;
using ipc::convenience::Describe;
using ipc::convenience::Reply;
using ipc::convenience::Timeout;

constexpr std::chrono::milliseconds kLong(kPatience);

bool IsReadable(const AsyncCaller& caller, int timeoutMs = kPatience)
{
    pollfd item{caller.GetFd(), POLLIN, 0};
    return poll(&item, 1, timeoutMs) == 1;
}

struct Callers : testing::Test
{
    /// The next request at the peer, with the identity of its client.
    std::pair<std::string, std::string> Next()
    {
        zmq::message_t client;
        zmq::message_t body;
        if (!peer.recv(client) || !peer.recv(body)) return {};
        return {client.to_string(), body.to_string()};
    }

    void AnswerNext()
    {
        const auto [client, body] = Next();
        peer.Send({client, body + " answered"});
    }

    /// Queues a request whose end is noted in `ends`.
    bool Queue(AsyncCaller& caller, const std::string& request, Timeout timeout = kLong)
    {
        return caller.Call(request, timeout, [this, request, witness = witness](const Reply& reply) {
            ends.push_back(request + ": " + (reply ? reply.Text() : reply.Describe()));
        });
    }

    TempFolder folder;
    const std::string endpoint = folder.Endpoint("service");
    zmq::context_t context;
    Peer peer{context, zmq::socket_type::router, endpoint};
    Lines ends;
    const std::shared_ptr<int> witness = std::make_shared<int>(); // held by each `done` that `Queue` has passed
};

TEST_F(Callers, LateReplyIsLost)
{
    Caller caller(endpoint);
    EXPECT_EQ(caller.Call("first", 0ms).status, StatusCode::TimedOut);
    peer.Send({Next().first, "late"});
    Caller moved(std::move(caller));
    auto answered = std::async(std::launch::async, [&] { AnswerNext(); });
    EXPECT_EQ(moved.Call(Bytes("second"), kLong).Text(), "second answered");
}

TEST_F(Callers, LateReplyIsLostInAnEventLoop)
{
    AsyncCaller caller(endpoint);
    ASSERT_TRUE(Queue(caller, "first", 0ms));
    ASSERT_TRUE(IsReadable(caller));
    peer.Send({Next().first, "late"});
    ASSERT_TRUE(Queue(caller, "second"));
    AnswerNext();
    while (ends.size() < 2 && IsReadable(caller)) caller.Dispatch();
    EXPECT_EQ(ends, (Lines{"first: timed out", "second: second answered"}));
}

TEST_F(Callers, DoneMayThrowCallAndDispatch)
{
    AsyncCaller caller(endpoint);
    ASSERT_TRUE(caller.Call("throws", kLong, [](const Reply& reply) { throw std::runtime_error(reply.Text()); }));
    ASSERT_TRUE(caller.Call("nests", kLong, [&](const Reply&) {
        EXPECT_TRUE(Queue(caller, "from inside"));
        while (ends.empty() && IsReadable(caller)) caller.Dispatch();
        ends.emplace_back("nests");
    }));
    ASSERT_TRUE(Queue(caller, "behind"));
    for (int request = 0; request < 3; ++request) AnswerNext();
    ASSERT_TRUE(IsReadable(caller));
    EXPECT_THROW(caller.Dispatch(), std::runtime_error);
    while (ends.size() < 2 && IsReadable(caller)) caller.Dispatch();
    EXPECT_EQ(ends, (Lines{"behind: behind answered", "nests"}));
    AnswerNext();
    while (ends.size() < 3 && IsReadable(caller)) caller.Dispatch();
    EXPECT_EQ(ends.back(), "from inside: from inside answered");
    EXPECT_FALSE(IsReadable(caller, 0));
}

TEST_F(Callers, RequestsBeyondTheLimitAreNotTaken)
{
    AsyncCaller caller(endpoint, 2);
    EXPECT_TRUE(Queue(caller, "1"));
    EXPECT_TRUE(Queue(caller, "2"));
    EXPECT_FALSE(Queue(caller, "3"));
    AnswerNext();
    ASSERT_TRUE(IsReadable(caller));
    EXPECT_FALSE(Queue(caller, "4"));
    caller.Dispatch();
    EXPECT_TRUE(Queue(caller, "5"));
    for (int request = 0; request < 2; ++request) AnswerNext();
    while (ends.size() < 3 && IsReadable(caller)) caller.Dispatch();
    EXPECT_EQ(ends, (Lines{"1: 1 answered", "2: 2 answered", "5: 5 answered"}));
}

TEST_F(Callers, EndFromEveryStateDropsWhatWaits)
{
    auto answered = std::async(std::launch::async, [&] { AnswerNext(); });
    Caller keeper(endpoint); // from here on ZeroMQ's threads have their descriptors
    EXPECT_TRUE(keeper.Call("", kLong));
    const DescriptorsComeBack guard;
    const auto start = std::chrono::steady_clock::now();
    {
        const AsyncCaller unused(endpoint);
    }
    {
        AsyncCaller caller(endpoint); // one under way, a hundred waiting
        for (int request = 0; request <= 100; ++request) ASSERT_TRUE(Queue(caller, "unanswered", 500ms));
        Next();
    }
    {
        AsyncCaller caller(endpoint); // one ended, one under way
        for (int request = 0; request < 2; ++request) ASSERT_TRUE(Queue(caller, "unanswered", 100ms));
        ASSERT_TRUE(IsReadable(caller));
        const AsyncCaller moved(std::move(caller));
    }
    auto caller = std::make_unique<AsyncCaller>(endpoint); // within a `done`
    ASSERT_TRUE(caller->Call("ends all", 0ms, [&](const Reply&) { caller.reset(); }));
    ASSERT_TRUE(Queue(*caller, "behind", 0ms));
    ASSERT_TRUE(IsReadable(*caller));
    caller->Dispatch();
    EXPECT_EQ(ends, Lines{});
    EXPECT_EQ(witness.use_count(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s); // a hundred time-outs would take 50
}

TEST_F(Callers, SignalsEndNoWaitInAnEventLoop)
{
    const auto usual = signal(SIGUSR1, [](int) {});
    sigset_t mask;
    sigset_t usualMask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    AsyncCaller caller(endpoint);
    ASSERT_TRUE(Queue(caller, "request"));
    const auto [client, body] = Next();
    pthread_sigmask(SIG_BLOCK, &mask, &usualMask); // signals then go to another thread, if one takes them
    for (int signals = 0; signals < 100 && !IsReadable(caller, 1); ++signals) kill(getpid(), SIGUSR1);
    peer.Send({client, "reply"});
    while (ends.empty() && IsReadable(caller)) caller.Dispatch();
    EXPECT_EQ(ends, Lines{"request: reply"});
    pthread_sigmask(SIG_SETMASK, &usualMask, nullptr);
    signal(SIGUSR1, usual);
}

TEST(AsyncCaller, WithoutADescriptorIsNotMade)
{
    areDescriptorsRefused = true;
    EXPECT_THROW(AsyncCaller("ipc://nowhere"), std::system_error);
    areDescriptorsRefused = false;
}

/// A service that is a process.
struct Service
{
    explicit Service(const std::string& endpoint)
    {
        std::string program = ECHO_SERVICE;
        std::string argument = endpoint;
        char* const arguments[] = {program.data(), argument.data(), nullptr};
        if (posix_spawn(&id, program.c_str(), nullptr, nullptr, arguments, environ) != 0) throw std::bad_alloc();
    }

    ~Service()
    {
        kill(id, SIGKILL);
        waitpid(id, nullptr, 0);
    }

    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    pid_t id = -1;
};

TEST(Caller, KilledServiceAnswersOnceItIsBack)
{
    const TempFolder folder;
    Caller caller(folder.Endpoint("service"));
    std::optional<Service> service(folder.Endpoint("service"));
    EXPECT_EQ(caller.Call("first", kLong).Text(), "first");
    service.reset();
    EXPECT_EQ(caller.Call("second", 1ms).status, StatusCode::TimedOut);
    service.emplace(folder.Endpoint("service"));
    EXPECT_EQ(caller.Call("third", kLong).Text(), "third");
}

TEST(AsyncCaller, TenThousandRequestsEndOnceAndInOrderWhateverTheServiceDoes)
{
    constexpr int kRequests = 10'000;
    constexpr int kStopAt = 2'000;
    constexpr int kKillAt = 6'000;
    constexpr int kFailures = 3; // of requests to a service that is down: then it goes on
    const TempFolder folder;
    std::optional<Service> service(folder.Endpoint("service"));
    AsyncCaller caller(folder.Endpoint("service"));
    int ended = 0;
    int answered = 0;
    int failuresToCome = 0;
    const auto note = [&](int number, const Reply& reply) {
        ASSERT_EQ(number, ended++);
        ASSERT_EQ(reply ? reply.Text() : reply.Describe(), reply ? std::to_string(number) : "timed out");
        answered += reply ? 1 : 0;
        if (ended == kStopAt) kill(service->id, SIGSTOP);
        if (ended == kKillAt) service.reset();
        if (ended == kStopAt || ended == kKillAt) failuresToCome = kFailures;
        if (reply || failuresToCome == 0 || --failuresToCome > 0) return;
        if (service)
            kill(service->id, SIGCONT);
        else
            service.emplace(folder.Endpoint("service"));
    };
    for (int next = 0; ended < kRequests && !HasFatalFailure(); caller.Dispatch())
    {
        while (next < kRequests &&
               caller.Call(std::to_string(next), 200ms, [&, next](const Reply& reply) { note(next, reply); }))
            ++next;
        ASSERT_TRUE(IsReadable(caller)) << ended << " have ended";
    }
    EXPECT_GT(answered, kRequests / 2);
    EXPECT_LE(answered, kRequests - 2 * kFailures);
    EXPECT_FALSE(IsReadable(caller, 0));
}

TEST(Timeout, IsTheNextWholeMillisecondThatAnIntHolds)
{
    using Minutes = std::chrono::duration<double, std::ratio<60>>;
    using std::chrono::hours, std::chrono::milliseconds;
    constexpr int kMost = std::numeric_limits<int>::max();
    const std::pair<Timeout, int> cases[] = {{0s, 0},
                                             {1ns, 1},
                                             {1000us, 1},
                                             {1001us, 2},
                                             {3s, 3000},
                                             {Minutes(0.5), 30'000},
                                             {-1ms, 0},
                                             {hours::min(), 0},
                                             {Minutes(std::nan("")), 0},
                                             {milliseconds(kMost), kMost},
                                             {milliseconds(1LL + kMost), kMost},
                                             {hours::max(), kMost},
                                             {Minutes::max(), kMost}};
    for (const auto& [timeout, expected] : cases) EXPECT_EQ(timeout.GetMilliseconds(), expected);
}

TEST(Describe, SaysEachStatusInWords)
{
    const std::pair<StatusCode, std::string> cases[] = {
        {StatusCode::Success, "success"},
        {StatusCode::Failure, "failed"},
        {StatusCode::Interrupted, "interrupted by a message"},
        {StatusCode::BlockingForbidden, "waiting is forbidden"},
        {StatusCode::TimedOut, "timed out"},
        {MakeStatusCodeFromErrno(EINVAL), "Invalid argument"},
        {MakeStatusCodeFromErrno(ETERM), "the ZeroMQ context has ended"},
        {StatusCode{99}, "status 99"}};
    for (const auto& [status, words] : cases) EXPECT_EQ(Describe(status), words);
}

} // namespace
