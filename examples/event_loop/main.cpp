// One poll loop for a timer, standard input and the responses of two clients that wait on threads of their own.

#include <ipc/ResponsesFIFO.h>
#include <ipc/ZmqConnectorFactory.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace
{

namespace ipc = zeb::tolvo::ipc;
using zeb::tolvo::StatusCode;

constexpr int kBadUsage = 2;
constexpr int kPatienceMs = 2000;
constexpr long kTickNs = 250'000'000;
constexpr std::uint64_t kWorkers = 2;

class MayWait : public ipc::OperatingModeInterface
{
public:
    bool IsBlockingForbidden() override { return false; }
};

/// A descriptor that counts events: expirations of a timer, ends of workers.
class Counter
{
public:
    explicit Counter(int fd) : mFd(fd)
    {
        if (mFd < 0) throw std::system_error(errno, std::generic_category(), "event descriptor");
    }

    ~Counter() { close(mFd); }

    Counter(const Counter&) = delete;
    Counter& operator=(const Counter&) = delete;

    int Fd() const { return mFd; }

    std::uint64_t Take() const
    {
        std::uint64_t count = 0;
        return read(mFd, &count, sizeof count) == sizeof count ? count : 0;
    }

    void Add() const { static_cast<void>(eventfd_write(mFd, 1)); }

private:
    int mFd;
};

/// Tells the workers to end before their next request.
class QuitFlag
{
public:
    void Raise()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mIsRaised = true;
        mRaised.notify_all();
    }

    /// @return true when it was raised before `until`.
    bool AwaitUntil(std::chrono::steady_clock::time_point until)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mRaised.wait_until(lock, until, [&] { return mIsRaised; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mRaised;
    bool mIsRaised = false;
};

struct Job
{
    std::string endpoint;
    std::vector<std::string> requests{"uptime", "loadavg"};
    unsigned int rounds = 4;
    unsigned int periodMs = 200;
};

/// The body of a worker: blocks in its client where the loop must not.
/// @return true when every request was answered.
bool AskInRounds(unsigned int worker, const Job& job, ipc::ResponsesFIFO& responses, QuitFlag& quit)
{
    MayWait operatingMode;
    std::unique_ptr<ipc::AbstractClientConnector> client;
    bool isAllAnswered = true;
    auto nextRound = std::chrono::steady_clock::now();
    for (unsigned int round = 0; round < job.rounds && !quit.AwaitUntil(nextRound); ++round)
    {
        nextRound += std::chrono::milliseconds(job.periodMs);
        for (const std::string& request : job.requests)
        {
            if (!client)
            {
                client = ipc::ZmqConnectorFactory::GetInstance().CreateZmqClientConnector(job.endpoint, operatingMode);
            }
            ipc::ByteVector reply;
            const StatusCode status = client->SendRequest({request.begin(), request.end()}, reply, kPatienceMs);
            std::string line = "worker " + std::to_string(worker) + ", " + request + ": ";
            if (status == StatusCode::Success)
            {
                line.append(reply.begin(), reply.end());
            }
            else
            {
                line += "no reply, status " + std::to_string(static_cast<unsigned int>(status));
                client.reset(); // a late reply would be taken for the next request's
                isAllAnswered = false;
            }
            responses.PushResponse({line.begin(), line.end()});
        }
    }
    return isAllAnswered;
}

void PrintFirstLine(const ipc::ByteVector& response)
{
    if (response.empty()) return; // none was queued
    std::cout << std::string(response.begin(), std::find(response.begin(), response.end(), '\n')) << std::endl;
}

/// Reads what is there of standard input.
/// @return false at its end.
bool ReadInput(std::string& pending, QuitFlag& quit)
{
    std::array<char, 256> chunk{};
    const ssize_t size = read(STDIN_FILENO, chunk.data(), chunk.size());
    if (size <= 0) return size < 0 && errno == EINTR;

    pending.append(chunk.data(), static_cast<std::size_t>(size));
    for (std::size_t end = 0; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1))
    {
        if (pending.compare(0, end, "quit") == 0)
        {
            std::cout << "quitting" << std::endl;
            quit.Raise();
        }
        else
        {
            std::cout << "\"quit\" is all I understand" << std::endl;
        }
    }
    return true;
}

bool Run(const Job& job)
{
    ipc::ResponsesFIFO responses;
    if (responses.Initialize() != StatusCode::Success) throw std::runtime_error("no pipe for the responses");

    const Counter ended(eventfd(0, EFD_CLOEXEC));
    const Counter ticks(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
    const itimerspec period{{0, kTickNs}, {0, kTickNs}};
    timerfd_settime(ticks.Fd(), 0, &period, nullptr);

    QuitFlag quit;
    std::vector<std::future<bool>> workers;
    for (unsigned int worker = 1; worker <= kWorkers; ++worker)
    {
        workers.push_back(std::async(std::launch::async, [&, worker] {
            const bool isAllAnswered = AskInRounds(worker, job, responses, quit);
            ended.Add(); // after the last response: the loop then finds all of them
            return isAllAnswered;
        }));
    }

    std::array<pollfd, 4> items{{{responses.GetReadFd(), POLLIN, 0},
                                 {ticks.Fd(), POLLIN, 0},
                                 {STDIN_FILENO, POLLIN, 0},
                                 {ended.Fd(), POLLIN, 0}}};
    std::string input;
    std::uint64_t tick = 0;
    for (std::uint64_t endedWorkers = 0; endedWorkers < kWorkers || responses.AreResponsesPending();)
    {
        if (poll(items.data(), items.size(), -1) < 0)
        {
            if (errno == EINTR) continue;
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (items[0].revents != 0)
        {
            // At least once, since a byte may arrive after its response was taken; then to the last response, since one
            // pushed while the pipe was full has no byte.
            do {
                PrintFirstLine(responses.PopResponse());
            } while (responses.AreResponsesPending());
        }
        if (items[1].revents != 0)
        {
            tick += ticks.Take();
            std::cout << "tick " << tick << std::endl;
        }
        if (items[2].revents != 0 && !ReadInput(input, quit)) items[2].fd = -1;
        if (items[3].revents != 0) endedWorkers += ended.Take();
    }

    bool isAllAnswered = true;
    for (std::future<bool>& worker : workers) isAllAnswered &= worker.get();
    return isAllAnswered;
}

} // namespace

int main(int argc, char** argv)
{
    Job job;
    CLI::App app("Asks a service from two threads and prints the answers in one poll loop. \"quit\" ends it early.");
    app.add_option("--endpoint", job.endpoint, "Endpoint of the service for its clients")->required();
    app.add_option("--request", job.requests, "A request; may be repeated")->capture_default_str();
    app.add_option("--rounds", job.rounds, "How often each worker sends every request")->capture_default_str();
    app.add_option("--period", job.periodMs, "Milliseconds from round to round")->capture_default_str();
    try
    {
        app.parse(argc, argv);
        return Run(job) ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kBadUsage;
    }
    catch (const std::exception& error)
    {
        std::cerr << "event_loop: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
