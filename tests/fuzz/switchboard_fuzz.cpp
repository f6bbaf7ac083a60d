#include "quillmere/Switchboard.h"

#include <zebl/RootLogger.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <map>
#include <stdexcept>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace zeb::tolvo::desk;

constexpr auto kQuietTime = 200ms;
constexpr std::size_t kLongestAddress = 4;

void Require(bool isTrue)
{
    if (!isTrue) std::abort();
}

/// A server of the library: what it holds outlives its connections, and is answered before it registers again.
struct Server
{
    std::string identity;
    std::string address;
    RequestOrder::Connection connection = 0; // 0 when there is none
    bool isIdentified = false;               // once; then another connection may take the identity over
    std::deque<std::string> held{};
    std::size_t old = 0; // of those held, the first ones: from before this connection
};

/// Lets servers and clients do whatever the input says, and checks by their content that replies reach their clients.
class Exchange : Wires
{
public:
    Exchange(const unsigned char* data, std::size_t size) : mInput(data, size) {}

    void Run()
    {
        while (mInput.remaining_bytes() > 0)
        {
            mNow += std::chrono::milliseconds(mInput.ConsumeIntegral<unsigned char>());
            mSwitchboard.CatchUp(mNow);
            Act(mServers[mInput.ConsumeIntegralInRange<std::size_t>(0, mServers.size() - 1)]);

            std::uint64_t known = 0;
            for (const ServerReport& report : mSwitchboard.Report())
                known += report.answered + report.dropped + report.waiting;
            Require(known == mRequests);
        }
    }

private:
    void Act(Server& server)
    {
        switch (mInput.ConsumeIntegralInRange(0, 6))
        {
        case 0:
            Disconnect(server);
            server.connection = mSwitchboard.AddConnection();
            server.isIdentified = false;
            break;
        case 1: // the router learns the identity
            if (server.connection != 0 && !server.isIdentified) mRoutes[server.identity] = &server;
            server.isIdentified = true;
            break;
        case 2: // the router learns that a connection has ended
            if (FindRouted(server.identity) == nullptr) mRoutes.erase(server.identity);
            break;
        case 3:
            if (FindRouted(server.identity) == &server) Register(server);
            break;
        case 4:
            if (!server.held.empty()) Answer(server);
            break;
        case 5:
            mSwitchboard.TakeFromServer(MakeMessage("c", mInput.ConsumeRandomLengthString()), mNow);
            break;
        default:
            if (mAddresses > 0) TakeFromClients();
        }
    }

    void Disconnect(Server& server)
    {
        if (FindRouted(server.identity) == &server) mRoutes[server.identity] = nullptr;
        server.connection = 0;
        // Those on their way are lost. An echoed registration that came late could not be told from one.
        server.held.resize(server.held.size() - mInput.ConsumeIntegralInRange<std::size_t>(0, server.held.size()));
        const auto isRegistration = [](const std::string& body) { return body.front() == '{'; };
        server.held.erase(std::remove_if(server.held.begin(), server.held.end(), isRegistration), server.held.end());
        server.old = server.held.size();
    }

    void Register(Server& server)
    {
        while (server.old > 0) Answer(server);
        const auto registration = R"({"type":"register","address":")" + server.address + "\"}";
        mHeldUntil[server.identity] = mNow + kQuietTime;
        mSwitchboard.TakeFromServer(
            {zmq::message_t(server.identity), zmq::message_t(registration), 1, server.connection}, mNow);
    }

    void Answer(Server& server)
    {
        const std::string reply = server.held.front();
        server.held.pop_front();
        if (server.old > 0) --server.old;
        if (FindRouted(server.identity) != &server) return;
        mSwitchboard.TakeFromServer(MakeMessage(server.identity, reply, server.connection), mNow);
    }

    /// Each request comes from a client of its own, and names it.
    void TakeFromClients()
    {
        const auto address = mInput.ConsumeIntegralInRange<std::size_t>(0, mAddresses - 1);
        const std::size_t count = mInput.PickValueInArray<std::size_t>({1, 1, 1, RequestOrder::kMostUnderWay});
        for (std::size_t request = 0; request < count; ++request)
        {
            const std::string client = std::to_string(++mRequests);
            const bool isRegistration = mInput.ConsumeIntegral<unsigned char>() == 0;
            mSwitchboard.TakeFromClient(
                address, MakeMessage(client, isRegistration ? R"({"type":"register","address":"a"})" : client), mNow);
        }
    }

    Message MakeMessage(const std::string& sender, const std::string& body, RequestOrder::Connection connection = 0)
    {
        const std::size_t frames = mInput.ConsumeIntegral<unsigned char>() == 0 ? 2 : 1;
        return {zmq::message_t(sender), zmq::message_t(body), frames, connection};
    }

    /// @return null when the connection that the router knows has ended.
    Server* FindRouted(const std::string& identity)
    {
        const auto route = mRoutes.find(identity);
        return route == mRoutes.end() ? nullptr : route->second;
    }

    void Bind(const std::string& address) override
    {
        Require(!address.empty() && address.size() <= kLongestAddress && address.find('/') == std::string::npos);
        if (mInput.ConsumeIntegral<unsigned char>() == 0) throw std::runtime_error("refused");
        ++mAddresses;
    }

    void Restore(std::size_t address) override { Require(address < mAddresses); }

    int SendToServer(std::string_view identity, zmq::message_t body) override
    {
        const std::string name(identity);
        Require(mNow >= mHeldUntil[name]);
        if (mRoutes.count(name) == 0) return EHOSTUNREACH;
        Server* const server = FindRouted(name);
        if (server == nullptr) return 0; // lost
        Require(server->held.size() - server->old < RequestOrder::kMostUnderWay);
        server->held.push_back(body.to_string());
        return 0;
    }

    int SendToClient(std::size_t address, std::string_view client, zmq::message_t body) override
    {
        Require(address < mAddresses && body.to_string_view() == client);
        return mInput.ConsumeBool() ? 0 : EAGAIN;
    }

    void HangUp(const Message& message) override
    {
        for (Server& server : mServers)
            if (server.connection == message.connection && message.connection != 0) Disconnect(server);
    }

    std::string PeerOf(const Message&) override { return {}; }

    FuzzedDataProvider mInput;
    Switchboard::TimePoint mNow{1h};
    std::uint64_t mRequests = 0;
    std::size_t mAddresses = 0;
    std::vector<Server> mServers{{"a", "a"}, {"a", "a"}, {"a", "b"}, {"b", "b"}};
    std::map<std::string, Server*> mRoutes; // whose connection each identity stands for; null when that has ended
    std::map<std::string, Switchboard::TimePoint> mHeldUntil;
    Switchboard mSwitchboard{*this, kLongestAddress, kQuietTime, {}};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const bool areLinesWanted = std::getenv("SWITCHBOARD_LINES") != nullptr; // scripts/fuzz.sh names inputs by them
    if (!areLinesWanted) zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Emergency);
    Exchange(data, size).Run();
    return 0;
}
