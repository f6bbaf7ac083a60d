#include "quillmere/StopSignals.h"

#include <cerrno>
#include <csignal>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace zeb::tolvo::desk
{

StopSignals::StopSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    const int error = pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    mDescriptor = error == 0 ? signalfd(-1, &signals, SFD_CLOEXEC) : -1;
    if (mDescriptor < 0) throw std::system_error(error == 0 ? errno : error, std::generic_category(), "signals");
}

StopSignals::~StopSignals() { close(mDescriptor); }

} // namespace zeb::tolvo::desk
