#include "app/orderlystop.h"

#include "common/abandonablework.h"
#include "common/allsignalsblocked.h"

#include <QCoreApplication>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace
{
/// Most scans are over by then, and the end is in order. What follows may take another second, for popups.
constexpr std::chrono::milliseconds patience(300);

/// What the handler writes to; it may touch nothing else, and any thread may be the one that it interrupts.
std::atomic<int> wakeDescriptor = -1;
static_assert(std::atomic<int>::is_always_lock_free);

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

OrderlyStop::OrderlyStop(std::function<void()> lastWork)
    : m_lastWork(std::move(lastWork)),
      m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    handle(SIGPIPE, SIG_IGN);
    if (!m_wake.isValid()) {
        // The signals keep their default: better an abrupt end than none.
        return;
    }
    // A quit() before exec() would be lost. The count stays readable until the loop looks.
    m_notifier = std::make_unique<QSocketNotifier>(m_wake.get(), QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, &QCoreApplication::quit);
    startThread();
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
    m_ended.raise();
    AbandonableWork::cancel();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void OrderlyStop::startThread()
{
    const AllSignalsBlocked blocked;
    try {
        m_thread = std::thread(&OrderlyStop::endWhenLate, this);
    } catch (const std::system_error&) {
        // Without it the end waits for whatever is being done.
    }
}

void OrderlyStop::endWhenLate()
{
    if (!m_ended.waitForInput(m_wake.get())) {
        return;
    }
    m_ended.sleep(patience);
    if (!m_ended.isRaised() && AbandonableWork::abandon()) {
        m_lastWork();
        // Nothing is destroyed: the work goes on with it.
        ::_exit(EXIT_SUCCESS);
    }
}
