#pragma once

#include <csignal>

namespace zeb::tolvo::ipc
{

/// Blocks signals on the calling thread, but for those that a fault raises. A signal may make any ZeroMQ call fail, and
/// only the server's polling is repeated.
/// @return what the thread blocked before.
inline sigset_t BlockSignals()
{
    sigset_t all;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) sigdelset(&all, fault);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &all, &before);
    return before;
}

/// The same while it lives.
class SignalsBlocked
{
public:
    SignalsBlocked() : mBefore(BlockSignals()) {}

    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }

    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t mBefore;
};

} // namespace zeb::tolvo::ipc
