#include "quillmere/Switchboard.h"

#include "quillmere/Lines.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iterator>
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
    if (!identity.empty() && identity.front() == '\0')
    {
        Note("message from " + Quote(identity) +
             " refused: it gave no identity of its own, or another connection has taken it over");
        return;
    }
    if (message.frames == 1)
    {
        if (const auto registration = ReadRegistration(message.body.to_string_view(), mLongestAddress))
        {
            Trace({Passage::Kind::Registration, identity, {}, message.body.to_string_view(), {}, 0, 0, now});
            Register(message, *registration, now);
            return;
        }
    }
    const auto found = mServers.find(identity);
    if (found == mServers.end())
        Note("message from " + Quote(identity) + " refused: not registered, and no JSON object of type register");
    else
        Return(found->second, std::move(message), now);
}

void Switchboard::TakeFromClient(std::size_t address, Message message, TimePoint now)
{
    Server& server = *mAddresses[address].server;
    const auto drop = [&](const std::string& reason) {
        ++server.dropped;
        Trace(About(server, Passage::Kind::Loss, {}, "request dropped: " + reason, now));
        Note("request of " + Quote(message.sender.to_string_view()) + " to " + Quote(mAddresses[address].name) +
             " dropped: " + reason);
    };

    if (message.frames != 1)
        drop("it has " + std::to_string(message.frames) + " frames");
    else if (server.order.IsClosed())
        drop(Quote(server.identity) + " has gone, or its registration was refused");
    else if (!server.order.Add({message.sender.to_string(), std::move(message.body)}))
        drop("too many wait for " + Quote(server.identity));
    else
        Forward(server, now);
}

void Switchboard::CatchUp(TimePoint now)
{
    for (auto server = mHeld.begin(); server != mHeld.end();)
    {
        Forward(**server, now);
        server = (*server)->order.HeldUntil() ? std::next(server) : mHeld.erase(server);
    }
    TellOfLosses(now);
}

std::optional<Switchboard::TimePoint> Switchboard::NextCatchUp() const
{
    std::optional<TimePoint> next;
    if (mLossesToTell > 0) next = mNextLossLine;
    for (const Server* server : mHeld)
        if (const auto until = server->order.HeldUntil(); until && (!next || *until < *next)) next = until;
    return next;
}

std::vector<ServerReport> Switchboard::Report() const
{
    constexpr double kHalf = 0.5;
    const TimePoint now = std::chrono::steady_clock::now();
    std::vector<ServerReport> reports;
    for (const auto& [identity, server] : mServers)
    {
        reports.push_back({mAddresses[server.address].name, identity, server.passed, server.answered, server.dropped,
                           server.order.Unanswered(), server.lost, server.answerTimes.Percentile(kHalf),
                           server.answerTimes.Worst(), now - server.registered});
    }
    return reports;
}

void Switchboard::Register(const Message& message, const Registration& registration, TimePoint now)
{
    const std::string_view identity = message.sender.to_string_view();
    try
    {
        Server& server = FindOrAddServer(identity, registration);
        mWires.Restore(server.address);
        Open(server, message, now);
    }
    catch (const std::exception& refusal)
    {
        const auto known = mServers.find(identity);
        Note("registration of " + Quote(identity) + " as " + Quote(registration.address) +
             " refused: " + refusal.what() + (known == mServers.end() ? "" : Refuse(known->second, message, now)));
    }
}

Switchboard::Server& Switchboard::FindOrAddServer(std::string_view identity, const Registration& registration)
{
    if (!registration.fault.empty()) throw std::runtime_error(registration.fault);
    const auto found = mServers.find(identity);
    if (found == mServers.end())
    {
        const std::size_t address = FindOrBindAddress(registration.address);
        return mServers.emplace(identity, Server{std::string(identity), address, RequestOrder(mQuietTime)})
            .first->second;
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

void Switchboard::Open(Server& server, const Message& message, TimePoint now)
{
    Address& address = mAddresses[server.address];
    Server* const earlier = std::exchange(address.server, &server);
    const std::string before = std::exchange(server.peer, mWires.PeerOf(message));
    std::string line = Quote(server.identity) + " registered as " + Quote(address.name);
    if (earlier != nullptr && earlier != &server) line += ", which " + Quote(earlier->identity) + " served";
    if (!before.empty() && before != server.peer) line += "; " + server.peer + " took over from " + before;
    Note(line);
    server.registered = now;

    Forget(server, server.order.Pause(), now);
    Trace(About(server, Passage::Kind::Registered, {}, line, now));
    if (server.order.Open(message.connection, now))
        mHeld.insert(&server);
    else
        HangUp(server, message);
}

/// @return what becomes of the server.
std::string Switchboard::Refuse(Server& server, const Message& message, TimePoint now)
{
    // A server of the library registers once over a connection. A client has made it echo this.
    if (server.order.IsOpenOn(message.connection))
    {
        Forget(server, server.order.Pause(), now);
        HangUp(server, message);
        return {};
    }
    const std::string peer = mWires.PeerOf(message);
    Forget(server, server.order.Close(), now);
    return "; no request goes to " + Quote(server.identity) + " until it registers as " +
           Quote(mAddresses[server.address].name) +
           (peer == server.peer ? "" : "; " + peer + " took over from " + server.peer);
}

void Switchboard::HangUp(Server& server, const Message& message)
{
    if (std::exchange(server.hungUp, message.connection) == message.connection) return;
    Note(Quote(server.identity) + " has to connect anew: it may hold requests from before it registered");
    mWires.HangUp(message);
}

void Switchboard::Forget(Server& server, std::size_t requests, TimePoint now)
{
    if (requests == 0) return;
    server.dropped += requests;
    const std::string line = "requests to " + Quote(server.identity) + " dropped: " + std::to_string(requests);
    Trace(About(server, Passage::Kind::Loss, {}, line, now));
    Note(line);
}

void Switchboard::Return(Server& server, Message reply, TimePoint now)
{
    const auto drop = [&](const std::string& reason) {
        Note("reply of " + Quote(server.identity) + " dropped: " + reason);
    };

    if (!server.order.IsOpenOn(reply.connection))
    {
        drop("it came over a connection that is not registered");
        if (!server.order.IsClosed() && server.order.IsNewer(reply.connection))
            Forget(server, server.order.Pause(), now);
        return;
    }
    if (const std::optional<RequestUnderWay> request = server.order.TakeReply(now); !request)
    {
        drop("nobody waits for it");
    }
    else if (reply.frames != 1)
    {
        ++server.dropped;
        drop("it has " + std::to_string(reply.frames) + " frames");
    }
    else
    {
        const AnswerTimes::Duration time = now - request->sent;
        Passage passage = About(server, Passage::Kind::Reply, request->client, reply.body.to_string_view(), now);
        passage.answerTime = time;
        passage.requestSize = request->size;
        Trace(passage);
        ++server.answered;
        server.answerTimes.Add(time);
        Deliver(server, request->client, std::move(reply.body), now);
    }
    Forward(server, now);
}

void Switchboard::Deliver(Server& server, const std::string& client, zmq::message_t body, TimePoint now)
{
    if (mWires.SendToClient(server.address, client, std::move(body)) != EAGAIN) return; // one that has gone misses none
    ++server.lost;
    Trace(About(server, Passage::Kind::Loss, client, "reply lost: the queue to its client is full", now));
    ++mLossesToTell;
    TellOfLosses(now);
}

/// Once a second at most.
void Switchboard::TellOfLosses(TimePoint now)
{
    if (mLossesToTell == 0 || now < mNextLossLine) return;
    Note("replies lost, since the queues to their clients are full: " +
         std::to_string(std::exchange(mLossesToTell, 0)));
    mNextLossLine = now + std::chrono::seconds(1);
}

void Switchboard::Forward(Server& server, TimePoint now)
{
    while (Request* const request = server.order.Next(now))
    {
        Passage passage = About(server, Passage::Kind::Request, request->client, request->body.to_string_view(), now);
        ++passage.underWay;
        Trace(passage);
        const int error = mWires.SendToServer(server.identity, std::move(request->body));
        if (error == 0)
        {
            ++server.passed;
            server.order.Sent(mNewest, now);
            continue;
        }
        ++server.dropped;
        Trace(About(server, Passage::Kind::Loss, request->client, "request dropped: can't be reached", now));
        Note("request of " + Quote(request->client) + " to " + Quote(mAddresses[server.address].name) +
             " dropped: " + Quote(server.identity) + " can't be reached: " + zmq_strerror(error));
        server.order.Drop();
        if (error == EHOSTUNREACH) Forget(server, server.order.Lose(), now);
    }
}

Passage Switchboard::About(const Server& server, Passage::Kind kind, std::string_view client, std::string_view body,
                           TimePoint now) const
{
    return {kind, mAddresses[server.address].name, client, body, {}, 0, server.order.UnderWay(), now};
}

void Switchboard::Trace(const Passage& passage) const
{
    if (mTracer) mTracer(passage);
}

} // namespace zeb::tolvo::desk
