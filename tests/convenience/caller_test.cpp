#include "support/Faults.h"
#include "support/Peers.h"
#include "support/Process.h"
#include "support/SignalStorm.h"

#include <ipc/convenience/AsyncCaller.h>

#include <cmath>

using namespace std::chrono_literals;
using namespace ipc::convenience;

constexpr std::chrono::milliseconds kLong(kPatience);

struct Callers : testing::Test
{
    /// The identity of the client whose request comes next.
    std::string Next() { return peer.Frames().at(0); }

    /// Queues a request whose end is noted in `ends`.
    bool Queue(AsyncCaller& caller, const std::string& request, Timeout timeout = kLong)
    {
        return caller.Call(request, timeout, [this, request, witness = witness](const Reply& reply) {
            ends.push_back(request + ": " + (reply ? reply.Text() : reply.Describe()));
        });
    }

    /// Dispatches until so many requests have ended.
    void Dispatch(AsyncCaller& caller, std::size_t count)
    {
        while (ends.size() < count && IsReadable(caller.GetFd())) caller.Dispatch();
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
    peer.Send({Next(), "late"});
    Caller moved(std::move(caller));
    auto answered = std::async(std::launch::async, [&] { peer.Answer(" answered"); });
    EXPECT_EQ(moved.Call(Bytes("second"), kLong).Text(), "second answered");
}

TEST_F(Callers, DoneMayThrowCallAndDispatch)
{
    AsyncCaller caller(endpoint);
    ASSERT_TRUE(caller.Call("throws", kLong, [&](const Reply& reply) {
        ends.emplace_back("throws");
        throw std::runtime_error(reply.Text());
    }));
    ASSERT_TRUE(caller.Call("nests", kLong, [&](const Reply&) {
        EXPECT_TRUE(Queue(caller, "from inside"));
        Dispatch(caller, 2);
        ends.emplace_back("nests");
    }));
    ASSERT_TRUE(Queue(caller, "behind"));
    for (int request = 0; request < 3; ++request) peer.Answer(" answered");
    ASSERT_TRUE(IsReadable(caller.GetFd()));
    EXPECT_THROW(caller.Dispatch(), std::runtime_error);
    Dispatch(caller, 3);
    EXPECT_EQ(ends, (Lines{"throws", "behind: behind answered", "nests"}));
    peer.Answer(" answered");
    Dispatch(caller, 4);
    EXPECT_EQ(ends.back(), "from inside: from inside answered");
    EXPECT_FALSE(IsReadable(caller.GetFd(), 0));
}

TEST_F(Callers, RequestsBeyondTheLimitAreNotTaken)
{
    AsyncCaller caller(endpoint, 2);
    EXPECT_TRUE(Queue(caller, "1"));
    EXPECT_TRUE(Queue(caller, "2"));
    peer.Answer(" answered");
    ASSERT_TRUE(IsReadable(caller.GetFd()));
    EXPECT_FALSE(Queue(caller, "3"));
    caller.Dispatch();
    EXPECT_TRUE(Queue(caller, "4"));
    for (int request = 0; request < 2; ++request) peer.Answer(" answered");
    Dispatch(caller, 3);
    EXPECT_EQ(ends, (Lines{"1: 1 answered", "2: 2 answered", "4: 4 answered"}));
}

TEST_F(Callers, EndFromEveryStateDropsWhatWaits)
{
    auto answered = std::async(std::launch::async, [&] { peer.Answer(" answered"); });
    Caller keeper(endpoint); // from here on ZeroMQ's threads have their descriptors
    EXPECT_TRUE(keeper.Call("", kLong));
    const DescriptorsComeBack guard;
    const auto start = std::chrono::steady_clock::now();
    {
        const AsyncCaller unused(endpoint);
        AsyncCaller caller(endpoint); // one under way, a hundred waiting
        for (int request = 0; request <= 100; ++request) ASSERT_TRUE(Queue(caller, "unanswered", 500ms));
        Next();
    }
    {
        AsyncCaller caller(endpoint); // one ended, one under way
        for (int request = 0; request < 2; ++request) ASSERT_TRUE(Queue(caller, "unanswered", 100ms));
        ASSERT_TRUE(IsReadable(caller.GetFd()));
        const AsyncCaller moved(std::move(caller));
    }
    auto caller = std::make_unique<AsyncCaller>(endpoint); // within a `done`
    ASSERT_TRUE(caller->Call("ends all", 0ms, [&](const Reply&) { caller.reset(); }));
    ASSERT_TRUE(Queue(*caller, "behind", 0ms));
    ASSERT_TRUE(IsReadable(caller->GetFd()));
    caller->Dispatch();
    EXPECT_EQ(ends, Lines{});
    EXPECT_EQ(witness.use_count(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s); // a hundred time-outs would take 50
}

TEST_F(Callers, SignalsEndNoWaitInAnEventLoop)
{
    AsyncCaller caller(endpoint);
    ASSERT_TRUE(Queue(caller, "request"));
    const std::string client = Next();
    const SignalStorm::Shelter shelter;
    const SignalStorm storm;
    EXPECT_FALSE(IsReadable(caller.GetFd(), 100));
    peer.Send({client, "reply"});
    Dispatch(caller, 1);
    EXPECT_EQ(ends, Lines{"request: reply"});
}

TEST(AsyncCaller, WithoutADescriptorIsNotMade)
{
    faults::Fail("eventfd", EMFILE);
    EXPECT_THROW(AsyncCaller("ipc://nowhere"), std::system_error);
}

TEST(AsyncCaller, TenThousandRequestsEndOnceAndInOrderWhateverTheServiceDoes)
{
    constexpr int kRequests = 10'000, kStopAt = 2'000, kKillAt = 6'000;
    constexpr int kFailures = 3; // of requests to a service that is down: then it goes on
    const TempFolder folder;
    const std::string endpoint = folder.Endpoint("service"), command = "exec " ECHO_SERVICE " " + endpoint;
    std::optional<Process> service(command);
    AsyncCaller caller(endpoint);
    int ended = 0, answered = 0, failuresToCome = 0;
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
            service.emplace(command);
    };
    for (int next = 0; ended < kRequests && !HasFatalFailure(); caller.Dispatch())
    {
        while (next < kRequests &&
               caller.Call(std::to_string(next), 200ms, [&, next](const Reply& reply) { note(next, reply); }))
            ++next;
        ASSERT_TRUE(IsReadable(caller.GetFd())) << ended << " have ended";
    }
    EXPECT_GT(answered, (kRequests + kKillAt) / 2); // also after the kill
    EXPECT_LE(answered, kRequests - 2 * kFailures);
    EXPECT_FALSE(IsReadable(caller.GetFd(), 0));
}

TEST(Timeout, IsTheNextWholeMillisecondThatAnIntHolds)
{
    using Minutes = std::chrono::duration<double, std::ratio<60>>;
    using std::chrono::hours, std::chrono::milliseconds;
    constexpr int kMost = std::numeric_limits<int>::max();
    using Row = std::pair<int, Timeout>;
    for (const auto& [expected, timeout] :
         {Row(0, 0s), Row(0, -1ms), Row(0, hours::min()), Row(0, Minutes(std::nan(""))), Row(1, 1ns), Row(1, 1000us),
          Row(2, 1001us), Row(3000, 3s), Row(3000, Minutes(0.05)), Row(kMost, milliseconds(kMost)),
          Row(kMost, milliseconds(1LL + kMost)), Row(kMost, hours::max()), Row(kMost, Minutes::max())})
        EXPECT_EQ(timeout.GetMilliseconds(), expected);
}
