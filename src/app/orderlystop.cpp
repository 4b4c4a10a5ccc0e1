#include "app/orderlystop.h"

#include <QCoreApplication>

#include <cerrno>
#include <csignal>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

namespace
{
/// What the handler writes to; it may touch nothing else.
volatile sig_atomic_t wakeDescriptor = -1;

void onSignal(int)
{
    const int error = errno;
    const uint64_t one = 1;
    // Nothing can be done about a failure here, and a full counter wakes the loop as well.
    [[maybe_unused]] const ssize_t written = ::write(wakeDescriptor, &one, sizeof(one));
    errno = error;
}

void handle(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}
} // namespace

OrderlyStop::OrderlyStop() : m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    handle(SIGPIPE, SIG_IGN);
    if (!m_wake.isValid()) {
        // The signals keep their default: better an abrupt end than none.
        return;
    }
    // A quit() before exec() would be lost. The count stays readable until the loop looks.
    m_notifier = std::make_unique<QSocketNotifier>(m_wake.get(), QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, &QCoreApplication::quit);
    wakeDescriptor = m_wake.get();
    handle(SIGTERM, &onSignal);
    handle(SIGINT, &onSignal);
}

OrderlyStop::~OrderlyStop()
{
    // The stop is under way; a second request must not write to a descriptor that is no longer this one.
    handle(SIGTERM, SIG_IGN);
    handle(SIGINT, SIG_IGN);
    wakeDescriptor = -1;
}
