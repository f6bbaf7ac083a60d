// What the second front-end buys: a service under a flood of ordinary requests, and how long urgent ones wait.

#include <ipc/ZmqConnectorFactory.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <future>
#include <iomanip>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace
{

namespace ipc = zeb::tolvo::ipc;
using namespace std::chrono_literals;
using std::chrono::duration_cast;
using std::chrono::microseconds;
using zeb::tolvo::StatusCode;
using Clock = std::chrono::steady_clock;

constexpr int kBadUsage = 2;

const std::string kAddress = "alarms"; // the urgent front-end registers as "RTalarms" by itself

constexpr microseconds kWork = 200us;
constexpr int kPatienceMs = 1000;
constexpr auto kLongestFlood = 3s;
constexpr std::size_t kFloodThreads = 48;
constexpr std::size_t kRequestsPerThread = 50;
constexpr std::size_t kAnswersBetweenUrgent = 40;

class MayWait : public ipc::OperatingModeInterface
{
public:
    bool IsBlockingForbidden() override { return false; }
};

struct StopAndDelete
{
    void operator()(ipc::ZmqServerConnector* server) const
    {
        if (server->StopListening() != StatusCode::Success)
        {
            std::cerr << "alarm_service: can't stop\n";
            std::_Exit(EXIT_FAILURE); // the server thread still runs: its connector can't be deleted
        }
        delete server;
    }
};

using Server = std::unique_ptr<ipc::ZmqServerConnector, StopAndDelete>;

struct Waits
{
    std::vector<microseconds> answered;
    std::size_t failed = 0;
};

/// A client of one address that notes how long its requests wait.
class Caller
{
public:
    explicit Caller(std::string endpoint) : mEndpoint(std::move(endpoint)) {}

    bool Ask(Waits& waits)
    {
        if (!mConnector)
        {
            mConnector = ipc::ZmqConnectorFactory::GetInstance().CreateZmqClientConnector(mEndpoint, mOperatingMode);
        }
        ipc::ByteVector response;
        const auto start = Clock::now();
        if (mConnector->SendRequest({'?'}, response, kPatienceMs) == StatusCode::Success)
        {
            waits.answered.push_back(duration_cast<microseconds>(Clock::now() - start));
            return true;
        }
        ++waits.failed;
        mConnector.reset(); // a late reply would be taken for the next request's
        return false;
    }

private:
    std::string mEndpoint;
    MayWait mOperatingMode; // outlives the connector
    std::unique_ptr<ipc::AbstractClientConnector> mConnector;
};

/// Counts ordinary answers, so that the urgent client asks in the midst of the flood.
class Flood
{
public:
    void Count()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        ++mAnswers;
        mChanged.notify_one();
    }

    void End()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mIsOver = true;
        mChanged.notify_one();
    }

    /// @return false when the flood has ended or stands still.
    bool AwaitFurther(std::size_t answers)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        const std::size_t wanted = mAnswers + answers;
        return mChanged.wait_for(lock, kLongestFlood, [&] { return mIsOver || mAnswers >= wanted; }) && !mIsOver;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::size_t mAnswers = 0;
    bool mIsOver = false;
};

void Work(const ipc::ByteVector& /*request*/, ipc::ByteVector& /*response*/) noexcept
{
    for (const auto end = Clock::now() + kWork; Clock::now() < end;)
    {
    }
}

Waits AskManyTimes(const std::string& endpoint, Flood& flood)
{
    Caller caller(endpoint);
    Waits waits;
    const auto latest = Clock::now() + kLongestFlood;
    for (std::size_t sent = 0; sent < kRequestsPerThread && Clock::now() < latest; ++sent)
    {
        if (caller.Ask(waits)) flood.Count();
    }
    return waits;
}

void PrintRow(const std::string& kind, Waits& waits)
{
    std::sort(waits.answered.begin(), waits.answered.end());
    const auto inMs = [](microseconds wait) { return static_cast<double>(wait.count()) / 1000; };
    std::cout << std::left << std::setw(10) << kind << std::right << std::setw(10) << waits.answered.size()
              << std::setw(8) << waits.failed << std::fixed << std::setprecision(2);
    if (!waits.answered.empty())
    {
        std::cout << std::setw(15) << inMs(waits.answered[waits.answered.size() / 2]) << std::setw(15)
                  << inMs(waits.answered.back());
    }
    std::cout << "\n";
}

bool Measure(const std::string& ordinaryEndpoint, const std::string& urgentEndpoint)
{
    // The first answer shows that the service is registered; it waited for that, so it is left out.
    Caller urgentCaller(urgentEndpoint);
    Waits first;
    if (!Caller(ordinaryEndpoint).Ask(first) || !urgentCaller.Ask(first))
    {
        std::cerr << "alarm_service: no answer; is the registration service there?\n";
        return false;
    }

    Flood flood;
    auto urgentWaits = std::async(std::launch::async, [&] {
        Waits waits;
        while (flood.AwaitFurther(kAnswersBetweenUrgent)) urgentCaller.Ask(waits);
        return waits;
    });
    std::vector<std::future<Waits>> ordinaryWaits;
    while (ordinaryWaits.size() < kFloodThreads)
    {
        ordinaryWaits.push_back(std::async(std::launch::async, AskManyTimes, ordinaryEndpoint, std::ref(flood)));
    }

    Waits ordinary;
    for (std::future<Waits>& future : ordinaryWaits)
    {
        const Waits waits = future.get();
        ordinary.answered.insert(ordinary.answered.end(), waits.answered.begin(), waits.answered.end());
        ordinary.failed += waits.failed;
    }
    flood.End();
    Waits urgent = urgentWaits.get();

    std::cout << kFloodThreads << " clients flood the service with ordinary requests, one sends urgent ones;\n"
              << "each costs the service " << kWork.count() << " us of computing.\n\n"
              << "kind        answered  failed  median wait/ms  worst wait/ms\n";
    PrintRow("ordinary", ordinary);
    PrintRow("urgent", urgent);
    return ordinary.failed + urgent.failed == 0 && !urgent.answered.empty();
}

int Run(const std::string& servers, const std::string& clients)
{
    auto& factory = ipc::ZmqConnectorFactory::GetInstance();
    const Server server(factory.CreateZmqServerConnector(servers, kAddress, ipc::ServerType::TwoPriorities));
    server->RegisterCallback(Work);
    server->SetStartupMessage(kAddress);
    if (const StatusCode status = server->StartListening(); status != StatusCode::Success)
    {
        std::cerr << "alarm_service: can't serve at " << servers << ", status " << static_cast<unsigned int>(status)
                  << "\n";
        return EXIT_FAILURE;
    }

    const std::string folder = "ipc://" + clients + "/";
    return Measure(folder + kAddress, folder + "RT" + kAddress) ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    std::string servers;
    std::string clients;

    CLI::App app("Floods a service of its own with ordinary requests and shows how long urgent ones wait.");
    app.add_option("--servers", servers, "Endpoint of the registration service")->required();
    app.add_option("--clients", clients, "Folder where the registration service receives clients")->required();
    try
    {
        app.parse(argc, argv);
        return Run(servers, clients);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kBadUsage;
    }
    catch (const std::exception& error)
    {
        std::cerr << "alarm_service: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
