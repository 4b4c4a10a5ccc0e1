#include "monitor/filemonitor.h"

#include "common/abandonablework.h"
#include "common/common.h"
#include "common/filename.h"
#include "common/heldfile.h"
#include "common/localtime.h"
#include "common/opendirectory.h"
#include "common/subdirectories.h"
#include "logger/clogger.h"
#include "monitor/excursion.h"
#include "monitor/inotifyrecords.h"
#include "platform/tvcore/virusreport.h"
#include "scan/cscanmanager.h"

#include <QDateTime>
#include <QHash>
#include <QSocketNotifier>
#include <QVector>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <unistd.h>

using LOGGER::CLogger;

namespace
{
constexpr uint32_t watchMask = IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE |
                               IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;
static_assert(watchMask == 0xFCA);
/// What has a file scanned. Closing after a write brings no scan of its own: each write had one.
constexpr uint32_t scannedEvents = IN_MODIFY | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE;
static_assert(scannedEvents == 0x1C2);
constexpr uint32_t removedDirectory = IN_DELETE | IN_DELETE_SELF | IN_UNMOUNT;
static_assert(removedDirectory == 0x2600);

constexpr int deepestLevel = 5;
/// A new directory counts as level four, wherever it lies: it and one level below are watched.
constexpr int newDirectoryDepth = 3;
/// How often one walk looks into the same directory of a medium. It has a second name where it is mounted a
/// second time; but whoever wrote the medium may have given it a thousand, and those below it again, and the
/// walk would not end.
constexpr int mostNames = 4;
constexpr size_t readSize = 1024;
/// Lets a burst gather, so that one read takes more of it.
constexpr useconds_t gatherMicroseconds = 100;

constexpr int infected = 1;
constexpr int cannotOpen = 8;
constexpr std::chrono::seconds popupTime(60);

constexpr int heldDirectory = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// Leads to the very directory, whatever has its name by now.
QByteArray pathOf(const UniqueFd& directory)
{
    return "/proc/self/fd/" + QByteArray::number(directory.get());
}

/// In one piece of memory: a walk makes one for each directory.
QString pathBelow(const QString& path, const QByteArray& name)
{
    QString below;
    below.reserve(path.size() + 1 + name.size());
    below += path;
    below += QLatin1Char('/');
    FileName::append(below, name);
    return below;
}

QString moduleName()
{
    return QStringLiteral("tvfilemon");
}

QString statusText(int status)
{
    switch (status) {
    case 0:
        return QStringLiteral("Cleaned");
    case -1:
        return QStringLiteral("Report Only");
    case -2:
        return QStringLiteral("User Allowed");
    default:
        return QStringLiteral("Error");
    }
}
} // namespace

FileMonitor::FileMonitor() : m_scanManager(CScanManager::getInstance())
{
    m_leaseTimer.setSingleShot(true);
    connect(&m_leaseTimer, &QTimer::timeout, this, &FileMonitor::scanWhatIsFree);
}

bool FileMonitor::startMonitoring()
{
    // Or the kernel makes 50 microseconds more of each pause, to wake several threads at once.
    ::prctl(PR_SET_TIMERSLACK, 1UL);
    m_fd = ::inotify_init1(IN_CLOEXEC);
    if (m_fd < 0) {
        perror("inotify_init");
        return false;
    }
    for (const QString& root : {QStringLiteral("/home"), QStringLiteral("/media")}) {
        int depth = 0;
        addToWatchRecursive(m_fd, root, depth);
        CLogger::getInstance()->Info(__PRETTY_FUNCTION__, "Watching: %s", root.toUtf8().constData());
    }
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &FileMonitor::onActivated);
    // As soon as files are watched over: of half a million directories it may take a second.
    QTimer::singleShot(0, this, [this] { m_watches.prepareForRemovals(); });
    return true;
}

/// What one walk keeps from directory to directory.
struct FileMonitor::Walk
{
    int fd;
    /// Whose failures are logged.
    const char* location;
    /// How often it looked into the directory of each watch on a medium.
    QHash<int, int> looks = {};
    Excursion excursion = {};
    /// It may take long, and only this process knows of it. Not while a failure is logged.
    std::optional<AbandonableWork> work = {};
};

/// A directory that a walk comes to: `name` in `above`, or by its path where the walk begins.
struct FileMonitor::Step
{
    const Step* above;
    const QByteArray& name;
    QString path;
    /// Held while the walk is below: each name leads from here to what is in this directory, whatever a user
    /// has put in its place meanwhile.
    UniqueFd directory = {};
    QVector<QByteArray> below = {};
    /// Whether the process works in this directory while the walk is below.
    bool isEntered = false;

    /// The new watch, or -1 with errno set. Never by the path: the kernel knows a directory by one watch, so
    /// following a link that a user put in the place of a new directory would make another user's watched
    /// directory known by that link, and unprotected.
    int watch(Walk& walk, int depth);
    /// The same where nothing is looked for below, as in most directories: it takes one call.
    int watchAsTheLast(int fd) const;
};

int FileMonitor::Step::watch(Walk& walk, int depth)
{
    directory = above == nullptr
                    ? openDirectoryWithoutLinks(FileName::toBytes(path))
                    : UniqueFd(::openat(above->directory.get(), name.constData(), heldDirectory));
    if (!directory.isValid()) {
        return -1;
    }
    // From there the ways to it and to those below, of the deepest level, are the shortest.
    isEntered = depth == deepestLevel - 1 && walk.excursion.enter(directory);
    const QByteArray found = isEntered ? QByteArrayLiteral(".") : pathOf(directory);
    return ::inotify_add_watch(walk.fd, found.constData(), watchMask);
}

int FileMonitor::Step::watchAsTheLast(int fd) const
{
    const QByteArray found = above->isEntered ? name : pathOf(above->directory) + '/' + name;
    return ::inotify_add_watch(fd, found.constData(), watchMask | IN_DONT_FOLLOW | IN_ONLYDIR);
}

void FileMonitor::addToWatchRecursive(int fd, const QString& path, int& depth)
{
    walk({fd, __PRETTY_FUNCTION__}, path, depth);
}

void FileMonitor::addNewDirToWatchRecursive(int fd, const QString& path, int& depth)
{
    // Files that are in the directory already are passed over: each is scanned by its own events.
    walk({fd, __PRETTY_FUNCTION__}, path, depth);
}

void FileMonitor::walk(Walk walk, const QString& path, int& depth)
{
    walk.work.emplace();
    const QByteArray noName;
    Step first = {nullptr, noName, path};
    visit(walk, first, depth);
}

void FileMonitor::visit(Walk& walk, Step& step, int& depth)
{
    if (++depth <= deepestLevel) {
        const int error = watch(walk, step, depth);
        if (error != 0) {
            walk.work.reset();
            CLogger::getInstance()->Error(walk.location, error, "Failed to add path for watch: %s",
                                          FileName::toBytes(step.path).constData());
            walk.work.emplace();
        }
        for (const QByteArray& name : qAsConst(step.below)) {
            Step below = {&step, name, pathBelow(step.path, name)};
            visit(walk, below, depth);
        }
    }
    --depth;
}

int FileMonitor::watch(Walk& walk, Step& step, int depth)
{
    const bool isLast = depth == deepestLevel && step.above != nullptr;
    const int descriptor = !m_watches.hasRoomFor(step.path) ? -1
                           : isLast                         ? step.watchAsTheLast(walk.fd)
                                                            : step.watch(walk, depth);
    if (descriptor < 0) {
        const int error = errno;
        perror("inotify_add_watch");
        return error;
    }
    // A directory that is watched by a second name keeps the last one only.
    m_watches.add(descriptor, step.path);
    if (depth == deepestLevel) {
        return 0;
    }
    const bool isOwn = m_ownDevices.hold(step.directory.get());
    if (!isOwn && ++walk.looks[descriptor] > mostNames) {
        return 0;
    }
    step.below = subdirectoriesOf(step.directory.get(), isOwn);
    return 0;
}

void FileMonitor::removeDirectoryFromWatch(const QString& path)
{
    // By prefix, on purpose without a separator check: forgetting /home/a also forgets /home/ab, which is
    // then watched by the kernel but unknown here.
    m_watches.removeStartingWith(path);
}

void FileMonitor::onActivated()
{
    ::usleep(gatherMicroseconds);
    alignas(inotify_event) char buffer[readSize] = {};
    // One read a notification: what does not fit stays in the kernel and notifies again, and whatever else
    // the event loop serves gets its turn in between.
    const ssize_t size = ::read(m_fd, buffer, sizeof(buffer));
    if (size < 0) {
        const int error = errno;
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Failed to read from file descriptor!");
        return;
    }

    int depth = newDirectoryDepth;
    InotifyRecords records(buffer, static_cast<size_t>(size));
    while (inotify_event* event = records.next()) {
        if ((event->mask & IN_ISDIR) == 0) {
            fileChanged(event);
            if ((event->mask & IN_IGNORED) != 0) {
                // The last that is told of it. Whoever moves directories out and removes them there would
                // have the table grow without end.
                m_watches.remove(event->wd);
            }
            continue;
        }
        // A directory that was forgotten may still report. Its path is then empty. It is not kept, or whoever
        // makes and removes directories would have the table grow without end.
        const QString directory = m_watches.pathOf(event->wd);
        const QByteArray directoryBytes = FileName::toBytes(directory);
        const QByteArray name = nameOf(*event);
        // Two steps: a directory named like a placeholder takes the name in, as it always did.
        const QString path = QStringLiteral("%1/%2").arg(directory).arg(FileName::toText(name));
        if ((event->mask & IN_CREATE) != 0) {
            CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "New Directory added: %s/%s",
                                          directoryBytes.constData(), name.constData());
            addNewDirToWatchRecursive(m_fd, path, depth);
        } else if ((event->mask & removedDirectory) != 0) {
            CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Directory Removed: %s/%s",
                                          directoryBytes.constData(), name.constData());
            removeDirectoryFromWatch(path);
        } else {
            CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Directory changed: [%d] %s/%s",
                                          static_cast<int>(event->mask), directoryBytes.constData(),
                                          name.constData());
        }
    }
}

void FileMonitor::fileChanged(inotify_event* event)
{
    if ((event->mask & scannedEvents) == 0) {
        return;
    }
    const QString name = FileName::toText(nameOf(*event));
    scanFile(m_watches.pathOf(event->wd) + QLatin1Char('/') + name, name);
}

void FileMonitor::scanFile(const QString& filePath, const QString& fileName)
{
    if (!m_protectionConfig.isOnlineProtectionEnabled()) {
        return;
    }
    // The service's own writing must not have it scan without end, nor a browser's unfinished download fail.
    if (filePath.startsWith(Common::getLogsPath()) || filePath.startsWith(Common::getSettingsPath()) ||
        filePath.endsWith(QLatin1String(".part"))) {
        return;
    }
    const QByteArray pathBytes = FileName::toBytes(filePath);
    CLogger::getInstance()->Debug(__PRETTY_FUNCTION__, "Scanning file %s", pathBytes.constData());

    QString virusName;
    // Held until the answer is carried out: the path may lead to another file by then. And open, or its owner
    // could take a lease after the scan, and have the file removed without a copy.
    const HeldFile file = HeldFile::atAnyDepth(pathBytes);
    const UniqueFd reader = file.object().openForReading();
    const int result = m_scanManager->scanFile(filePath, file, virusName);
    const int error = errno;
    if (result == cannotOpen && error == EAGAIN) {
        keepForLater(pathBytes);
    } else {
        m_leasedFiles.remove(pathBytes);
    }
    if (result == 0) {
        return;
    }
    if (result != infected) {
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Error File Scanning | Error:%d | %s",
                                      result, pathBytes.constData());
        return;
    }
    CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Found infected file | Status:%d | %s", infected,
                                  pathBytes.constData());
    const int status = m_scanManager->cleanFile(filePath, file);
    CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Cleaned infected file | Status:%d | %s", status,
                                  pathBytes.constData());
    recordDetection(filePath, fileName, virusName, status);
    showDetection(filePath, fileName, virusName, status);
}

void FileMonitor::keepForLater(const QByteArray& path)
{
    if (!m_leasedFiles.add(path, LeasedFiles::Clock::now())) {
        CLogger::getInstance()->Info(__PRETTY_FUNCTION__,
                                     "Too many files under lease, not all are scanned again.");
    }
    if (!m_leaseTimer.isActive()) {
        m_leaseTimer.start(LeasedFiles::pause);
    }
}

void FileMonitor::scanWhatIsFree()
{
    // One a turn of the event loop: a thousand leases may end at once.
    const LeasedFiles::Clock::time_point began = LeasedFiles::Clock::now();
    const std::optional<QByteArray> free = m_leasedFiles.takeFree(began);
    // The tries, of which a user may have any number made, take no more than a part of the time.
    const LeasedFiles::Clock::duration rest = 4 * (LeasedFiles::Clock::now() - began);
    if (free) {
        scanFile(FileName::toText(*free), FileName::toText(free->mid(free->lastIndexOf('/') + 1)));
    }
    if (const std::optional<LeasedFiles::Clock::time_point> next = m_leasedFiles.nextDue()) {
        const LeasedFiles::Clock::duration left = std::max(*next - LeasedFiles::Clock::now(), rest);
        m_leaseTimer.start(std::chrono::ceil<std::chrono::milliseconds>(left));
    }
}

void FileMonitor::recordDetection(const QString& filePath, const QString& fileName, const QString& virusName,
                                  int status)
{
    VirusReport report;
    report.setFileName(FileName::toDisplay(fileName));
    report.setFilePath(FileName::toDisplay(filePath));
    report.setVirusName(virusName);
    report.setCleanStatus(status);
    report.setModuleName(moduleName());
    report.setModuleVersion(Common::getBuildDateTime());
    // The same moment as in local time, which would have to be found out: the store keeps no zone.
    report.setDateTime(QDateTime::currentDateTimeUtc());
    m_virusConfig.addVirusReport(report);
}

void FileMonitor::showDetection(const QString& filePath, const QString& fileName, const QString& virusName,
                                int status)
{
    // One by one, as the popup's readers know it: text that looks like a placeholder is filled in turn.
    const QString message =
        QStringLiteral("<b>File Name:</b> %1<br/><b>Virus Name:</b> %2<br/><b>Clean Status:</b> %3<br/>"
                       "<b>File Path:</b> %4")
            .arg(FileName::toDisplay(fileName))
            .arg(virusName)
            .arg(statusText(status))
            .arg(FileName::toDisplay(filePath));
    const QString closeAt = QString::fromStdString(LocalTime::after(popupTime).text());
    m_notify.showPopupToUser(QStringLiteral("Infected File Found"), message, QStringLiteral("4"),
                             Common::getIconsPath() + QStringLiteral("/ip_block.png"), QString(), QString(),
                             3, moduleName(), closeAt);
}
