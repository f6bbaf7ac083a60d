#pragma once

namespace zeb::tolvo::desk
{

/// Turns SIGINT and SIGTERM into a descriptor that is readable once one has come. Make it before any other thread, so
/// that every thread leaves the signals to it.
class StopSignals
{
public:
    /// @throws std::system_error
    StopSignals();
    ~StopSignals();

    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    int GetDescriptor() const { return mDescriptor; }

private:
    int mDescriptor;
};

} // namespace zeb::tolvo::desk
