// alarm_service SERVERS CLIENTS
// What the second front-end buys: a service under a flood of ordinary requests, and how long urgent ones wait. SERVERS
// is the registration service's endpoint, CLIENTS its folder.
//
// What to look at: the service is one with two priorities, and nothing more (`Serve`); its urgent front-end is found
// at "RT" and the address (`Measure`).

#include <ipc/convenience/Caller.h>
#include <ipc/convenience/ServerHandle.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <iostream>
#include <string>
#include <vector>

namespace
{

namespace ipc = zeb::tolvo::ipc;
using namespace std::chrono_literals;
using ipc::convenience::Caller;
using ipc::convenience::Describe;
using ipc::convenience::ServerHandle;
using zeb::tolvo::StatusCode;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

const std::string kAddress = "alarms";
constexpr auto kWork = 200us;
constexpr int kFloodingClients = 48;
constexpr int kRequestsOfEach = 50;

struct Waits
{
    void Ask(Caller& service)
    {
        const auto start = Clock::now();
        if (service.Call("?", 1s))
            answered.emplace_back(Clock::now() - start);
        else
            ++failed;
    }

    void Add(const Waits& others)
    {
        answered.insert(answered.end(), others.answered.begin(), others.answered.end());
        failed += others.failed;
    }

    void Print(const char* kind)
    {
        std::sort(answered.begin(), answered.end());
        const bool isAny = !answered.empty();
        std::printf("%-10s%10zu%8d%15.2f%15.2f\n", kind, answered.size(), failed,
                    isAny ? answered[answered.size() / 2].count() : 0, isAny ? answered.back().count() : 0);
    }

    std::vector<Milliseconds> answered;
    int failed = 0;
};

ServerHandle Serve(const std::string& servers)
{
    ServerHandle server = ipc::convenience::MakeServer(servers, kAddress, ipc::ServerType::TwoPriorities);
    server->RegisterCallback([](const ipc::ByteVector&, ipc::ByteVector&) {
        for (const auto end = Clock::now() + kWork; Clock::now() < end;) continue;
    });
    server->SetStartupMessage(kAddress);
    if (const StatusCode status = server->StartListening(); status != StatusCode::Success)
        throw std::runtime_error("can't serve at " + servers + ": " + Describe(status));
    return server;
}

Waits AskManyTimes(const std::string& endpoint)
{
    Caller service(endpoint);
    Waits waits;
    for (int request = 0; request < kRequestsOfEach; ++request) waits.Ask(service);
    return waits;
}

/// Shows that the endpoint's front-end is registered.
void AwaitAnswer(const std::string& endpoint)
{
    const auto reply = Caller(endpoint).Call("?", 5s);
    if (!reply) throw std::runtime_error("no answer from " + endpoint + ": " + reply.Describe());
}

bool Measure(const std::string& folder)
{
    const std::string ordinaryEndpoint = folder + "/" + kAddress;
    const std::string urgentEndpoint = folder + "/RT" + kAddress;
    AwaitAnswer(ordinaryEndpoint);
    AwaitAnswer(urgentEndpoint);

    std::vector<std::future<Waits>> flood(kFloodingClients);
    for (std::future<Waits>& client : flood) client = std::async(std::launch::async, AskManyTimes, ordinaryEndpoint);
    Caller urgentService(urgentEndpoint);
    Waits urgent;
    Waits ordinary;
    for (std::future<Waits>& client : flood)
    {
        while (client.wait_for(10ms) != std::future_status::ready) urgent.Ask(urgentService);
        ordinary.Add(client.get());
    }
    std::printf("%d clients flood the service with ordinary requests, one sends urgent ones;\n"
                "each costs the service %d us of computing.\n\n"
                "kind        answered  failed  median wait/ms  worst wait/ms\n",
                kFloodingClients, static_cast<int>(kWork.count()));
    ordinary.Print("ordinary");
    urgent.Print("urgent");
    return ordinary.failed + urgent.failed == 0 && !urgent.answered.empty();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::cerr << "usage: alarm_service SERVERS CLIENTS\n";
        return 2;
    }
    try
    {
        const ServerHandle server = Serve(argv[1]);
        return Measure("ipc://" + std::string(argv[2])) ? 0 : 1;
    }
    catch (const std::exception& error)
    {
        std::cerr << "alarm_service: " << error.what() << "\n";
        return 1;
    }
}
