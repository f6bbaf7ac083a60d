#include "quillmere/Switchboard.h"

#include <zebl/RootLogger.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <cerrno>
#include <cstdlib>
#include <deque>
#include <stdexcept>

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

/// What the outside knows of a server.
struct Server
{
    bool isRegistered = false;
    bool isHeld = false;
    Switchboard::TimePoint lastFrame;
    std::deque<std::string> underWay; // clients
};

/// Sends a switchboard whatever the input says, and checks what comes out of it.
class Exchange : Wires
{
public:
    Exchange(const unsigned char* data, std::size_t size) : mInput(data, size) {}

    void Run()
    {
        while (mInput.remaining_bytes() > 0)
        {
            mNow += std::chrono::milliseconds(mInput.ConsumeIntegral<unsigned char>());
            for (auto& [identity, server] : mServers)
                if (mNow >= server.lastFrame + kQuietTime) server.isHeld = false;
            mSwitchboard.ReleaseHeld(mNow);
            if (mAddresses == 0 || mInput.ConsumeBool())
                TakeFromServer(mInput.PickValueInArray({"a", "b", "c"}));
            else
                TakeFromClient(mInput.PickValueInArray({"x", "y", "z"}));

            std::uint64_t known = 0;
            for (const ServerReport& report : mSwitchboard.Report())
                known += report.answered + report.dropped + report.waiting;
            Require(known == mRequests);
        }
    }

private:
    void TakeFromServer(const std::string& identity)
    {
        Message message = MakeMessage(identity, mInput.ConsumeRandomLengthString());
        const auto body = message.body.to_string();
        const bool isRegistration = message.frames == 1 && ReadRegistration(body, kLongestAddress);

        Server& server = mServers[identity];
        if (server.isHeld || isRegistration) server.lastFrame = mNow;
        if (isRegistration)
        {
            server.isHeld = true;
            server.underWay.clear();
        }
        else if (server.isRegistered && !server.underWay.empty())
        {
            if (message.frames == 1) mExpected = {server.underWay.front(), body};
            server.underWay.pop_front();
        }
        mSwitchboard.TakeFromServer(std::move(message), mNow);
        Require(mExpected.first.empty()); // the reply has been passed on
        for (const ServerReport& report : mSwitchboard.Report()) mServers[report.identity].isRegistered = true;
    }

    void TakeFromClient(const std::string& client)
    {
        const auto address = mInput.ConsumeIntegralInRange<std::size_t>(0, mAddresses - 1);
        const std::size_t count = mInput.PickValueInArray<std::size_t>({1, 1, 1, RequestOrder::kMostUnderWay});
        for (std::size_t request = 0; request < count; ++request)
            mSwitchboard.TakeFromClient(address, MakeMessage(client, client), mNow);
        mRequests += count;
    }

    Message MakeMessage(const std::string& sender, const std::string& body)
    {
        return {zmq::message_t(sender), zmq::message_t(body), mInput.ConsumeIntegralInRange<std::size_t>(0, 7) % 3};
    }

    void Bind(const std::string& address) override
    {
        Require(!address.empty() && address.size() <= kLongestAddress && address.find('/') == std::string::npos);
        if (mInput.ConsumeBool()) throw std::runtime_error("refused");
        ++mAddresses;
    }

    int SendToServer(std::string_view identity, zmq::message_t body) override
    {
        Server& server = mServers.at(std::string(identity));
        Require(server.isRegistered && !server.isHeld && server.underWay.size() < RequestOrder::kMostUnderWay);
        if (mInput.ConsumeBool()) return EHOSTUNREACH;
        server.underWay.push_back(body.to_string());
        return 0;
    }

    int SendToClient(std::size_t address, std::string_view client, zmq::message_t body) override
    {
        Require(address < mAddresses && mExpected == std::pair(std::string(client), body.to_string()));
        mExpected.first.clear();
        return 0;
    }

    FuzzedDataProvider mInput;
    Switchboard::TimePoint mNow{1h};
    std::uint64_t mRequests = 0;
    std::size_t mAddresses = 0;
    std::map<std::string, Server> mServers;
    std::pair<std::string, std::string> mExpected; // the client and the body of the reply that must come out
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
