#include "quillmere/RegistrationService.h"

#include "quillmere/Lines.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

namespace zeb::tolvo::desk
{

namespace
{

enum PollPosition : std::size_t
{
    kStop,
    kServers,
    kFirstAddress,
};

bool IsReadable(const zmq::pollitem_t& item) { return (item.revents & ZMQ_POLLIN) != 0; }

/// @return false when a signal has ended the wait.
bool WaitForAny(std::vector<zmq::pollitem_t>& items, std::chrono::milliseconds timeout)
{
    try
    {
        zmq::poll(items, timeout);
        return true;
    }
    catch (const zmq::error_t& error)
    {
        if (error.num() != EINTR) throw;
        return false;
    }
}

/// Takes a limited number of messages, so that no socket keeps the others waiting.
template <typename Taker>
void TakeBurst(Router& router, Taker take)
{
    constexpr int kBurst = 100;
    for (int taken = 0; taken < kBurst; ++taken)
    {
        std::optional<Message> message = router.Receive();
        if (!message) return;
        take(std::move(*message));
    }
}

} // namespace

RegistrationService::RegistrationService(zmq::context_t& context, const std::string& servers,
                                         const std::string& clients, std::chrono::milliseconds quietTime)
    : mContext(context), mFolder(clients), mQuietTime(quietTime), mServersRouter(context, servers)
{
}

void RegistrationService::Run(int stop)
{
    for (;;)
    {
        std::vector<zmq::pollitem_t> items = MakePollItems(stop);
        if (!WaitForAny(items, TimeUntilRelease())) continue;
        if (IsReadable(items[kStop])) return;

        const TimePoint now = std::chrono::steady_clock::now();
        if (IsReadable(items[kServers]))
            TakeBurst(mServersRouter, [&](Message message) { TakeFromServer(std::move(message), now); });
        ReleaseHeld(now);
        for (std::size_t position = kFirstAddress; position < items.size(); ++position)
        {
            if (!IsReadable(items[position])) continue;
            Address& address = mAddresses[position - kFirstAddress];
            TakeBurst(address.clients, [&](Message message) { TakeFromClient(address, std::move(message), now); });
        }
    }
}

std::vector<zmq::pollitem_t> RegistrationService::MakePollItems(int stop)
{
    std::vector<zmq::pollitem_t> items(kFirstAddress + mAddresses.size());
    items[kStop] = {nullptr, stop, ZMQ_POLLIN, 0};
    items[kServers] = mServersRouter.MakePollItem();
    std::transform(mAddresses.begin(), mAddresses.end(), items.begin() + kFirstAddress,
                   [](Address& address) { return address.clients.MakePollItem(); });
    return items;
}

std::chrono::milliseconds RegistrationService::TimeUntilRelease() const
{
    using std::chrono::milliseconds;
    std::optional<TimePoint> release;
    for (const auto& [identity, server] : mServers)
    {
        const std::optional<TimePoint> until = server.order.HeldUntil();
        if (until && (!release || *until < *release)) release = until;
    }
    if (!release) return milliseconds(-1);
    return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(*release - std::chrono::steady_clock::now()));
}

void RegistrationService::TakeFromServer(Message message, TimePoint now)
{
    const std::string_view identity = message.sender.to_string_view();
    if (message.frames == 1)
    {
        if (const auto registration = ReadRegistration(message.body.to_string_view(), mFolder.LongestName()))
        {
            Register(identity, *registration, now);
            return;
        }
    }
    const auto found = mServers.find(identity);
    if (found == mServers.end())
        Warn("message from " + Quote(identity) + " refused: not registered, and no JSON object of type register");
    else
        Return(found->second, std::move(message), now);
}

void RegistrationService::Register(std::string_view identity, const Registration& registration, TimePoint now)
{
    try
    {
        Server& server = FindOrAddServer(identity, registration, now);
        Server* const earlier = std::exchange(server.address.server, &server);
        std::string line = Quote(identity) + " registered as " + Quote(server.address.name);
        if (earlier != nullptr && earlier != &server) line += ", which " + Quote(earlier->identity) + " served";
        Note(line);
    }
    catch (const std::exception& refusal)
    {
        Warn("registration of " + Quote(identity) + " as " + Quote(registration.address) +
             " refused: " + refusal.what());
    }
}

RegistrationService::Server& RegistrationService::FindOrAddServer(std::string_view identity,
                                                                  const Registration& registration, TimePoint now)
{
    const auto found = mServers.find(identity);
    if (found != mServers.end())
    {
        // Also when it is refused below. It comes from a fresh connection, or it is the reply to a client that made the
        // server echo it: either way nobody knows any more whose turn it is.
        const std::size_t forgotten = found->second.order.Restart(now);
        if (forgotten > 0) Warn("requests under way to " + Quote(identity) + " dropped: " + std::to_string(forgotten));
    }
    if (!registration.fault.empty()) throw std::runtime_error(registration.fault);
    if (found == mServers.end())
    {
        Address& address = FindOrBindAddress(registration.address);
        Server server{std::string(identity), address, RequestOrder(mQuietTime, now)};
        return mServers.emplace(identity, std::move(server)).first->second;
    }
    const std::string& kept = found->second.address.name;
    if (registration.address != kept) throw std::runtime_error("it keeps its address " + Quote(kept));
    return found->second;
}

RegistrationService::Address& RegistrationService::FindOrBindAddress(const std::string& name)
{
    const auto found = std::find_if(mAddresses.begin(), mAddresses.end(),
                                    [&](const Address& address) { return address.name == name; });
    if (found != mAddresses.end()) return *found;

    const std::string endpoint = mFolder.EndpointOf(name);
    if (mServersRouter.IsAt(endpoint)) throw std::runtime_error("its address is the servers' endpoint");
    return mAddresses.emplace_back(mContext, endpoint, name);
}

void RegistrationService::Return(Server& server, Message reply, TimePoint now)
{
    const std::optional<std::string> client = server.order.TakeReply(now);
    if (!client)
        Warn("reply of " + Quote(server.identity) + " dropped: nobody waits for it");
    else if (reply.frames != 1)
        Warn("reply of " + Quote(server.identity) + " dropped: it has " + std::to_string(reply.frames) + " frames");
    else
        server.address.clients.Send(*client, std::move(reply.body)); // a client that has gone misses nothing
    Forward(server, now);
}

void RegistrationService::TakeFromClient(Address& address, Message message, TimePoint now)
{
    const auto drop = [&](const std::string& reason) {
        Warn("request of " + Quote(message.sender.to_string_view()) + " to " + Quote(address.name) +
             " dropped: " + reason);
    };

    Server& server = *address.server;
    if (message.frames != 1)
        drop("it has " + std::to_string(message.frames) + " frames");
    else if (!server.order.Add({message.sender.to_string(), std::move(message.body)}))
        drop("too many wait for " + Quote(server.identity));
    else
        Forward(server, now);
}

void RegistrationService::Forward(Server& server, TimePoint now)
{
    while (Request* const request = server.order.Next(now))
    {
        const int error = mServersRouter.Send(server.identity, std::move(request->body));
        if (error == 0)
        {
            server.order.Sent();
            continue;
        }
        Warn("request of " + Quote(request->client) + " to " + Quote(server.address.name) +
             " dropped: " + Quote(server.identity) + " can't be reached: " + zmq_strerror(error));
        server.order.Drop();
    }
}

void RegistrationService::ReleaseHeld(TimePoint now)
{
    for (auto& [identity, server] : mServers)
        if (server.order.HeldUntil()) Forward(server, now);
}

} // namespace zeb::tolvo::desk
