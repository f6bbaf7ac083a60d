// A client of the soak: asks one service until its standard input ends, each byte of which is an interrupt to publish.
// soak_client persistent|dealer ENDPOINT INTERRUPT-ENDPOINT NUMBER SEED LONGEST-TIME-OUT
// Its standard output is a file that holds its counts.

#include "soak.h"

#include <ipc/ZmqClientDealerConnector.h>
#include <ipc/ZmqConnectorFactory.h>
#include <ipc/convenience/WaitingAllowed.h>
#include <zebl/RootLogger.h>
#include <zmq.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <iostream>
#include <malloc.h>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>

namespace
{

using namespace zeb::tolvo;
using soak::ByteVector;

constexpr std::size_t kLargestBody = 262'144;
constexpr std::size_t kShortOnes = 31; // time-outs, to each long one
constexpr std::size_t kLongTimeoutMs = 3000;
constexpr int kLongestPauseUs = 4000;

/// The statuses that may come. How often each has is counted, then any other, then wrong answers.
const std::array kExpected{StatusCode::Success, StatusCode::TimedOut, StatusCode::Interrupted,
                           MakeStatusCodeFromErrno(EINTR)};

ipc::convenience::WaitingAllowed mode;

/// Leaves them to the other threads.
void BlockSignals()
{
    sigset_t signals;
    sigfillset(&signals);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

std::int64_t NowNs() { return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count(); }

class Client
{
public:
    Client(std::uint64_t number, std::uint64_t seed, std::size_t longestTimeout)
        : mNumber(number), mRandom(seed), mLongestTimeout(longestTimeout)
    {
        std::generate(mBytes.begin(), mBytes.end(), [this] { return static_cast<unsigned char>(mRandom()); });
    }

    template <typename Send>
    void Ask(Send send)
    {
        const ByteVector request = MakeRequest();
        ByteVector response;
        // Short ones more often: replies then come late. Long ones at times: a busy machine answers those.
        const std::size_t timeout = UpTo(kShortOnes) == 0 ? kLongTimeoutMs : UpTo(UpTo(mLongestTimeout));
        const StatusCode status = send(request, response, static_cast<int>(timeout));
        auto outcome =
            static_cast<std::size_t>(std::find(kExpected.begin(), kExpected.end(), status) - kExpected.begin());
        if (outcome == kExpected.size()) std::cerr << "status " << static_cast<unsigned int>(status) << std::endl;
        if (status == StatusCode::Success && !IsAnswer(request, response)) outcome = kExpected.size() + 1;
        ++mCounts[outcome];
        if (pwrite(STDOUT_FILENO, mCounts.data(), sizeof mCounts, 0) < 0) std::abort();
        if (mRequests % 64 == 0) malloc_trim(0); // resident memory is then what is held
        std::this_thread::sleep_for(std::chrono::microseconds(UpTo(kLongestPauseUs)));
    }

private:
    std::size_t UpTo(std::size_t most) { return std::uniform_int_distribution<std::size_t>(0, most)(mRandom); }

    ByteVector MakeRequest()
    {
        const std::size_t size = UpTo(kLargestBody) >> UpTo(12);
        const unsigned char* const begin = mBytes.data() + UpTo(kLargestBody);
        ByteVector request(begin, begin + size);
        const soak::Label label{mNumber, ++mRequests, NowNs()};
        if (size >= sizeof label) std::memcpy(request.data(), &label, sizeof label);
        return request;
    }

    bool IsAnswer(const ByteVector& request, const ByteVector& response) const
    {
        soak::Answer answer;
        std::memcpy(&answer, response.data(), std::min(response.size(), sizeof answer));
        const soak::Answer expected = soak::AnswerTo(request, answer.service);
        if (response.size() == sizeof answer && std::memcmp(&answer, &expected, sizeof answer) == 0) return true;
        std::cerr << "wrong " << NowNs() << ' ' << mNumber << ' ' << mRequests << ' ' << answer.service << ' '
                  << answer.label.client << ' ' << answer.label.number << ' ' << answer.label.sentNs << std::endl;
        return false;
    }

    std::uint64_t mNumber;
    std::uint64_t mRequests = 0;
    std::mt19937_64 mRandom;
    std::size_t mLongestTimeout; // milliseconds
    std::array<unsigned char, 2 * kLargestBody> mBytes{};
    std::array<std::uint64_t, kExpected.size() + 2> mCounts{};
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 7) return 2;
    zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Critical); // no line for each time-out
    soak::LetSignalInterrupt();

    zmq::context_t context;
    zmq::socket_t publisher(context, zmq::socket_type::pub);
    publisher.bind(argv[3]);
    std::atomic<bool> isEnding{false};
    std::thread interrupter([&] {
        BlockSignals(); // they then meet the thread that asks
        // The publisher is polled as well: ZeroMQ lets go of subscribers that have left when it is looked after.
        std::array<zmq::pollitem_t, 2> items{
            {{nullptr, STDIN_FILENO, ZMQ_POLLIN, 0}, {publisher.handle(), 0, ZMQ_POLLIN, 0}}};
        char byte = 0;
        do {
            zmq::poll(items);
            publisher.send(zmq::str_buffer("interrupt"), zmq::send_flags::dontwait);
        } while (items[0].revents == 0 || read(STDIN_FILENO, &byte, 1) != 0);
        isEnding = true;
    });

    std::unique_ptr<ipc::AbstractClientConnector> persistent;
    ipc::ZmqClientDealerConnector dealer(context.handle(), argv[2], argv[3]);
    const auto send = [&](const ByteVector& request, ByteVector& response, int timeout) {
        if (std::string_view(argv[1]) == "dealer") return dealer.SendRequest(request, response, timeout);
        if (!persistent) persistent = ipc::ZmqConnectorFactory::GetInstance().CreateZmqClientConnector(argv[2], mode);
        const StatusCode status = persistent->SendRequest(request, response, timeout);
        if (status != StatusCode::Success) persistent.reset(); // or the next request may get this one's reply
        return status;
    };

    Client client(std::stoull(argv[4]), std::stoull(argv[5]), std::stoull(argv[6]));
    while (!isEnding) client.Ask(send);
    interrupter.join();
    return 0;
}
