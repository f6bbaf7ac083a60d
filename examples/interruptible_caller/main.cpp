// interruptible_caller INTERRUPTS
// A caller whose wait of 30 seconds is ended from outside: first by another thread, then by another process. Both
// publish at the endpoint INTERRUPTS. `interruptible_caller --publish INTERRUPTS` is that process: it interrupts the
// callers there until its standard input ends.
//
// What to look at: `PublishUntil`, since an interrupt that is published before the caller has connected is lost, and
// the context in `CallTwice`, which is this program's own. The convenience layer has nothing for this client.

#include <ipc/ZmqClientDealerConnector.h>

#include <zmq.hpp>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <future>
#include <iostream>
#include <memory>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace
{

using namespace std::chrono_literals;
using zeb::tolvo::StatusCode;
using zeb::tolvo::ipc::ByteVector;
using zeb::tolvo::ipc::ZmqClientDealerConnector;
using Clock = std::chrono::steady_clock;

constexpr int kTimeoutMs = 30'000;
constexpr auto kPeriod = 20ms;

/// Publishes again and again, since nobody can see from here when the caller has connected.
/// @param isOver waits for the period at most.
void PublishUntil(const std::function<bool()>& isOver, const std::string& endpoint)
{
    zmq::context_t context;
    zmq::socket_t publisher(context, zmq::socket_type::pub);
    publisher.bind(endpoint);
    do publisher.send(zmq::str_buffer("interrupt"), zmq::send_flags::dontwait);
    while (!isOver());
}

void PublishUntilInputEnds(const std::string& endpoint)
{
    static_cast<void>(signal(SIGTERM, [](int) {})); // ends the waiting as well
    PublishUntil([input = pollfd{STDIN_FILENO, POLLIN, 0}]() mutable { return poll(&input, 1, kPeriod.count()) != 0; },
                 endpoint);
}

struct PipeCloser
{
    void operator()(FILE* pipe) const noexcept { pclose(pipe); }
};

using Pipe = std::unique_ptr<FILE, PipeCloser>;

/// This program again, as another process whose standard input is the pipe: a forked copy would share its sockets.
Pipe StartPublisher(const std::string& endpoint)
{
    std::array<char, 4096> program{};
    if (readlink("/proc/self/exe", program.data(), program.size() - 1) < 0) return nullptr;
    // NOLINTNEXTLINE(cert-env33-c): the command is this program and its user's own argument
    return Pipe(popen(("exec '" + std::string(program.data()) + "' --publish '" + endpoint + "'").c_str(), "w"));
}

bool CallAndReport(ZmqClientDealerConnector& service, const std::string& interrupter)
{
    ByteVector response;
    const auto start = Clock::now();
    const StatusCode status = service.SendRequest({'?'}, response, kTimeoutMs);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);

    const bool isInterrupted = status == StatusCode::Interrupted;
    std::cout << "a wait of " << kTimeoutMs << " ms, " << (isInterrupted ? "" : "NOT ") << "interrupted by another "
              << interrupter << ": " << took.count() << " ms, status " << static_cast<unsigned int>(status)
              << std::endl;
    return isInterrupted;
}

bool CallTwice(const std::string& interrupts)
{
    zmq::context_t context; // the factory keeps its own to itself
    zmq::socket_t silentService(context, zmq::socket_type::router);
    silentService.bind("inproc://service");
    ZmqClientDealerConnector service(context.handle(), "inproc://service", interrupts);

    std::promise<void> returned;
    auto publisher = std::async(std::launch::async, [&, isOver = returned.get_future()] {
        PublishUntil([&] { return isOver.wait_for(kPeriod) == std::future_status::ready; }, interrupts);
    });
    const bool isInterrupted = CallAndReport(service, "thread");
    returned.set_value();
    publisher.get();

    const Pipe otherProcess = StartPublisher(interrupts);
    return CallAndReport(service, "process") && isInterrupted;
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        if (argc == 2) return CallTwice(argv[1]) ? 0 : 1;
        if (argc == 3 && std::string(argv[1]) == "--publish") return PublishUntilInputEnds(argv[2]), 0;
        std::cerr << "usage: interruptible_caller [--publish] INTERRUPTS\n";
        return 2;
    }
    catch (const std::exception& error)
    {
        std::cerr << "interruptible_caller: " << error.what() << "\n";
        return 1;
    }
}
