#pragma once

namespace zeb::tolvo::desk
{

/// Turns SIGHUP, SIGINT, SIGTERM and SIGUSR1 into a descriptor that is readable once one has come; one that was ignored
/// stays so. Make it before any other thread, so that every thread leaves the signals to it.
class Signals
{
public:
    /// @throws std::system_error
    Signals();
    ~Signals();

    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    int GetDescriptor() const { return mDescriptor; }

    /// Waits for the next signal and takes it.
    /// @return its number.
    /// @throws std::system_error
    int Take() const;

private:
    int mDescriptor;
};

} // namespace zeb::tolvo::desk
