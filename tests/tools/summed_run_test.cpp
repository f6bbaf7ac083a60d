#include "ipc-call/SummedRun.h"
#include "support/Basics.h"

#include <csignal>
#include <unistd.h>

namespace
{

namespace desk = zeb::tolvo::desk;

struct CallerWithoutReply : desk::Caller
{
    StatusCode Call(const ByteVector&, ByteVector&) override
    {
        for (;;) pause();
    }
};

void RunShortOfThreads()
{
    alarm(30); // seconds
    desk::Options options;
    options.parallel = 2;
    bool isFirst = true;
    const auto maker = [&isFirst]() -> std::unique_ptr<desk::Caller> {
        if (std::exchange(isFirst, false)) return std::make_unique<CallerWithoutReply>();
        EXPECT_EQ(raise(SIGINT), 0);
        throw std::system_error(EAGAIN, std::generic_category());
    };
    desk::RunSummed(maker, std::vector<ByteVector>(2), options);
}

// A death test by name runs first: a fork must not find the threads of other tests.
TEST(SummedRunDeathTest, SignalEndsItWhileItWaitsForCallersAfterAnotherCouldNotBeMade)
{
    EXPECT_EXIT(RunShortOfThreads(), testing::KilledBySignal(SIGINT), "");
}

} // namespace
