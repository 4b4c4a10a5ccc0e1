#pragma once

#include "platform/tvcore/hashliststore.h"
#include "platform/tvcore/iocscansettings.h"
#include "platform/tvcore/scansetting.h"
#include "platform/tvcore/store.h"

#include <QSet>
#include <QString>

#include <array>
#include <functional>

/// The settings file, and what was last read from it or written to it.
///
/// A value that is not in the file (nobody ever set it, or a damaged file was started anew) answers like one
/// that cannot be read: a damaged file must not turn "report only" into deleting.
class SettingsStore
{
public:
    SettingsStore();

    /// Empty stands for the installation's own; see Store::setDirectory. Forgets what was read.
    void setDirectory(const QString& directory);
    void close();
    /// See TvCore::couldReadSettings.
    bool couldRead() const
    {
        return m_store.couldRead();
    }

    ScanSetting scanSetting();
    bool setScanSetting(const ScanSetting& setting);
    bool changeScanSetting(const std::function<void(ScanSetting&)>& change);
    QSet<QString> excludeList(int list);
    bool setExcludeList(int list, const QSet<QString>& paths);
    bool changeExcludeList(int list, const std::function<void(QSet<QString>&)>& change);
    bool isOnlineProtectionEnabled();
    bool setOnlineProtectionEnabled(bool enabled);
    IOCScanSettings iocScanSettings();
    bool setIOCScanSettings(const IOCScanSettings& settings);
    bool changeIOCScanSettings(const std::function<void(IOCScanSettings&)>& change);
    HashListStore& hashLists()
    {
        return m_hashLists;
    }

private:
    static constexpr int excludeListCount = 3;
    struct Values
    {
        ScanSetting scanSetting;
        std::array<QSet<QString>, excludeListCount> excludeLists;
        bool isOnlineProtectionEnabled = true;
        IOCScanSettings iocScanSettings;
    };

    static bool isExcludeList(int list);
    QSet<QString>& lastExcludeList(int list);

    Store m_store;
    HashListStore m_hashLists;
    Values m_last;
};
