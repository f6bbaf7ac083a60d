#include "quillmere/Signals.h"

#include <cerrno>
#include <csignal>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace zeb::tolvo::desk
{

namespace
{

[[noreturn]] void Fail(int error) { throw std::system_error(error, std::generic_category(), "signals"); }

} // namespace

Signals::Signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGUSR1}) sigaddset(&signals, signal);
    if (const int error = pthread_sigmask(SIG_BLOCK, &signals, nullptr)) Fail(error);
    mDescriptor = signalfd(-1, &signals, SFD_CLOEXEC);
    if (mDescriptor < 0) Fail(errno);
}

Signals::~Signals() { close(mDescriptor); }

int Signals::Take() const
{
    signalfd_siginfo taken{};
    if (read(mDescriptor, &taken, sizeof taken) < 0) Fail(errno);
    return static_cast<int>(taken.ssi_signo);
}

} // namespace zeb::tolvo::desk
