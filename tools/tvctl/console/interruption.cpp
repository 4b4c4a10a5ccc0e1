#include "tvctl/console/interruption.h"

#include <poll.h>
#include <sys/signalfd.h>

Interruption::Interruption()
{
    sigset_t signals = {};
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, number);
    }
    ::pthread_sigmask(SIG_BLOCK, &signals, &m_before);
    m_signals.reset(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

Interruption::~Interruption()
{
    struct signalfd_siginfo used = {};
    while (::read(m_signals.get(), &used, sizeof(used)) > 0) {
    }
    ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

bool Interruption::isRequested() const
{
    struct pollfd polled = {m_signals.get(), POLLIN, 0};
    return ::poll(&polled, 1, 0) > 0;
}
