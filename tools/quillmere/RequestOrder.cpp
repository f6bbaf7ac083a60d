#include "quillmere/RequestOrder.h"

#include <utility>

namespace zeb::tolvo::desk
{

std::size_t RequestOrder::Close()
{
    const std::size_t underWay = Pause();
    mState = State::Closed;
    return underWay + std::exchange(mWaiting, {}).size();
}

std::size_t RequestOrder::Pause()
{
    mState = State::Paused;
    mHeldUntil.reset();
    if (!mUnderWay.empty()) mFirstUnused = mNewestAtSend + 1;
    return std::exchange(mUnderWay, {}).size();
}

bool RequestOrder::Open(Connection connection, TimePoint now)
{
    if (connection < mFirstUnused) return false;
    mState = State::Open;
    mConnection = connection;
    mHeldUntil = now + mQuietTime;
    return true;
}

std::size_t RequestOrder::Lose()
{
    const std::size_t forgotten = Close();
    mFirstUnused = 0;
    return forgotten;
}

bool RequestOrder::Add(Request request)
{
    if (mWaiting.size() >= kMostWaiting) return false;
    mWaiting.push_back(std::move(request));
    return true;
}

Request* RequestOrder::Next(TimePoint now)
{
    if (mState != State::Open || (mHeldUntil && now < *mHeldUntil)) return nullptr;
    mHeldUntil.reset();
    return mWaiting.empty() || mUnderWay.size() >= kMostUnderWay ? nullptr : &mWaiting.front();
}

void RequestOrder::Sent(Connection newest, TimePoint now)
{
    mNewestAtSend = newest;
    mUnderWay.push_back({std::move(mWaiting.front().client), now, mWaiting.front().size});
    mWaiting.pop_front();
}

void RequestOrder::Drop() { mWaiting.pop_front(); }

std::optional<RequestUnderWay> RequestOrder::TakeReply(TimePoint now)
{
    // Whatever the clock says, a hold lasts until `Next` has ended it: this frame may have been sent before.
    if (mHeldUntil) mHeldUntil = now + mQuietTime;
    if (mUnderWay.empty()) return std::nullopt;
    RequestUnderWay request = std::move(mUnderWay.front());
    mUnderWay.pop_front();
    return request;
}

} // namespace zeb::tolvo::desk
