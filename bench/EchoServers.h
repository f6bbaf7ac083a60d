#pragma once

#include "Peers.h"
#include "Ways.h"

#include <cstddef>
#include <future>
#include <memory>
#include <string>
#include <vector>

namespace zeb::tolvo::bench
{

/// A plain router and the servers under test that have connected to it, each with one priority and an echo for handler.
template <typename Way>
class EchoServers
{
public:
    explicit EchoServers(const std::string& transport, std::size_t count = 0) : mWiring(transport)
    {
        while (mServers.size() < count) Add();
    }

    /// Stops them at the same time, for a stop takes half a second.
    ~EchoServers()
    {
        std::vector<std::future<void>> stops;
        for (auto& server : mServers) stops.push_back(std::async(std::launch::async, [&] { server.reset(); }));
    }

    EchoServers(const EchoServers&) = delete;
    EchoServers& operator=(const EchoServers&) = delete;

    void Add()
    {
        mIdentities.push_back("echo-" + std::to_string(mServers.size()));
        mServers.push_back(std::make_unique<typename Way::Server>(mWiring.GetConnectorContext(),
                                                                  mWiring.Endpoint("servers"), mIdentities.back(), Echo,
                                                                  ServerType::OnePriority));
        mCaller.AwaitServer(mWiring, mIdentities.back());
    }

    std::size_t Count() const { return mServers.size(); }

    typename Way::Server& Last() { return *mServers.back(); }

    Caller& GetCaller() { return mCaller; }

    void Send(const ByteVector& body, std::size_t server = 0) { mCaller.Send(mIdentities[server], body); }

    void Exchange(const ByteVector& body, std::size_t server = 0) { mCaller.Exchange(mIdentities[server], body); }

private:
    Wiring mWiring;
    Caller mCaller{mWiring.GetPeerContext(), mWiring.Endpoint("servers")};
    std::vector<std::string> mIdentities;
    std::vector<std::unique_ptr<typename Way::Server>> mServers;
};

} // namespace zeb::tolvo::bench
