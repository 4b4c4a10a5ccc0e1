#pragma once

#include "platform/tvcore/iocscanconfig.h"
#include "platform/tvcore/iocscansettings.h"

#include <QString>

class IOCReportManager;
class IOCScanFile;

/// The front door of IOC scanning: settings, the match, what is done to a matching file, and its report.
///
/// Made and used on the main thread; takes no lock. The settings are read when it is made.
class IOCScanManager
{
public:
    static IOCScanManager* getInstance();
    /// Destroys the manager; a pointer from `getInstance` must not be used after it, one from a later call
    /// included.
    static void releaseInstance();

    IOCScanManager(const IOCScanManager&) = delete;
    IOCScanManager& operator=(const IOCScanManager&) = delete;

    /// Reads the settings, and the lists too when IOC scanning is on. Turning it off keeps the lists.
    void loadSettings();
    /// The same; always true.
    bool reloadSettings();
    /// Reads the lists anew, whether or not IOC scanning is on; always true.
    bool reloadDatabase();

    bool isDBLoaded();
    bool isDBLoading();

    /// 0: off, or no match, or a match under an action that is not known; 1: match, allowed; 2: match,
    /// renamed by an appended ".IOCOFF"; 3: match, deleted; 4: match, and renaming or deleting failed. On a
    /// match `hash` is set to what matched, and the report gets a record.
    int scanFile(const QString& path, QString& hash);

private:
    IOCScanManager();
    ~IOCScanManager() = default;

    static IOCScanManager* _instance;

    IOCScanFile* m_scanFile;
    IOCReportManager* m_report;
    IOCScanConfig m_iocConfig;
    IOCScanSettings m_settings;
};
