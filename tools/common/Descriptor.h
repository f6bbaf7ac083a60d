#pragma once

#include <unistd.h>
#include <utility>

namespace zeb::tolvo::desk
{

/// An open descriptor, or -1. Closed at its end.
class Descriptor
{
public:
    explicit Descriptor(int descriptor = -1) : mDescriptor(descriptor) {}

    ~Descriptor()
    {
        if (mDescriptor >= 0) close(mDescriptor);
    }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return mDescriptor; }

    /// @return the descriptor, which is the caller's from now on.
    int Release() { return std::exchange(mDescriptor, -1); }

private:
    int mDescriptor;
};

} // namespace zeb::tolvo::desk
