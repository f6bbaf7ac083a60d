#pragma once

#include "common/AnswerTimes.h"
#include "quillmere/Message.h"
#include "quillmere/Registration.h"
#include "quillmere/RequestOrder.h"

#include <zmq.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace zeb::tolvo::desk
{

/// The sockets of a switchboard.
class Wires
{
public:
    virtual ~Wires() = default;

    /// Lets clients connect to an address. Addresses are known by their number from then on: 0, 1, 2, ...
    /// @throws std::exception that tells why it can't be done; the number is then not used.
    virtual void Bind(const std::string& address) = 0;

    /// A server registers an address that was bound before: clients must be able to connect to it, too.
    /// @throws std::exception that tells why they can't.
    virtual void Restore(std::size_t address) = 0;

    // Each returns 0, or the error number when the frame can't be sent now.
    virtual int SendToServer(std::string_view identity, zmq::message_t body) = 0;
    virtual int SendToClient(std::size_t address, std::string_view client, zmq::message_t body) = 0;

    /// Closes the connection that a message of a server came over. A server of the library connects and registers anew.
    virtual void HangUp(const Message& message) = 0;

    /// @return who sent a message of a server, for a line.
    virtual std::string PeerOf(const Message& message) = 0;
};

/// A frame that passes the switchboard.
struct Passage
{
    enum class Kind
    {
        Registration,
        Request,
        Reply,
        Registered, // no frame: a registration was accepted; the body says whose
        Loss,       // no frame: what was dropped or lost; the body says why
    };

    Kind kind;
    std::string_view name;   ///< the address; of a registration the identity that it comes from
    std::string_view client; ///< routing id; empty for a registration
    std::string_view body;
    AnswerTimes::Duration answerTime; ///< from the request's passing to this reply; zero for the other kinds
    std::size_t requestSize = 0;      ///< of the request that this reply answers
    std::size_t underWay = 0;         ///< at the server, when the frame has passed; not for the kind Registration
    std::chrono::steady_clock::time_point time{};
};

/// Told of each frame before it passes. What it is given is gone when it returns.
using Tracer = std::function<void(const Passage&)>;

/// What has become of the requests to one server. Those that came are the answered, the dropped and the waiting.
struct ServerReport
{
    std::string address;
    std::string identity;
    std::uint64_t passed = 0;   ///< sent on to the server
    std::uint64_t answered = 0; ///< by the server, whether or not the client was still there
    std::uint64_t dropped = 0;  ///< nobody will answer them
    std::uint64_t waiting = 0;  ///< for their turn or for the reply
    std::uint64_t lost = 0;     ///< of the answered: the client's queue was full
    AnswerTimes::Duration median{0};
    AnswerTimes::Duration worst{0};
    AnswerTimes::Duration sinceRegistered{0};
};

/// Who serves which address. Passes each request to the server of its address and each reply to
/// the client that it belongs to. Whatever a frame holds, the others stay in order.
class Switchboard
{
public:
    using TimePoint = RequestOrder::TimePoint;

    /// @param wires must outlive the switchboard.
    /// @param longestAddress number of bytes an address may have.
    /// @param tracer may be empty.
    Switchboard(Wires& wires, std::size_t longestAddress, std::chrono::milliseconds quietTime, Tracer tracer);

    /// A server connects. Call it before ZeroMQ lets the connection in.
    /// @return the number of the connection, which each message that comes over it must carry.
    RequestOrder::Connection AddConnection() { return ++mNewest; }

    /// @param now when the wake-up began in which the message was taken.
    void TakeFromServer(Message message, TimePoint now);
    void TakeFromClient(std::size_t address, Message message, TimePoint now);

    /// Does what was put off: sends requests to the servers whose quiet time is over, and tells of lost replies. First
    /// take what the servers have sent.
    void CatchUp(TimePoint now);

    /// @return when `CatchUp` must be called at the latest; nothing when nothing was put off.
    std::optional<TimePoint> NextCatchUp() const;

    /// @return one for each identity that has ever registered.
    std::vector<ServerReport> Report() const;

private:
    struct Server;

    struct Address
    {
        std::string name;
        Server* server; // of its servers the one that registered last
    };

    struct Server
    {
        std::string identity;
        std::size_t address; // the same for life
        RequestOrder order;
        std::string peer{}; // who registered last
        TimePoint registered{};
        RequestOrder::Connection hungUp = 0;
        AnswerTimes answerTimes{};
        std::uint64_t passed = 0;
        std::uint64_t answered = 0;
        std::uint64_t dropped = 0;
        std::uint64_t lost = 0;
    };

    void Register(const Message& message, const Registration& registration, TimePoint now);
    Server& FindOrAddServer(std::string_view identity, const Registration& registration);
    std::size_t FindOrBindAddress(const std::string& name);
    void Open(Server& server, const Message& message, TimePoint now);
    std::string Refuse(Server& server, const Message& message, TimePoint now);
    void HangUp(Server& server, const Message& message);
    void Forget(Server& server, std::size_t requests, TimePoint now);
    void Return(Server& server, Message reply, TimePoint now);
    void Deliver(Server& server, const std::string& client, zmq::message_t body, TimePoint now);
    void TellOfLosses(TimePoint now);
    void Forward(Server& server, TimePoint now);
    Passage About(const Server& server, Passage::Kind kind, std::string_view client, std::string_view body,
                  TimePoint now) const;
    void Trace(const Passage& passage) const;

    Wires& mWires;
    std::size_t mLongestAddress;
    std::chrono::milliseconds mQuietTime;
    Tracer mTracer;
    RequestOrder::Connection mNewest = 0; // of the servers' connections
    std::vector<Address> mAddresses;      // by number
    std::map<std::string, Server, std::less<>> mServers;
    std::set<Server*> mHeld; // until its quiet time is over; some are held no more
    std::uint64_t mLossesToTell = 0;
    TimePoint mNextLossLine{};
};

} // namespace zeb::tolvo::desk
