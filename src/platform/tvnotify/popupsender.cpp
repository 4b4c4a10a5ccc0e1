#include "platform/tvnotify/popupsender.h"

#include "common/allsignalsblocked.h"
#include "platform/tvnotify/popupcodec.h"

#include <QLoggingCategory>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace
{

Q_LOGGING_CATEGORY(log, "tvnotify")

using namespace std::chrono_literals;

constexpr auto minimumStartDelay = 100ms;
constexpr auto maximumStartDelay = 30s;
/// The helper never waits for a bus before it reads: one that takes nothing for so long is broken.
constexpr auto stuckLimit = 10s;
constexpr auto stopLimit = 1s;

} // namespace

PopupSender::PopupSender(std::string helper, std::string sessionAddress)
    : m_helperProgram(std::move(helper)),
      m_sessionAddress(std::move(sessionAddress)),
      m_startDelay(minimumStartDelay)
{
}

PopupSender::~PopupSender()
{
    if (!m_thread.joinable()) {
        return;
    }
    m_stopping = true;
    wakeThread();
    m_thread.join();
}

void PopupSender::send(const Popup& popup)
{
    std::string datagram = encodePopup(popup);
    if (datagram.empty() || !m_inbox.put(std::move(datagram))) {
        m_dropped = true;
    }
    if (m_isStarted || startThread()) {
        wakeThread();
    }
}

bool PopupSender::startThread()
{
    // The first callers wait here for each other, so that none leaves a popup to a thread that sleeps.
    const std::lock_guard<std::mutex> guard(m_starting);
    if (m_isStarted) {
        return true;
    }
    if (!m_wakeUp.isValid()) {
        m_wakeUp.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    }
    if (!m_wakeUp.isValid()) {
        reportNoThreadOnce("eventfd", std::error_code(errno, std::generic_category()));
        return false;
    }
    const AllSignalsBlocked blocked;
    try {
        m_thread = std::thread(&PopupSender::run, this);
    } catch (const std::system_error& error) {
        reportNoThreadOnce("thread", error.code());
        return false;
    }
    m_isStarted = true;
    return true;
}

void PopupSender::reportNoThreadOnce(const char* what, const std::error_code& error)
{
    if (!std::exchange(m_reportedNoThread, true)) {
        qCWarning(log, "Popups wait: %s: %s", what, error.message().c_str());
    }
}

void PopupSender::wakeThread()
{
    // Fails only when the counter is full, and then the thread is awake.
    ::eventfd_write(m_wakeUp.get(), 1);
}

void PopupSender::run()
{
    while (!m_stopping) {
        sendQueued();
        reportDropsOnce();
        waitForWork();
    }
    finish();
}

void PopupSender::sendQueued()
{
    while (!m_unsent.empty() || m_inbox.take(m_unsent)) {
        if (!m_helper && !startHelper()) {
            return;
        }
        if (::send(m_helper->socket(), m_unsent.data(), m_unsent.size(), MSG_NOSIGNAL) >= 0) {
            m_unsent.clear();
            m_stuckSince.reset();
            continue;
        }
        const int error = errno;
        if (error == EAGAIN) {
            const Clock::time_point now = Clock::now();
            m_stuckSince = m_stuckSince.value_or(now);
            if (now - *m_stuckSince < stuckLimit) {
                return;
            }
        }
        dropHelper();
    }
}

bool PopupSender::startHelper()
{
    const Clock::time_point now = Clock::now();
    if (now < m_nextStart) {
        return false;
    }
    m_nextStart = now + m_startDelay;
    m_startDelay = std::min<Clock::duration>(2 * m_startDelay, maximumStartDelay);

    std::optional<HelperProcess> helper = HelperProcess::start(m_helperProgram, m_sessionAddress);
    if (!helper) {
        const int error = errno;
        if (!std::exchange(m_reportedStart, true)) {
            qCWarning(log, "Popups wait: cannot start %s: %s", m_helperProgram.c_str(), std::strerror(error));
        }
        return false;
    }
    m_helper.emplace(std::move(*helper));
    m_helperStarted = now;
    return true;
}

void PopupSender::dropHelper()
{
    m_helper.reset();
    m_stuckSince.reset();
    if (Clock::now() - m_helperStarted >= maximumStartDelay) {
        m_startDelay = minimumStartDelay;
    }
}

void PopupSender::waitForWork()
{
    int timeout = -1;
    if (const std::optional<Clock::time_point> deadline = nextDeadline()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
        timeout = static_cast<int>(std::max(left, std::chrono::milliseconds(0)).count());
    }
    const short helperEvents = m_unsent.empty() ? POLLIN : POLLIN | POLLOUT;
    pollfd waits[] = {{m_wakeUp.get(), POLLIN, 0}, {m_helper ? m_helper->socket() : -1, helperEvents, 0}};
    if (::poll(waits, std::size(waits), timeout) <= 0) {
        return;
    }
    if (waits[0].revents != 0) {
        eventfd_t count;
        ::eventfd_read(m_wakeUp.get(), &count);
    }
    if ((waits[1].revents & ~POLLOUT) != 0) {
        readNotice();
    }
}

void PopupSender::readNotice()
{
    char notice = 0;
    const ssize_t size = ::recv(m_helper->socket(), &notice, sizeof(notice), 0);
    if (size <= 0) {
        dropHelper();
        return;
    }
    if (notice == popupsDroppedNotice) {
        m_dropped = true;
    }
}

void PopupSender::reportDropsOnce()
{
    if (!m_dropped || m_reportedDrops) {
        return;
    }
    m_reportedDrops = true;
    // From this thread, because a log that blocks must not hold up who shows a popup.
    qCWarning(log, "Popups come faster than they can be shown: some are dropped");
}

void PopupSender::finish()
{
    m_stopLimit = Clock::now() + stopLimit;
    sendQueued();
    while (!m_unsent.empty() && Clock::now() < *m_stopLimit) {
        waitForWork();
        sendQueued();
    }
    if (m_helper) {
        // The helper sees the end of its input, finishes and goes.
        ::shutdown(m_helper->socket(), SHUT_WR);
    }
    while (m_helper && Clock::now() < *m_stopLimit) {
        waitForWork();
    }
    m_helper.reset();
    reportDropsOnce();
}

std::optional<PopupSender::Clock::time_point> PopupSender::nextDeadline() const
{
    std::optional<Clock::time_point> deadline = m_stopLimit;
    if (!m_unsent.empty()) {
        const Clock::time_point retry = m_stuckSince ? *m_stuckSince + stuckLimit : m_nextStart;
        deadline = std::min(retry, deadline.value_or(retry));
    }
    return deadline;
}
