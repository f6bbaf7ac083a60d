#include "quillmere/Timeline.h"

#include "quillmere/Lines.h"
#include "quillmere/Report.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zeb::tolvo::desk
{

namespace
{

using Json = nlohmann::ordered_json;

double Microseconds(std::chrono::steady_clock::duration time)
{
    return std::chrono::duration<double, std::micro>(time).count();
}

std::string Line(const Json& event)
{
    return event.dump(-1, ' ', false, Json::error_handler_t::replace) + ",\n"; // names may hold any bytes
}

} // namespace

Timeline::Timeline(const std::string& path)
    : mFile(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666))
{
    constexpr std::string_view kBeginning = "[\n";
    if (mFile.Get() < 0 || write(mFile.Get(), kBeginning.data(), kBeginning.size()) < 0)
        throw std::system_error(errno, std::generic_category(), "timeline " + Quote(path));
    mSize = kBeginning.size();
}

void Timeline::Add(const Passage& passage)
{
    if (passage.kind == Passage::Kind::Registration) return; // not accepted yet

    Track& track = FindOrAddTrack(passage.name);
    const double now = Microseconds(passage.time - mStart);
    std::string lines;
    if (passage.kind == Passage::Kind::Reply)
    {
        const TimePoint from = passage.time - passage.answerTime;
        lines = Line({{"name", "request"},
                      {"ph", "X"},
                      {"ts", Microseconds(from - mStart)},
                      {"dur", Microseconds(passage.answerTime)},
                      {"pid", track.number},
                      {"tid", TakeLane(track, from, passage.time)},
                      {"args",
                       {{"client", ClientName(passage.client)},
                        {"request bytes", passage.requestSize},
                        {"reply bytes", passage.body.size()}}}});
    }
    else if (passage.kind != Passage::Kind::Request)
    {
        lines = Line({{"name", passage.body}, {"ph", "i"}, {"s", "p"}, {"ts", now}, {"pid", track.number}, {"tid", 0}});
    }
    Write(lines + Line({{"name", "under way"},
                        {"ph", "C"},
                        {"ts", now},
                        {"pid", track.number},
                        {"args", {{"requests", passage.underWay}}}}));
}

Timeline::Track& Timeline::FindOrAddTrack(std::string_view name)
{
    const auto found = mTracks.find(name);
    if (found != mTracks.end()) return found->second;

    const std::size_t number = mTracks.size() + 1;
    Write(Line({{"name", "process_name"}, {"ph", "M"}, {"pid", number}, {"args", {{"name", name}}}}));
    return mTracks.emplace(name, Track{number, {}}).first->second;
}

std::size_t Timeline::TakeLane(Track& track, TimePoint from, TimePoint to)
{
    const auto isFree = [&](TimePoint end) { return end <= from; };
    auto lane = std::find_if(track.laneEnds.begin(), track.laneEnds.end(), isFree);
    if (lane == track.laneEnds.end()) lane = track.laneEnds.emplace(lane);
    *lane = to;
    return static_cast<std::size_t>(lane - track.laneEnds.begin());
}

/// All at once, so that a kill leaves whole lines.
void Timeline::Write(const std::string& line)
{
    std::string_view rest = line;
    ssize_t written = 1;
    while (!rest.empty() && (written = write(mFile.Get(), rest.data(), rest.size())) > 0)
        rest.remove_prefix(static_cast<std::size_t>(written));
    if (rest.empty())
    {
        mSize += static_cast<off_t>(line.size());
        return;
    }
    const int error = errno;
    [[maybe_unused]] const int cut = ftruncate(mFile.Get(), mSize); // what has no end would spoil what follows
    if (std::exchange(mIsComplete, false))
        Note("the timeline is incomplete from here on: " + std::generic_category().message(error));
}

} // namespace zeb::tolvo::desk
