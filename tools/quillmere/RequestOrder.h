#pragma once

#include <zmq.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace zeb::tolvo::desk
{

struct Request
{
    std::string client; ///< routing id
    zmq::message_t body;
    std::size_t size = body.size(); ///< also when the body has been sent
};

/// A request that its server has not answered yet.
struct RequestUnderWay
{
    std::string client; ///< routing id
    std::chrono::steady_clock::time_point sent;
    std::size_t size = 0;
};

/// Which client gets the next reply of one server.
///
/// Requests and replies carry no number, so a reply belongs to the oldest request under way. For this to be true, a
/// server must hold no other request when it gets its first one:
/// - It may hold requests of an earlier connection. A server of the library takes requests in bursts and registers
///   after one of them, so by then it has answered them all, however long that took, unless they were more than a burst
///   takes. Hence the limit of those under way.
/// - ZeroMQ sends to the connection that claimed an identity last, also before the server has registered over it. So
///   connections are numbered before they are let in. One that may have been sent a request before it registered is
///   not used: the server must connect anew.
/// - A server that is made otherwise may still answer old requests after it has registered: it gets none until it has
///   been silent for the quiet time.
class RequestOrder
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;
    using Connection = std::uint64_t; ///< numbers go up in the order in which connections are let in

    /// Half of the smallest burst: a server may hold as many of an earlier connection, and as many more that were sent
    /// over this one before it registered.
    static constexpr std::size_t kMostUnderWay = 5;
    static constexpr std::size_t kMostWaiting = 10'000;

    /// Begins closed.
    explicit RequestOrder(Duration quietTime) : mQuietTime(quietTime) {}

    /// Accepts no request.
    /// @return how many requests were forgotten.
    std::size_t Close();

    /// Accepts requests, and sends none. Forgets those under way.
    /// @return how many were forgotten.
    std::size_t Pause();

    /// The server has registered over `connection`. Pause or close before.
    /// @return false, and nothing changes, when the server may hold requests that were sent over this connection.
    bool Open(Connection connection, TimePoint now);

    /// No connection has the server's identity, so none of those that there are now holds a request. Closes.
    /// @return how many requests were forgotten.
    std::size_t Lose();

    bool IsClosed() const { return mState == State::Closed; }

    bool IsNewer(Connection connection) const { return connection > mConnection; }

    bool IsOpenOn(Connection connection) const { return mState == State::Open && connection == mConnection; }

    /// Queues a request.
    /// @return false when the queue is full: the request is dropped.
    bool Add(Request request);

    /// Ends the hold when its time has come, so first take all that the server has sent.
    /// @return the request to send now, null when there is none. Follow it with `Sent` or `Drop`.
    Request* Next(TimePoint now);

    /// The request that `Next` returned is under way.
    /// @param newest connection that there was when it was sent.
    void Sent(Connection newest, TimePoint now);

    /// The request that `Next` returned can't be sent.
    void Drop();

    /// The server has sent a frame over the connection that is open. It prolongs the hold.
    /// @return the request that it answers, if any.
    std::optional<RequestUnderWay> TakeReply(TimePoint now);

    /// @return the number of requests that have no reply yet.
    std::size_t Unanswered() const { return mWaiting.size() + mUnderWay.size(); }

    std::size_t UnderWay() const { return mUnderWay.size(); }

    /// @return when `Next` must be asked again at the latest; nothing when no hold is on.
    std::optional<TimePoint> HeldUntil() const { return mHeldUntil; }

private:
    enum class State
    {
        Closed,
        Paused,
        Open,
    };

    Duration mQuietTime;
    State mState = State::Closed;
    Connection mConnection = 0;
    Connection mNewestAtSend = 0;
    Connection mFirstUnused = 0; // of the connections, the first that surely was sent no request that is now forgotten
    std::optional<TimePoint> mHeldUntil;
    std::deque<Request> mWaiting;
    std::deque<RequestUnderWay> mUnderWay;
};

} // namespace zeb::tolvo::desk
