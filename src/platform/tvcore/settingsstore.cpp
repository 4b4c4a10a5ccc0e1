#include "platform/tvcore/settingsstore.h"

#include "platform/tvcore/storetext.h"

#include <QHash>

namespace
{
const QLatin1String actionName("scan.action");
const QLatin1String onlineProtectionName("protection.online");
const QLatin1String iocEnableName("ioc.enable");
const QLatin1String iocActionName("ioc.action");

struct ScanSwitch
{
    QLatin1String name;
    bool (ScanSetting::*get)() const;
    void (ScanSetting::*set)(bool);
};

const ScanSwitch scanSwitches[] = {
    {QLatin1String("scan.archive_files"), &ScanSetting::isScanArchiveFilesEnabled,
     &ScanSetting::setScanArchiveFilesEnabled},
    {QLatin1String("scan.heuristic"), &ScanSetting::isScanHeuristicEnabled,
     &ScanSetting::setScanHeuristicEnabled},
    {QLatin1String("scan.html_files"), &ScanSetting::isScanHTMLFilesEnabled,
     &ScanSetting::setScanHTMLFilesEnabled},
    {QLatin1String("scan.doc_files"), &ScanSetting::isScanDOCFilesEnabled,
     &ScanSetting::setScanDOCFilesEnabled},
    {QLatin1String("scan.swf_files"), &ScanSetting::isScanSWFFilesEnabled,
     &ScanSetting::setScanSWFFilesEnabled},
    {QLatin1String("scan.pdf_files"), &ScanSetting::isScanPDFFilesEnabled,
     &ScanSetting::setScanPDFFilesEnabled},
    {QLatin1String("scan.memory_at_startup"), &ScanSetting::isScanMemoryAtStartupEnabled,
     &ScanSetting::setScanMemoryAtStartupEnabled},
    {QLatin1String("scan.show_report_after_scan"), &ScanSetting::isShowReportAfterScanEnabled,
     &ScanSetting::setShowReportAfterScanEnabled},
    {QLatin1String("scan.show_error_files"), &ScanSetting::isShowErrorFilesEnabled,
     &ScanSetting::setShowErrorFilesEnabled},
    {QLatin1String("scan.take_backup_of_files"), &ScanSetting::isTakeBackupOfFilesEnabled,
     &ScanSetting::setTakeBackupOfFilesEnabled},
};

bool storeSetting(StoreConnection& connection, const QString& name, int value)
{
    return connection.execute(QStringLiteral("INSERT INTO setting(name, value) VALUES(?, ?) "
                                             "ON CONFLICT(name) DO UPDATE SET value = excluded.value"),
                              {name, value});
}
} // namespace

SettingsStore::SettingsStore() : m_store(StoreSchema::settings()), m_hashLists(m_store)
{
}

void SettingsStore::setDirectory(const QString& directory)
{
    m_store.setDirectory(directory);
    m_last = {};
    m_hashLists.forget();
}

void SettingsStore::close()
{
    m_store.close();
}

ScanSetting SettingsStore::scanSetting()
{
    QHash<QString, int> stored;
    const bool isRead = m_store.read([&stored](StoreConnection& connection) {
        stored.clear();
        return connection.select(QStringLiteral("SELECT name, value FROM setting WHERE name GLOB 'scan.*'"),
                                 {}, [&stored](const QSqlQuery& row) {
                                     stored.insert(row.value(0).toString(), row.value(1).toInt());
                                 });
    });
    if (isRead) {
        ScanSetting& setting = m_last.scanSetting;
        setting.setScanActionSetting(stored.value(actionName, setting.getScanActionSetting()));
        for (const ScanSwitch& each : scanSwitches) {
            (setting.*each.set)(stored.value(each.name, (setting.*each.get)() ? 1 : 0) != 0);
        }
    }
    return m_last.scanSetting;
}

bool SettingsStore::setScanSetting(const ScanSetting& setting)
{
    const bool isStored = m_store.write(
        [&setting](StoreConnection& connection) {
            if (!storeSetting(connection, actionName, setting.getScanActionSetting())) {
                return false;
            }
            for (const ScanSwitch& each : scanSwitches) {
                if (!storeSetting(connection, each.name, (setting.*each.get)() ? 1 : 0)) {
                    return false;
                }
            }
            return true;
        },
        Store::Patience::Long);
    if (isStored) {
        m_last.scanSetting = setting;
    }
    return isStored;
}

QSet<QString> SettingsStore::excludeList(int list)
{
    if (list < 0 || list >= excludeListCount) {
        return {};
    }
    bool wasEverSet = false;
    QSet<QString> paths;
    const bool isRead = m_store.read([list, &wasEverSet, &paths](StoreConnection& connection) {
        wasEverSet = false;
        paths.clear();
        // One statement, so that the list is not seen half changed. A list without entries gives one row.
        return connection.select(
            QStringLiteral("SELECT path IS NOT NULL, CAST(path AS BLOB) FROM exclude_list "
                           "LEFT JOIN exclude_entry USING(list) WHERE exclude_list.list = ?"),
            {list}, [&wasEverSet, &paths](const QSqlQuery& row) {
                wasEverSet = true;
                if (row.value(0).toBool()) {
                    paths.insert(StoreText::fromFetched(row.value(1).toByteArray()));
                }
            });
    });
    QSet<QString>& last = m_last.excludeLists[static_cast<std::size_t>(list)];
    if (isRead && wasEverSet) {
        last = paths;
    }
    return last;
}

bool SettingsStore::setExcludeList(int list, const QSet<QString>& paths)
{
    if (list < 0 || list >= excludeListCount) {
        return false;
    }
    const bool isStored = m_store.write(
        [list, &paths](StoreConnection& connection) {
            if (!connection.execute(QStringLiteral("INSERT OR IGNORE INTO exclude_list(list) VALUES(?)"),
                                    {list}) ||
                !connection.execute(QStringLiteral("DELETE FROM exclude_entry WHERE list = ?"), {list})) {
                return false;
            }
            for (const QString& path : paths) {
                // Two texts may stand for the same bytes.
                if (!connection.execute(
                        QStringLiteral(
                            "INSERT OR IGNORE INTO exclude_entry(list, path) VALUES(?, CAST(? AS TEXT))"),
                        {list, StoreText::toBound(path)})) {
                    return false;
                }
            }
            return true;
        },
        Store::Patience::Long);
    if (isStored) {
        m_last.excludeLists[static_cast<std::size_t>(list)] = paths;
    }
    return isStored;
}

bool SettingsStore::isOnlineProtectionEnabled()
{
    m_store.read([this](StoreConnection& connection) {
        return connection.select(
            QStringLiteral("SELECT value FROM setting WHERE name = 'protection.online'"), {},
            [this](const QSqlQuery& row) { m_last.isOnlineProtectionEnabled = row.value(0).toInt() != 0; });
    });
    return m_last.isOnlineProtectionEnabled;
}

bool SettingsStore::setOnlineProtectionEnabled(bool enabled)
{
    const bool isStored = m_store.write(
        [enabled](StoreConnection& connection) {
            return storeSetting(connection, onlineProtectionName, enabled ? 1 : 0);
        },
        Store::Patience::Long);
    if (isStored) {
        m_last.isOnlineProtectionEnabled = enabled;
    }
    return isStored;
}

IOCScanSettings SettingsStore::iocScanSettings()
{
    IOCScanSettings settings;
    const bool isRead = m_store.read([this, &settings](StoreConnection& connection) {
        settings = m_last.iocScanSettings;
        return connection.select(QStringLiteral("SELECT name, value FROM setting WHERE name GLOB 'ioc.*'"),
                                 {}, [&settings](const QSqlQuery& row) {
                                     const QString name = row.value(0).toString();
                                     if (name == iocEnableName) {
                                         settings.setEnable(row.value(1).toInt() != 0);
                                     } else if (name == iocActionName) {
                                         settings.setAction(row.value(1).toInt());
                                     }
                                 });
    });
    if (isRead) {
        m_last.iocScanSettings = settings;
    }
    return m_last.iocScanSettings;
}

bool SettingsStore::setIOCScanSettings(const IOCScanSettings& settings)
{
    const bool isStored = m_store.write(
        [&settings](StoreConnection& connection) {
            return storeSetting(connection, iocEnableName, settings.getEnable() ? 1 : 0) &&
                   storeSetting(connection, iocActionName, settings.getAction());
        },
        Store::Patience::Long);
    if (isStored) {
        m_last.iocScanSettings = settings;
    }
    return isStored;
}
