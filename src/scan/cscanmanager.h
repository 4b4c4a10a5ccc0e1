#pragma once

#include "platform/tvcore/scanconfig.h"

#include <QString>

class CScanFile;
class ExcludeSettings;
class HeldFile;
class ScanSettings;

/// The front door of signature scanning: settings, exclusions, scans, and the clean of an infected file.
///
/// Made and used on the main thread; takes no lock. The settings and exclusions are loaded when it is made.
class CScanManager
{
public:
    static CScanManager* getInstance();
    /// Destroys the manager; a pointer from `getInstance` must not be used after it, one from a later call
    /// included.
    static void releaseInstance();

    CScanManager(const CScanManager&) = delete;
    CScanManager& operator=(const CScanManager&) = delete;

    /// Copies the stored scan settings into ScanSettings.
    void loadSettings();
    /// Reads settings and exclusions anew; always true.
    bool reloadSettings();
    /// Builds the engine anew from the database directory.
    bool reloadDatabase();

    bool isDBLoaded();
    bool isDBLoading();

    /// 0 clean or excluded, 1 a signature matched (`virusName` is set), else libclamav's error code.
    int scanFile(const QString& path, QString& virusName);
    /// The same for the `file` at `path` that is held already.
    int scanFile(const QString& path, const HeldFile& file, QString& virusName);
    /// The same for a text; nothing is excluded.
    int scanUrl(const QString& url, QString& virusName);

    /// Puts a copy of the file into quarantine, under a name made of the time and the path's MD5. True when
    /// it is whole and on disk; otherwise errno tells why.
    bool takebackupOfFile(const QString& path) const;

    /// Quarantines and removes the file. -1: report-only, nothing done; 0: removed, whatever became of the
    /// copy; 1: not removed, `getLastError` tells why. A copy that is given up because the process ends is
    /// the one whose failure keeps the file.
    int cleanFile(const QString& path);
    /// The same for the `file` at `path` that was held and scanned before: no other is copied or removed,
    /// whatever the path leads to by now.
    int cleanFile(const QString& path, const HeldFile& file);

    /// The QFileDevice::FileError of the last failed removal; 0 when none failed yet.
    int getLastError();

private:
    CScanManager();
    static bool takeBackup(const QString& path, const HeldFile& file);
    ~CScanManager() = default;

    static CScanManager* _instance;

    CScanFile* m_scanFile;
    ScanSettings* m_settings;
    ExcludeSettings* m_excludes;
    ScanConfig m_scanConfig;
    int m_lastError;
};
