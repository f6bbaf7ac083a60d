#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zeb::tolvo::desk
{

/// A standard stream that nobody waits for: what its reader leaves no room for is dropped, whole lines of it, and
/// counted; a line says how many once there is room again. A reader that is only slow is waited for a moment.
class Outlet
{
public:
    explicit Outlet(int descriptor) : mDescriptor(descriptor) {}

    /// Makes sure that no other process that writes there can make this one wait. Without it, one that takes the last
    /// room just before a write still could.
    void StopWaiting() const;

    /// @param lines whole ones, each with its newline.
    /// @return 0, or the error number when they were dropped.
    int Write(std::string_view lines);

private:
    int Begin(std::string_view lines);
    int Finish();
    int WriteSome(std::string_view& text) const;

    int mDescriptor;
    std::string mRest; // of what has been begun
    std::uint64_t mDropped = 0;
};

} // namespace zeb::tolvo::desk
