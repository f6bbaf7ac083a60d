#pragma once

#include "common/Descriptor.h"
#include "quillmere/Switchboard.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zeb::tolvo::desk
{

/// A file of trace events in Chrome's JSON array form, which needs no end: it can be read at any time, also after a
/// kill. For each address it has boxes for the answered requests, marks for registrations and losses, and the number of
/// requests under way.
class Timeline
{
public:
    /// @throws std::system_error
    explicit Timeline(const std::string& path);

    /// What can't be written is dropped, with one line.
    void Add(const Passage& passage);

private:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// Viewers show boxes of one lane as calls within calls, so requests that were under way together need several.
    struct Track
    {
        std::size_t number;
        std::vector<TimePoint> laneEnds;
    };

    Track& FindOrAddTrack(std::string_view name);
    static std::size_t TakeLane(Track& track, TimePoint from, TimePoint to);
    void Write(const std::string& line);

    Descriptor mFile;
    off_t mSize = 0;
    bool mIsComplete = true; // nothing was dropped
    TimePoint mStart = std::chrono::steady_clock::now();
    std::map<std::string, Track, std::less<>> mTracks; // by address
};

} // namespace zeb::tolvo::desk
