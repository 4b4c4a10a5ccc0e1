#include "tvctl/health/systemchecks.h"

#include "tvctl/health/advice.h"

#include <QStringList>

namespace
{
/// The kernel's own choice.
constexpr qint64 usualQueuedEvents = 16384;
/// Unpacking one archive makes more.
constexpr qint64 leastQueuedEvents = 1024;
/// A desktop session has some dozens.
constexpr qint64 usualInstances = 128;

/// Other programs of root watch something as well.
constexpr qint64 tightPercent = 80;

/// The package raises them anew at each start, also above what is in /etc/sysctl.d.
QString raise(const char* limit, qint64 value, bool isPackage)
{
    const QString set =
        isPackage ? QStringLiteral("set fs.inotify.%1 = %2 in /etc/talvenor/tvfilemon-limits.conf, a copy of "
                                   "/usr/lib/Talvenor/lib/tvfilemon-limits.conf")
                  : QStringLiteral("sysctl -w fs.inotify.%1=%2, also in /etc/sysctl.d");
    return set.arg(QLatin1String(limit)).arg(value) + QStringLiteral("; then ") + Advice::restart();
}

/// A round number with room to grow.
qint64 enoughFor(qint64 needed)
{
    qint64 value = usualQueuedEvents;
    while (value < needed * 2) {
        value *= 2;
    }
    return value;
}

QString counted(const WatchNeed& need)
{
    return QStringLiteral("%1%2")
        .arg(need.isComplete ? QString() : QStringLiteral("more than "))
        .arg(need.directories);
}
} // namespace

Finding SystemChecks::watchLimit(const InotifyLimits& limits, const WatchNeed& need, bool isPackage)
{
    const QString name = QStringLiteral("watch_limit");
    if (limits.watches < 0) {
        return Finding::warning(name, QStringLiteral("the kernel does not tell its limit"),
                                QStringLiteral("look at fs.inotify.max_user_watches"));
    }
    const QString seen =
        QStringLiteral("%1 directories have to be watched, %2 may be").arg(counted(need)).arg(limits.watches);
    const QString fix = raise("max_user_watches", enoughFor(need.directories), isPackage);
    if (need.directories > limits.watches) {
        return Finding::failed(name, seen, fix);
    }
    return need.directories * 100 > limits.watches * tightPercent ? Finding::warning(name, seen, fix)
                                                                  : Finding::ok(name, seen);
}

Finding SystemChecks::eventQueue(const InotifyLimits& limits, const WatchNeed& need, bool isPackage)
{
    const QString name = QStringLiteral("event_queue");
    if (limits.queuedEvents < 0) {
        return Finding::warning(name, QStringLiteral("the kernel does not tell its limit"),
                                QStringLiteral("look at fs.inotify.max_queued_events"));
    }
    const QString seen =
        QStringLiteral("%1 events wait at most; what comes then is never scanned").arg(limits.queuedEvents);
    const QString fix = raise("max_queued_events", enoughFor(need.directories), isPackage);
    if (limits.queuedEvents < leastQueuedEvents) {
        return Finding::failed(name, seen, fix);
    }
    // So that one change in every directory at the same time is kept.
    return limits.queuedEvents < qMax(usualQueuedEvents, need.directories)
               ? Finding::warning(name, seen, fix)
               : Finding::ok(name, QStringLiteral("%1 events may wait").arg(limits.queuedEvents));
}

Finding SystemChecks::instanceLimit(const InotifyLimits& limits, bool isPackage)
{
    const QString name = QStringLiteral("instance_limit");
    const QString seen = QStringLiteral("%1 queues of events may be made").arg(limits.instances);
    const QString fix = raise("max_user_instances", usualInstances, isPackage);
    if (limits.instances == 0) {
        return Finding::failed(name, seen, fix);
    }
    return limits.instances < usualInstances ? Finding::warning(name, seen, fix) : Finding::ok(name, seen);
}

Finding SystemChecks::protection(const StoreFacts& stores)
{
    const QString name = QStringLiteral("protection");
    if (stores.isHidden) {
        return Finding::notChecked(name);
    }
    if (!stores.hasSettings()) {
        return Finding::warning(name, QStringLiteral("not checked: the settings cannot be read"),
                                QStringLiteral("see the check of the stores"));
    }
    return stores.isRealtimeOn ? Finding::ok(name, QStringLiteral("real-time protection is on"))
                               : Finding::failed(name, QStringLiteral("real-time protection is switched off"),
                                                 QStringLiteral("tvctl config set protection.realtime on"));
}

Finding SystemChecks::scanAction(const StoreFacts& stores)
{
    const QString name = QStringLiteral("scan_action");
    if (stores.isHidden) {
        return Finding::notChecked(name);
    }
    if (!stores.hasSettings()) {
        return Finding::warning(name, QStringLiteral("not checked: the settings cannot be read"),
                                QStringLiteral("see the check of the stores"));
    }
    return stores.scanAction != 0
               ? Finding::ok(name, QStringLiteral("infected files are cleaned"))
               : Finding::warning(name,
                                  QStringLiteral("infected files are reported, and stay where they are"),
                                  QStringLiteral("tvctl config set scan.action clean"));
}

Finding SystemChecks::stores(const StoreFacts& stores, const QString& directory)
{
    const QString name = QStringLiteral("stores");
    if (stores.isHidden) {
        return Finding::notChecked(name);
    }
    const QString problem = stores.hasSettings() ? stores.reportsProblem : stores.settingsProblem;
    if (!problem.isEmpty()) {
        return Finding::failed(
            name, problem,
            QStringLiteral("try again when nobody else uses it, and look at %1").arg(directory));
    }
    if (!stores.damaged.isEmpty()) {
        return Finding::warning(
            name,
            QStringLiteral("a damaged one was set aside, and a new one begun: %1")
                .arg(stores.damaged.join(QStringLiteral(", "))),
            QStringLiteral("look over the settings, exclusions and hash lists; then remove it from %1")
                .arg(directory));
    }
    return Finding::ok(name, QStringLiteral("settings and detection records can be read"));
}

Finding SystemChecks::sqliteDriver(bool isAvailable)
{
    const QString name = QStringLiteral("sqlite_driver");
    return isAvailable ? Finding::ok(name, QStringLiteral("Qt can read the stores"))
                       : Finding::failed(name, QStringLiteral("Qt cannot read the stores"),
                                         QStringLiteral("apt install libqt5sql5-sqlite"));
}
