#pragma once

#include "common/owndevices.h"
#include "monitor/leasedfiles.h"
#include "monitor/watchedpaths.h"
#include "platform/tvcore/protectionconfig.h"
#include "platform/tvcore/virusconfig.h"
#include "platform/tvnotify/tvnotify.h"

#include <QObject>
#include <QString>
#include <QTimer>

class CScanManager;
class QSocketNotifier;
struct inotify_event;

/// Watches "/home" and "/media" and scans every file that is created, changed or moved there.
///
/// Lives on the thread that runs the event loop, and does all its work there: while a file is scanned, the
/// next events wait in the kernel. File names are FileName's text, so that any name survives.
class FileMonitor : public QObject
{
    Q_OBJECT

public:
    FileMonitor();
    /// The inotify descriptor is left to the end of the process.
    ~FileMonitor() override = default;

    /// Opens inotify and watches the two roots. False only when inotify itself cannot be opened: a root
    /// that cannot be watched is logged and passed over. To be called once.
    bool startMonitoring();

    /// Watches the directory `path` and those below it, five levels in all when `depth` is 0. Links and
    /// hidden directories are passed over. `depth` is the same after the call as before.
    void addToWatchRecursive(int fd, const QString& path, int& depth);
    /// The same for a directory that appeared while monitoring.
    void addNewDirToWatchRecursive(int fd, const QString& path, int& depth);
    /// Forgets `path` and every directory whose path starts with that text. The kernel's watches stay.
    void removeDirectoryFromWatch(const QString& path);

    /// Reads one buffer of events and handles each.
    void onActivated();
    /// Scans the file that `event`, one of a file, tells of.
    void fileChanged(inotify_event* event);
    /// Scans `filePath`, whose last component is `fileName`; cleans it, records it and tells the user when
    /// it is infected. A file under another program's lease is scanned once more after the lease's end.
    void scanFile(const QString& filePath, const QString& fileName);

private:
    struct Walk;
    struct Step;
    /// Both walks.
    void walk(Walk walk, const QString& path, int& depth);
    void visit(Walk& walk, Step& step, int& depth);
    /// Watches the directory of `step`, and finds what is below it. Returns 0, or the error number when it
    /// cannot be watched.
    int watch(Walk& walk, Step& step, int depth);
    /// Has the file scanned again when the lease that kept it from being opened has ended.
    void keepForLater(const QByteArray& path);
    void scanWhatIsFree();
    void recordDetection(const QString& filePath, const QString& fileName, const QString& virusName,
                         int status);
    void showDetection(const QString& filePath, const QString& fileName, const QString& virusName,
                       int status);

    const OwnDevices m_ownDevices;
    QSocketNotifier* m_notifier = nullptr;
    int m_fd = -1;
    WatchedPaths m_watches;
    CScanManager* m_scanManager;
    VirusConfig m_virusConfig;
    Tvnotify m_notify;
    ProtectionConfig m_protectionConfig;
    LeasedFiles m_leasedFiles;
    QTimer m_leaseTimer;
};
