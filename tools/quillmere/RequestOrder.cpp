#include "quillmere/RequestOrder.h"

#include <utility>

namespace zeb::tolvo::desk
{

RequestOrder::RequestOrder(Duration quietTime, TimePoint now) : mQuietTime(quietTime), mHeldUntil(now + quietTime) {}

std::size_t RequestOrder::Restart(TimePoint now)
{
    mHeldUntil = now + mQuietTime;
    return std::exchange(mUnderWay, {}).size();
}

bool RequestOrder::Add(Request request)
{
    if (mWaiting.size() >= kMostWaiting) return false;
    mWaiting.push_back(std::move(request));
    return true;
}

Request* RequestOrder::Next(TimePoint now)
{
    if (mHeldUntil && now < *mHeldUntil) return nullptr;
    mHeldUntil.reset();
    return mWaiting.empty() || mUnderWay.size() >= kMostUnderWay ? nullptr : &mWaiting.front();
}

void RequestOrder::Sent(TimePoint now)
{
    mUnderWay.push_back({std::move(mWaiting.front().client), now});
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
