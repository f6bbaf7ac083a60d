#include "quillmere/Switchboard.h"

#include "quillmere/Lines.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

namespace zeb::tolvo::desk
{

Switchboard::Switchboard(Wires& wires, std::size_t longestAddress, std::chrono::milliseconds quietTime, Tracer tracer)
    : mWires(wires), mLongestAddress(longestAddress), mQuietTime(quietTime), mTracer(std::move(tracer))
{
}

void Switchboard::TakeFromServer(Message message, TimePoint now)
{
    const std::string_view identity = message.sender.to_string_view();
    if (message.frames == 1)
    {
        if (const auto registration = ReadRegistration(message.body.to_string_view(), mLongestAddress))
        {
            Trace(Passage::Kind::Registration, identity, {}, message.body);
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

void Switchboard::TakeFromClient(std::size_t address, Message message, TimePoint now)
{
    Server& server = *mAddresses[address].server;
    const auto drop = [&](const std::string& reason) {
        ++server.dropped;
        Warn("request of " + Quote(message.sender.to_string_view()) + " to " + Quote(mAddresses[address].name) +
             " dropped: " + reason);
    };

    if (message.frames != 1)
        drop("it has " + std::to_string(message.frames) + " frames");
    else if (!server.order.Add({message.sender.to_string(), std::move(message.body)}))
        drop("too many wait for " + Quote(server.identity));
    else
        Forward(server, now);
}

void Switchboard::ReleaseHeld(TimePoint now)
{
    for (auto& [identity, server] : mServers)
        if (server.order.HeldUntil()) Forward(server, now);
}

std::optional<Switchboard::TimePoint> Switchboard::NextRelease() const
{
    std::optional<TimePoint> next;
    for (const auto& [identity, server] : mServers)
    {
        const std::optional<TimePoint> until = server.order.HeldUntil();
        if (until && (!next || *until < *next)) next = until;
    }
    return next;
}

std::vector<ServerReport> Switchboard::Report() const
{
    constexpr double kHalf = 0.5;
    std::vector<ServerReport> reports;
    for (const auto& [identity, server] : mServers)
    {
        reports.push_back({mAddresses[server.address].name, identity, server.passed, server.answered, server.dropped,
                           server.order.Unanswered(), server.answerTimes.Percentile(kHalf),
                           server.answerTimes.Worst()});
    }
    return reports;
}

void Switchboard::Register(std::string_view identity, const Registration& registration, TimePoint now)
{
    try
    {
        Server& server = FindOrAddServer(identity, registration, now);
        mWires.Restore(server.address);
        Address& address = mAddresses[server.address];
        Server* const earlier = std::exchange(address.server, &server);
        std::string line = Quote(identity) + " registered as " + Quote(address.name);
        if (earlier != nullptr && earlier != &server) line += ", which " + Quote(earlier->identity) + " served";
        Note(line);
    }
    catch (const std::exception& refusal)
    {
        Warn("registration of " + Quote(identity) + " as " + Quote(registration.address) +
             " refused: " + refusal.what());
    }
}

Switchboard::Server& Switchboard::FindOrAddServer(std::string_view identity, const Registration& registration,
                                                  TimePoint now)
{
    const auto found = mServers.find(identity);
    if (found != mServers.end())
    {
        // Also when it is refused below. It comes from a fresh connection, or it is the reply to a client that made the
        // server echo it: either way nobody knows any more whose turn it is.
        const std::size_t forgotten = found->second.order.Restart(now);
        found->second.dropped += forgotten;
        if (forgotten > 0) Warn("requests under way to " + Quote(identity) + " dropped: " + std::to_string(forgotten));
    }
    if (!registration.fault.empty()) throw std::runtime_error(registration.fault);
    if (found == mServers.end())
    {
        const std::size_t address = FindOrBindAddress(registration.address);
        Server server{std::string(identity), address, RequestOrder(mQuietTime, now), {}};
        return mServers.emplace(identity, std::move(server)).first->second;
    }
    const std::string& kept = mAddresses[found->second.address].name;
    if (registration.address != kept) throw std::runtime_error("it keeps its address " + Quote(kept));
    return found->second;
}

std::size_t Switchboard::FindOrBindAddress(const std::string& name)
{
    const auto found = std::find_if(mAddresses.begin(), mAddresses.end(),
                                    [&](const Address& address) { return address.name == name; });
    if (found != mAddresses.end()) return static_cast<std::size_t>(found - mAddresses.begin());

    mWires.Bind(name);
    mAddresses.push_back({name, nullptr});
    return mAddresses.size() - 1;
}

void Switchboard::Return(Server& server, Message reply, TimePoint now)
{
    const std::optional<RequestUnderWay> request = server.order.TakeReply(now);
    if (!request)
    {
        Warn("reply of " + Quote(server.identity) + " dropped: nobody waits for it");
    }
    else if (reply.frames != 1)
    {
        ++server.dropped;
        Warn("reply of " + Quote(server.identity) + " dropped: it has " + std::to_string(reply.frames) + " frames");
    }
    else
    {
        const AnswerTimes::Duration time = now - request->sent;
        Trace(Passage::Kind::Reply, mAddresses[server.address].name, request->client, reply.body, time);
        ++server.answered;
        server.answerTimes.Add(time);
        mWires.SendToClient(server.address, request->client, std::move(reply.body)); // one that has gone misses nothing
    }
    Forward(server, now);
}

void Switchboard::Forward(Server& server, TimePoint now)
{
    const std::string& address = mAddresses[server.address].name;
    while (Request* const request = server.order.Next(now))
    {
        Trace(Passage::Kind::Request, address, request->client, request->body);
        const int error = mWires.SendToServer(server.identity, std::move(request->body));
        if (error == 0)
        {
            ++server.passed;
            server.order.Sent(now);
            continue;
        }
        ++server.dropped;
        Warn("request of " + Quote(request->client) + " to " + Quote(address) + " dropped: " + Quote(server.identity) +
             " can't be reached: " + zmq_strerror(error));
        server.order.Drop();
    }
}

void Switchboard::Trace(Passage::Kind kind, std::string_view name, std::string_view client, const zmq::message_t& body,
                        AnswerTimes::Duration answerTime) const
{
    if (mTracer) mTracer({kind, name, client, body.to_string_view(), answerTime});
}

} // namespace zeb::tolvo::desk
