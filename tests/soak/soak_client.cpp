// A client of the soak: asks a service, and writes a line on how that ended, until its standard input ends, each byte
// of which is an interrupt to publish. soak_client persistent|dealer ENDPOINT INTERRUPT-ENDPOINT NAME SEED
// LONGEST-TIME-OUT

#include <ipc/ZmqClientDealerConnector.h>
#include <ipc/convenience/Caller.h>
#include <zebl/RootLogger.h>
#include <zmq.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <future>
#include <iostream>
#include <malloc.h>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using namespace zeb::tolvo;

namespace
{

void PublishInterrupts(zmq::context_t& context, const char* endpoint)
{
    sigset_t signals;
    sigfillset(&signals);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr); // they then meet the thread that asks
    zmq::socket_t publisher(context, zmq::socket_type::pub);
    publisher.bind(endpoint);
    // The publisher is polled as well: ZeroMQ lets go of subscribers that have left when it is looked after.
    std::vector<zmq::pollitem_t> items{{nullptr, STDIN_FILENO, ZMQ_POLLIN, 0}, {publisher.handle(), 0, ZMQ_POLLIN, 0}};
    char byte = 0;
    do {
        zmq::poll(items);
        publisher.send(zmq::str_buffer("interrupt"), zmq::send_flags::dontwait);
    } while (read(STDIN_FILENO, &byte, 1) != 0);
}

/// Milliseconds on the clock that all processes share.
std::string Now() { return std::to_string(std::chrono::steady_clock::now().time_since_epoch() / 1ms); }

/// How a body begins, and its size.
std::string Outline(const ipc::ByteVector& body)
{
    std::string text(body.begin(), body.end());
    for (char& byte : text) byte = byte < ' ' || byte > '~' ? '?' : byte;
    return '"' + text.substr(0, 80) + "\" (" + std::to_string(text.size()) + " bytes)";
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 7) return 2;
    zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Critical); // no line for each time-out
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    sigaction(SIGUSR1, &nothing, nullptr); // no SA_RESTART: it ends whatever call it meets

    zmq::context_t context;
    const auto interrupts = std::async(std::launch::async, PublishInterrupts, std::ref(context), argv[3]);
    ipc::convenience::Caller persistent(argv[2]);
    ipc::ZmqClientDealerConnector dealer(context.handle(), argv[2], argv[3]);
    std::mt19937_64 random(std::stoull(argv[5]));
    const auto upTo = [&](std::size_t most) { return std::uniform_int_distribution<std::size_t>(0, most)(random); };
    constexpr std::size_t kLargestBody = 262'144;
    ipc::ByteVector filler(2 * kLargestBody);
    std::generate(filler.begin(), filler.end(), [&] { return static_cast<unsigned char>(random()); });
    for (int number = 1; interrupts.wait_for(0s) != std::future_status::ready; ++number)
    {
        const unsigned char* const begin = filler.data() + upTo(kLargestBody);
        ipc::ByteVector request(begin, begin + (upTo(kLargestBody) >> upTo(12)));
        const std::string label = argv[4] + (" request " + std::to_string(number)) + " sent " + Now() + ' ';
        if (request.size() >= label.size()) std::copy(label.begin(), label.end(), request.begin());
        // Short ones more often: replies then come late. Long ones at times: a busy machine answers those.
        const auto timeout = static_cast<int>(upTo(31) == 0 ? 3000 : upTo(upTo(std::stoul(argv[6]))));
        ipc::convenience::Reply reply;
        if (argv[1] == std::string("persistent"))
            reply = persistent.Call(request, timeout * 1ms);
        else
            reply.status = dealer.SendRequest(request, reply.body, timeout);
        const auto end = reply.body.end(), space = std::find(reply.body.begin(), end, ' ');
        if (!reply || (space != end && std::equal(space + 1, end, request.begin(), request.end())))
            std::cout << reply.Describe() << std::endl;
        else
            std::cout << "wrong " << Now() << ' ' << label << Outline(request) << " got " << Outline(reply.body)
                      << std::endl;
        if (number % 8 == 0) malloc_trim(0); // resident memory is then what is held
        std::this_thread::sleep_for(upTo(4000) * 1us);
    }
}
