#pragma once

#include "platform/tvcore/scanconfig.h"

#include <QSet>
#include <QString>

/// The user's exclusion lists in memory.
///
/// Entries are whole paths, compared exactly. Made and used on the main thread; loaded when made.
class ExcludeSettings
{
public:
    static ExcludeSettings* getInstance();
    static void releaseInstance();

    ExcludeSettings(const ExcludeSettings&) = delete;
    ExcludeSettings& operator=(const ExcludeSettings&) = delete;

    /// Replaces the lists by those of the store.
    void load();
    void reloadExcludes();

    /// True for a listed file and for every quarantine copy ("*.tvq"), wherever it lies. A file is not
    /// excluded by its directory being listed.
    bool isFileExcluded(const QString& path);
    /// True for a listed directory, "/proc" and "/sys", not for what lies below. For directory walkers;
    /// the service itself asks this nowhere.
    bool isDirectoryExcluded(const QString& path);

private:
    ExcludeSettings();
    ~ExcludeSettings() = default;

    static ExcludeSettings* _instance;

    QSet<QString> m_files;
    QSet<QString> m_directories;
    // Kept for the suite's settings model; nothing in this service asks for it.
    QSet<QString> m_others;
    ScanConfig m_scanConfig;
};
