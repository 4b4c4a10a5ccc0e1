#include "platform/tvnotify/send/dispatcher.h"

#include "platform/tvnotify/popupcodec.h"
#include "platform/tvnotify/send/userbus.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace std::chrono_literals;

constexpr auto forkRetryDelay = 1s;
constexpr auto stopLimit = 2s;

} // namespace

Dispatcher::Dispatcher(UniqueFd service, std::string sessionAddress, std::string runtimeRoot,
                       std::chrono::milliseconds deliveryLimit)
    : m_service(std::move(service)),
      m_sessionAddress(std::move(sessionAddress)),
      m_runtimeRoot(std::move(runtimeRoot)),
      m_deliveryLimit(deliveryLimit)
{
}

bool Dispatcher::run()
{
    sigset_t childEnded;
    ::sigemptyset(&childEnded);
    ::sigaddset(&childEnded, SIGCHLD);
    if (::sigprocmask(SIG_SETMASK, &childEnded, nullptr) != 0) {
        return false;
    }
    m_childEnded.reset(::signalfd(-1, &childEnded, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!m_childEnded.isValid()) {
        return false;
    }
    // Nothing that runs here has a use for a privilege that it does not have already.
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);

    while (!isFinished()) {
        waitForWork();
        if (!m_stopLimit && !readPopups()) {
            return false;
        }
        endDeliveries();
        startDeliveries();
    }
    return true;
}

bool Dispatcher::readPopups()
{
    static char datagram[maximumEncodedPopup];
    // A bounded turn, so that a flood of popups does not keep late deliveries alive.
    for (std::size_t i = 0; i < maximumPending; ++i) {
        const ssize_t size = ::recv(m_service.get(), datagram, sizeof(datagram), MSG_DONTWAIT | MSG_TRUNC);
        if (size < 0) {
            const int error = errno;
            if (error == EAGAIN || error == EINTR) {
                return true;
            }
        }
        if (size <= 0) {
            m_stopLimit = Clock::now() + stopLimit;
            return true;
        }
        const auto length = static_cast<std::size_t>(size);
        std::optional<Popup> popup;
        if (length <= sizeof(datagram)) {
            popup = decodePopup({datagram, length});
        }
        if (!popup) {
            return false;
        }
        queue(std::make_shared<const Popup>(std::move(*popup)));
    }
    return true;
}

void Dispatcher::queue(const std::shared_ptr<const Popup>& popup)
{
    const uid_t self = ::geteuid();
    std::vector<uid_t> owners{self};
    if (m_sessionAddress.empty()) {
        owners = usersIn(m_runtimeRoot);
    }
    for (const uid_t owner : owners) {
        if (self != 0 && owner != self) {
            continue; // only root can act for others
        }
        Bus& bus = m_buses[owner];
        if (bus.pending.size() < maximumPending) {
            bus.pending.push_back(popup);
        } else if (!std::exchange(m_toldOfDrops, true)) {
            ::send(m_service.get(), &popupsDroppedNotice, 1, MSG_DONTWAIT | MSG_NOSIGNAL);
        }
    }
}

void Dispatcher::startDeliveries()
{
    for (auto& [owner, bus] : m_buses) {
        if (bus.delivery < 0 && !bus.pending.empty() && Clock::now() >= bus.deadline) {
            startDelivery(owner, bus);
        }
    }
}

void Dispatcher::startDelivery(uid_t owner, Bus& bus)
{
    const pid_t self = ::getpid();
    const pid_t child = ::fork();
    if (child == 0) {
        deliver(owner, bus.pending, self);
    }
    if (child < 0) {
        bus.deadline = Clock::now() + forkRetryDelay;
        return;
    }
    bus.delivery = child;
    bus.deadline = Clock::now() + m_deliveryLimit;
    bus.pending.clear();
}

void Dispatcher::deliver(uid_t owner, const PopupQueue& popups, pid_t dispatcher)
{
    // A user who never lets this process go must not keep the service's socket open with it.
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (!becomeUser(owner)) {
        ::_exit(EXIT_FAILURE);
    }
    // After the change of user, which clears it.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
    if (::getppid() != dispatcher) {
        ::_exit(EXIT_FAILURE);
    }
    const std::string address =
        m_sessionAddress.empty() ? userBusAddress(m_runtimeRoot, owner) : m_sessionAddress;
    if (!address.empty()) {
        showPopups(address, popups);
    }
    ::_exit(EXIT_SUCCESS);
}

void Dispatcher::endDeliveries()
{
    signalfd_siginfo ended;
    while (::read(m_childEnded.get(), &ended, sizeof(ended)) > 0) {
    }
    for (auto i = m_buses.begin(); i != m_buses.end();) {
        Bus& bus = i->second;
        if (bus.delivery >= 0) {
            if (Clock::now() >= bus.deadline) {
                ::kill(bus.delivery, SIGKILL);
                // Even this may take its time, when the user's file system has the process; then until the
                // next limit nothing is left but to leave it alone.
                bus.deadline = Clock::now() + m_deliveryLimit;
            }
            if (::waitpid(bus.delivery, nullptr, WNOHANG) != 0) {
                bus.delivery = -1;
                bus.deadline = {};
            }
        }
        const bool isIdle = bus.delivery < 0 && bus.pending.empty();
        i = isIdle ? m_buses.erase(i) : std::next(i);
    }
}

void Dispatcher::waitForWork()
{
    std::optional<Clock::time_point> next = m_stopLimit;
    for (const auto& [owner, bus] : m_buses) {
        next = std::min(bus.deadline, next.value_or(bus.deadline));
    }
    int timeout = -1;
    if (next) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now());
        timeout = static_cast<int>(std::max(left, std::chrono::milliseconds(0)).count());
    }
    // After the end of the input the socket would always be ready.
    pollfd waits[] = {{m_childEnded.get(), POLLIN, 0}, {m_stopLimit ? -1 : m_service.get(), POLLIN, 0}};
    ::poll(waits, std::size(waits), timeout);
}

bool Dispatcher::isFinished() const
{
    return m_stopLimit && (m_buses.empty() || Clock::now() >= *m_stopLimit);
}
