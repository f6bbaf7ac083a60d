#pragma once

#include <zmq.hpp>

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>

namespace zeb::tolvo::desk
{

struct Request
{
    std::string client; ///< routing id
    zmq::message_t body;
};

/// A request that its server has not answered yet.
struct RequestUnderWay
{
    std::string client; ///< routing id
    std::chrono::steady_clock::time_point sent;
};

/// Whose turn the next reply of one server is.
///
/// Requests and replies carry no number, so a reply belongs to the oldest request under way. A server on a fresh
/// connection may still answer requests of an earlier one: nothing is sent to it until it has been silent for the
/// quiet time.
class RequestOrder
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    /// Less than the messages a ZeroMQ socket queues by default: a server drops replies when its queue is full.
    static constexpr std::size_t kMostUnderWay = 256;
    static constexpr std::size_t kMostWaiting = 10'000;

    /// Begins with a fresh connection.
    RequestOrder(Duration quietTime, TimePoint now);

    /// The server has a fresh connection: forgets the requests under way, and holds the others.
    /// @return how many were forgotten.
    std::size_t Restart(TimePoint now);

    /// Queues a request.
    /// @return false when the queue is full: the request is dropped.
    bool Add(Request request);

    /// Ends the hold when its time has come, so first take all that the server has sent.
    /// @return the request to send now, null when there is none. Follow it with `Sent` or `Drop`.
    Request* Next(TimePoint now);

    /// The request that `Next` returned is under way.
    void Sent(TimePoint now);

    /// The request that `Next` returned can't be sent.
    void Drop();

    /// The server has sent a frame that is no registration. It prolongs the hold.
    /// @return the request that it answers, if any.
    std::optional<RequestUnderWay> TakeReply(TimePoint now);

    /// @return the number of requests that have no reply yet.
    std::size_t Unanswered() const { return mWaiting.size() + mUnderWay.size(); }

    /// @return when `Next` must be asked again at the latest; nothing when no hold is on.
    std::optional<TimePoint> HeldUntil() const { return mHeldUntil; }

private:
    Duration mQuietTime;
    std::optional<TimePoint> mHeldUntil;
    std::deque<Request> mWaiting;
    std::deque<RequestUnderWay> mUnderWay;
};

} // namespace zeb::tolvo::desk
