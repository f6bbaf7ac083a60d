// A caller whose wait of 30 seconds is ended from outside: first by another thread, then by another process.

#include <ipc/ZmqClientDealerConnector.h>

#include <CLI/CLI.hpp>
#include <zmq.hpp>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace
{

namespace ipc = zeb::tolvo::ipc;
using zeb::tolvo::StatusCode;
using Clock = std::chrono::steady_clock;

constexpr int kBadUsage = 2;
constexpr int kTimeoutMs = 30'000;
constexpr int kPublishPeriodMs = 20;

void Require(bool isDone, const char* operation)
{
    if (!isDone) throw std::system_error(errno, std::generic_category(), operation);
}

class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string path = (std::filesystem::temp_directory_path() / "interruptible-caller-XXXXXX").string();
        Require(mkdtemp(path.data()) != nullptr, "mkdtemp");
        mPath = path;
    }

    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string Endpoint(const std::string& name) const { return "ipc://" + (mPath / name).string(); }

private:
    std::filesystem::path mPath;
};

/// A pipe that tells a publisher to stop: the caller closes its end.
class StopPipe
{
public:
    StopPipe() { Require(pipe2(mEnds.data(), O_CLOEXEC) == 0, "pipe2"); }

    ~StopPipe()
    {
        Stop();
        close(mEnds[0]);
    }

    StopPipe(const StopPipe&) = delete;
    StopPipe& operator=(const StopPipe&) = delete;

    int PublisherEnd() const { return mEnds[0]; }

    void Stop()
    {
        if (mEnds[1] >= 0) close(mEnds[1]);
        mEnds[1] = -1;
    }

private:
    std::array<int, 2> mEnds{-1, -1};
};

// An interrupt published before the caller's subscriber has connected is lost, and nobody can see from here when that
// is: so one is published again and again until the call has returned.
void PublishUntilClosed(zmq::socket_t& publisher, int stopEnd)
{
    pollfd stop{stopEnd, POLLIN, 0};
    do {
        publisher.send(zmq::str_buffer("interrupt"), zmq::send_flags::dontwait);
    } while (poll(&stop, 1, kPublishPeriodMs) == 0);
}

/// Another thread that interrupts.
class PublisherThread
{
public:
    PublisherThread(zmq::context_t& context, const std::string& endpoint) : mPublisher(context, zmq::socket_type::pub)
    {
        mPublisher.bind(endpoint);
        mThread = std::thread([this] { PublishUntilClosed(mPublisher, mStop.PublisherEnd()); });
    }

    ~PublisherThread()
    {
        mStop.Stop();
        mThread.join();
    }

    PublisherThread(const PublisherThread&) = delete;
    PublisherThread& operator=(const PublisherThread&) = delete;

private:
    zmq::socket_t mPublisher;
    StopPipe mStop;
    std::thread mThread;
};

/// Another process that interrupts: this program again, since a forked copy would inherit this one's ZeroMQ contexts.
class PublisherProcess
{
public:
    explicit PublisherProcess(const std::string& endpoint)
    {
        std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
        std::string option = "--publish=" + endpoint;
        std::array<char*, 3> arguments{program.data(), option.data(), nullptr};

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, mStop.PublisherEnd(), STDIN_FILENO);
        const int error = posix_spawn(&mId, program.c_str(), &actions, nullptr, arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0) throw std::system_error(error, std::generic_category(), "posix_spawn");
    }

    ~PublisherProcess()
    {
        mStop.Stop();
        while (waitpid(mId, nullptr, 0) < 0 && errno == EINTR)
        {
        }
    }

    PublisherProcess(const PublisherProcess&) = delete;
    PublisherProcess& operator=(const PublisherProcess&) = delete;

private:
    StopPipe mStop;
    pid_t mId = -1;
};

void Publish(const std::string& endpoint)
{
    zmq::context_t context;
    zmq::socket_t publisher(context, zmq::socket_type::pub);
    publisher.bind(endpoint);
    PublishUntilClosed(publisher, STDIN_FILENO);
}

bool CallAndReport(ipc::ZmqClientDealerConnector& connector, const std::string& interrupter)
{
    ipc::ByteVector response;
    const auto start = Clock::now();
    const StatusCode status = connector.SendRequest({'?'}, response, kTimeoutMs);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);

    const bool isInterrupted = status == StatusCode::Interrupted && took.count() < kTimeoutMs / 2;
    std::cout << "a wait of " << kTimeoutMs << " ms, " << (isInterrupted ? "" : "NOT ") << "interrupted by another "
              << interrupter << ": " << took.count() << " ms, status " << static_cast<unsigned int>(status)
              << std::endl;
    return isInterrupted;
}

bool CallTwice()
{
    const TemporaryFolder folder;
    const std::string requests = folder.Endpoint("requests");
    const std::string fromThread = folder.Endpoint("interrupt-from-thread");
    const std::string fromProcess = folder.Endpoint("interrupt-from-process");

    zmq::context_t context; // the factory keeps its own to itself
    zmq::socket_t silentService(context, zmq::socket_type::router);
    silentService.bind(requests);

    {
        ipc::ZmqClientDealerConnector connector(context.handle(), requests, fromThread);
        const PublisherThread publisher(context, fromThread);
        if (!CallAndReport(connector, "thread")) return false;
    }
    ipc::ZmqClientDealerConnector connector(context.handle(), requests, fromProcess);
    const PublisherProcess publisher(fromProcess);
    return CallAndReport(connector, "process");
}

} // namespace

int main(int argc, char** argv)
{
    std::string endpoint;
    CLI::App app("Waits 30 s for a reply that never comes, and is interrupted by a thread, then by a process.");
    app.add_option("--publish", endpoint, "Only interrupt the callers at this endpoint, until standard input ends");
    try
    {
        app.parse(argc, argv);

        // A signal ends a wait as well, with a status made from EINTR: main then returns and the folder goes.
        struct sigaction noRestart = {};
        noRestart.sa_handler = [](int) {};
        sigaction(SIGINT, &noRestart, nullptr);
        sigaction(SIGTERM, &noRestart, nullptr);

        if (!endpoint.empty())
        {
            Publish(endpoint);
            return EXIT_SUCCESS;
        }
        return CallTwice() ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kBadUsage;
    }
    catch (const std::exception& error)
    {
        std::cerr << "interruptible_caller: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
