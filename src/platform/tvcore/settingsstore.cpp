#include "platform/tvcore/settingsstore.h"

#include "platform/tvcore/storetext.h"

#include <QHash>

#include <algorithm>
#include <iterator>

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

bool readScanSetting(StoreConnection& connection, ScanSetting& setting)
{
    QHash<QString, int> stored;
    if (!connection.select(QStringLiteral("SELECT name, value FROM setting WHERE name GLOB 'scan.*'"), {},
                           [&stored](const StoreRow& row) {
                               stored.insert(QString::fromUtf8(row.bytes(0)),
                                             static_cast<int>(row.integer(1)));
                           })) {
        return false;
    }
    setting.setScanActionSetting(stored.value(actionName, setting.getScanActionSetting()));
    for (const ScanSwitch& each : scanSwitches) {
        (setting.*each.set)(stored.value(each.name, (setting.*each.get)() ? 1 : 0) != 0);
    }
    return true;
}

bool writeScanSetting(StoreConnection& connection, const ScanSetting& setting)
{
    return storeSetting(connection, actionName, setting.getScanActionSetting()) &&
           std::all_of(std::begin(scanSwitches), std::end(scanSwitches),
                       [&connection, &setting](const ScanSwitch& each) {
                           return storeSetting(connection, each.name, (setting.*each.get)() ? 1 : 0);
                       });
}

bool readExcludeList(StoreConnection& connection, int list, QSet<QString>& paths)
{
    bool wasEverSet = false;
    QSet<QString> stored;
    // One statement, so that the list is not seen half changed. A list without entries gives one row.
    const bool isRead =
        connection.select(QStringLiteral("SELECT path IS NOT NULL, CAST(path AS BLOB) FROM exclude_list "
                                         "LEFT JOIN exclude_entry USING(list) WHERE exclude_list.list = ?"),
                          {list}, [&wasEverSet, &stored](const StoreRow& row) {
                              wasEverSet = true;
                              if (row.integer(0) != 0) {
                                  stored.insert(StoreText::fromFetched(row.bytes(1)));
                              }
                          });
    if (isRead && wasEverSet) {
        paths = stored;
    }
    return isRead;
}

bool writeExcludeList(StoreConnection& connection, int list, const QSet<QString>& paths)
{
    if (!connection.execute(QStringLiteral("INSERT OR IGNORE INTO exclude_list(list) VALUES(?)"), {list}) ||
        !connection.execute(QStringLiteral("DELETE FROM exclude_entry WHERE list = ?"), {list})) {
        return false;
    }
    return std::all_of(paths.cbegin(), paths.cend(), [&connection, list](const QString& path) {
        // Two texts may stand for the same bytes.
        return connection.execute(
            QStringLiteral("INSERT OR IGNORE INTO exclude_entry(list, path) VALUES(?, CAST(? AS TEXT))"),
            {list, StoreText::toBound(path)});
    });
}

bool readIOCScanSettings(StoreConnection& connection, IOCScanSettings& settings)
{
    return connection.select(QStringLiteral("SELECT name, value FROM setting WHERE name GLOB 'ioc.*'"), {},
                             [&settings](const StoreRow& row) {
                                 const QString name = QString::fromUtf8(row.bytes(0));
                                 if (name == iocEnableName) {
                                     settings.setEnable(row.integer(1) != 0);
                                 } else if (name == iocActionName) {
                                     settings.setAction(static_cast<int>(row.integer(1)));
                                 }
                             });
}

bool writeIOCScanSettings(StoreConnection& connection, const IOCScanSettings& settings)
{
    return storeSetting(connection, iocEnableName, settings.getEnable() ? 1 : 0) &&
           storeSetting(connection, iocActionName, settings.getAction());
}

auto readerOf(int list)
{
    return [list](StoreConnection& connection, QSet<QString>& paths) {
        return readExcludeList(connection, list, paths);
    };
}

auto writerOf(int list)
{
    return [list](StoreConnection& connection, const QSet<QString>& paths) {
        return writeExcludeList(connection, list, paths);
    };
}

/// `last` with what the file holds of it now; `last` itself when the file cannot be read.
template <typename Value, typename Read> Value readFrom(Store& store, Value& last, const Read& read)
{
    Value value;
    if (store.read([&last, &value, &read](StoreConnection& connection) {
            value = last;
            return read(connection, value);
        })) {
        last = value;
    }
    return last;
}

/// Stores what `change` makes of `last` with what the file holds of it. Nobody else writes in between.
template <typename Value, typename Change, typename Read, typename Write>
bool changeIn(Store& store, Value& last, const Change& change, const Read& read, const Write& write)
{
    Value value;
    const bool isStored = store.write(
        [&last, &value, &change, &read, &write](StoreConnection& connection) {
            value = last;
            if (!read(connection, value)) {
                return false;
            }
            change(value);
            return write(connection, value);
        },
        Store::Patience::Long);
    if (isStored) {
        last = value;
    }
    return isStored;
}

/// Stores `value`, whatever the file holds.
template <typename Value, typename Write>
bool writeTo(Store& store, Value& last, const Value& value, const Write& write)
{
    const bool isStored =
        store.write([&value, &write](StoreConnection& connection) { return write(connection, value); },
                    Store::Patience::Long);
    if (isStored) {
        last = value;
    }
    return isStored;
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
    return readFrom(m_store, m_last.scanSetting, readScanSetting);
}

bool SettingsStore::setScanSetting(const ScanSetting& setting)
{
    return writeTo(m_store, m_last.scanSetting, setting, writeScanSetting);
}

bool SettingsStore::changeScanSetting(const std::function<void(ScanSetting&)>& change)
{
    return changeIn(m_store, m_last.scanSetting, change, readScanSetting, writeScanSetting);
}

QSet<QString> SettingsStore::excludeList(int list)
{
    return isExcludeList(list) ? readFrom(m_store, lastExcludeList(list), readerOf(list)) : QSet<QString>();
}

bool SettingsStore::setExcludeList(int list, const QSet<QString>& paths)
{
    return isExcludeList(list) && writeTo(m_store, lastExcludeList(list), paths, writerOf(list));
}

bool SettingsStore::changeExcludeList(int list, const std::function<void(QSet<QString>&)>& change)
{
    return isExcludeList(list) &&
           changeIn(m_store, lastExcludeList(list), change, readerOf(list), writerOf(list));
}

bool SettingsStore::isExcludeList(int list)
{
    return list >= 0 && list < excludeListCount;
}

QSet<QString>& SettingsStore::lastExcludeList(int list)
{
    return m_last.excludeLists[static_cast<std::size_t>(list)];
}

bool SettingsStore::isOnlineProtectionEnabled()
{
    m_store.read([this](StoreConnection& connection) {
        return connection.select(
            QStringLiteral("SELECT value FROM setting WHERE name = 'protection.online'"), {},
            [this](const StoreRow& row) { m_last.isOnlineProtectionEnabled = row.integer(0) != 0; });
    });
    return m_last.isOnlineProtectionEnabled;
}

bool SettingsStore::setOnlineProtectionEnabled(bool enabled)
{
    return writeTo(m_store, m_last.isOnlineProtectionEnabled, enabled,
                   [](StoreConnection& connection, bool value) {
                       return storeSetting(connection, onlineProtectionName, value ? 1 : 0);
                   });
}

IOCScanSettings SettingsStore::iocScanSettings()
{
    return readFrom(m_store, m_last.iocScanSettings, readIOCScanSettings);
}

bool SettingsStore::setIOCScanSettings(const IOCScanSettings& settings)
{
    return writeTo(m_store, m_last.iocScanSettings, settings, writeIOCScanSettings);
}

bool SettingsStore::changeIOCScanSettings(const std::function<void(IOCScanSettings&)>& change)
{
    return changeIn(m_store, m_last.iocScanSettings, change, readIOCScanSettings, writeIOCScanSettings);
}
