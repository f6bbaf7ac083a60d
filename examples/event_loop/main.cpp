// event_loop ENDPOINT ENDPOINT
// One poll loop for a timer, standard input and two services. At each tick of the timer it asks both for their uptime;
// a line that is typed is a request to both.
//
// What to look at: `Ask`, which returns at once and says what becomes of the reply, and the loop, to which a service is
// one more descriptor. No reply is waited for, and no other thread runs code of this program.

#include <ipc/convenience/AsyncCaller.h>

#include <array>
#include <iostream>
#include <poll.h>
#include <string>
#include <sys/timerfd.h>
#include <unistd.h>

namespace
{

using namespace std::chrono_literals;
using zeb::tolvo::ipc::convenience::AsyncCaller;
using zeb::tolvo::ipc::convenience::Reply;

constexpr std::uint64_t kTicks = 4;
constexpr itimerspec kPeriod{{0, 250'000'000}, {0, 250'000'000}};

class Loop
{
public:
    Loop(const std::string& first, const std::string& second) : mFirst(first), mSecond(second)
    {
        timerfd_settime(mTimer, 0, &kPeriod, nullptr);
    }

    ~Loop() { close(mTimer); }

    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    /// @return whether every request was answered.
    bool Run()
    {
        std::array<pollfd, 4> items{{{mTimer, POLLIN, 0},
                                     {STDIN_FILENO, POLLIN, 0},
                                     {mFirst.GetFd(), POLLIN, 0},
                                     {mSecond.GetFd(), POLLIN, 0}}};
        while (mTick < kTicks || mUnderWay > 0)
        {
            if (poll(items.data(), items.size(), -1) < 0) continue; // a signal
            if (items[0].revents != 0) Tick();
            if (items[1].revents != 0 && !ReadInput()) items[1].fd = -1;
            if (items[2].revents != 0) mFirst.Dispatch();
            if (items[3].revents != 0) mSecond.Dispatch();
        }
        return mIsAllAnswered;
    }

private:
    void Tick()
    {
        std::uint64_t expirations = 0;
        if (read(mTimer, &expirations, sizeof expirations) < 0 || mTick == kTicks) return;
        std::cout << "tick " << ++mTick << std::endl;
        AskBoth("uptime");
    }

    /// @return false at the end of the input.
    bool ReadInput()
    {
        std::array<char, 256> line{};
        const ssize_t size = read(STDIN_FILENO, line.data(), line.size()); // a terminal gives it line by line
        if (size > 1) AskBoth({line.data(), static_cast<std::size_t>(size) - 1});
        return size > 0;
    }

    void AskBoth(const std::string& request)
    {
        Ask("first", mFirst, request);
        Ask("second", mSecond, request);
    }

    void Ask(const std::string& name, AsyncCaller& service, const std::string& request)
    {
        const bool isTaken = service.Call(request, 2s, [this, name](const Reply& reply) {
            --mUnderWay;
            const std::string text = reply ? reply.Text() : "no reply: " + reply.Describe();
            std::cout << name << ": " << text.substr(0, text.find('\n')) << std::endl;
            mIsAllAnswered = mIsAllAnswered && reply;
        });
        mUnderWay += isTaken ? 1 : 0;
        mIsAllAnswered = mIsAllAnswered && isTaken;
    }

    int mTimer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    std::uint64_t mTick = 0;
    int mUnderWay = 0;
    bool mIsAllAnswered = true;
    AsyncCaller mFirst;
    AsyncCaller mSecond;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3) return Loop(argv[1], argv[2]).Run() ? 0 : 1;
    std::cerr << "usage: event_loop ENDPOINT ENDPOINT\n";
    return 2;
}
