#pragma once

#include "common/uniquefd.h"
#include "platform/tvnotify/send/notificationclient.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <sys/types.h>

/// Reads popups from the service and has them delivered to every session bus.
///
/// Each bus has a queue and, while there is something in it, one child process that acts with the owner's
/// credentials for as long as one delivery may take. A bus or a user who hangs holds up nobody else, and is
/// never waited for here. Single-threaded; owns the process it runs in, whose SIGCHLD it takes.
///
/// The end of the service is seen as the end of the input and not by a death signal, which the kernel sends
/// when the one thread of the service goes that started this process; the last popups would be lost.
class Dispatcher
{
public:
    /// Popups that one bus may have waiting; more are dropped, and the service is told.
    static constexpr std::size_t maximumPending = 1024;

    /// `service` is the socket to the service. The popups go to the bus at `sessionAddress`; when that is
    /// empty, to the buses of all users in `runtimeRoot` ("/run/user"). A delivery that takes longer than
    /// `deliveryLimit` is killed.
    Dispatcher(UniqueFd service, std::string sessionAddress, std::string runtimeRoot,
               std::chrono::milliseconds deliveryLimit);

    /// Returns when the service has gone and its popups are delivered, two seconds after it at the latest.
    /// False when it could not begin or was sent what is no popup.
    bool run();

private:
    using Clock = std::chrono::steady_clock;

    struct Bus
    {
        PopupQueue pending;
        /// The process that delivers, or -1.
        pid_t delivery = -1;
        /// When the delivery is killed; without one, not before when the next begins.
        Clock::time_point deadline;
    };

    bool readPopups();
    void queue(const std::shared_ptr<const Popup>& popup);
    void startDeliveries();
    void startDelivery(uid_t owner, Bus& bus);
    [[noreturn]] void deliver(uid_t owner, const PopupQueue& popups, pid_t dispatcher);
    void endDeliveries();
    void waitForWork();
    bool isFinished() const;

    UniqueFd m_service;
    UniqueFd m_childEnded;
    const std::string m_sessionAddress;
    const std::string m_runtimeRoot;
    const std::chrono::milliseconds m_deliveryLimit;
    /// By owner.
    std::map<uid_t, Bus> m_buses;
    std::optional<Clock::time_point> m_stopLimit;
    bool m_toldOfDrops = false;
};
