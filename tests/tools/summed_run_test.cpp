#include "ipc-call/SummedRun.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

using namespace zeb::tolvo;

struct CallerWithoutReply : desk::Caller
{
    StatusCode Call(const ipc::ByteVector&, ipc::ByteVector&) override
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
    desk::RunSummed(maker, std::vector<ipc::ByteVector>(2), options);
}

TEST(SummedRun, SignalEndsItWhileItWaitsForCallersAfterAnotherCouldNotBeMade)
{
    EXPECT_EXIT(RunShortOfThreads(), testing::KilledBySignal(SIGINT), "");
}

} // namespace
