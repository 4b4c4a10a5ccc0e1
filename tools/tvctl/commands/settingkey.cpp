#include "tvctl/commands/settingkey.h"

#include "platform/tvcore/iocscanconfig.h"
#include "platform/tvcore/protectionconfig.h"
#include "platform/tvcore/scanconfig.h"
#include "platform/tvcore/tvcore.h"

#include <algorithm>

using Place = SettingKey::Place;

namespace
{
int valueIn(const ScanSetting& setting, const SettingKey& key)
{
    return key.place == Place::ScanAction ? setting.getScanActionSetting() : int((setting.*key.get)());
}

void setValueIn(ScanSetting& setting, const SettingKey& key, int value)
{
    if (key.place == Place::ScanAction) {
        setting.setScanActionSetting(value);
    } else {
        (setting.*key.set)(value != 0);
    }
}

int valueIn(const IOCScanSettings& settings, const SettingKey& key)
{
    return key.place == Place::IocAction ? settings.getAction() : int(settings.getEnable());
}

void setValueIn(IOCScanSettings& settings, const SettingKey& key, int value)
{
    if (key.place == Place::IocAction) {
        settings.setAction(value);
    } else {
        settings.setEnable(value != 0);
    }
}
} // namespace

SettingKind SettingKey::kind() const
{
    switch (place) {
    case Place::ScanAction:
        return SettingKind::ScanAction;
    case Place::IocAction:
        return SettingKind::IocAction;
    default:
        return SettingKind::Switch;
    }
}

QVector<ReloadPart> SettingKey::reload() const
{
    switch (place) {
    case Place::Protection:
        // Read at each file event.
        return {};
    case Place::ScanAction:
    case Place::ScanSwitch:
        return {ReloadPart::Settings};
    default:
        return {ReloadPart::IocSettings};
    }
}

const QVector<SettingKey>& settingKeys()
{
    static const QVector<SettingKey> keys = {
        {"protection.realtime", "scan files when they change", Place::Protection},
        {"scan.action", "what happens to infected files: report or clean", Place::ScanAction},
        {"scan.archives", "look into archives", Place::ScanSwitch, &ScanSetting::isScanArchiveFilesEnabled,
         &ScanSetting::setScanArchiveFilesEnabled},
        {"scan.heuristics", "detect broken programs too", Place::ScanSwitch,
         &ScanSetting::isScanHeuristicEnabled, &ScanSetting::setScanHeuristicEnabled},
        {"scan.html", "look into HTML and XML", Place::ScanSwitch, &ScanSetting::isScanHTMLFilesEnabled,
         &ScanSetting::setScanHTMLFilesEnabled},
        {"scan.documents", "look into office documents", Place::ScanSwitch,
         &ScanSetting::isScanDOCFilesEnabled, &ScanSetting::setScanDOCFilesEnabled},
        {"scan.swf", "look into Flash files", Place::ScanSwitch, &ScanSetting::isScanSWFFilesEnabled,
         &ScanSetting::setScanSWFFilesEnabled},
        {"scan.pdf", "look into PDF files", Place::ScanSwitch, &ScanSetting::isScanPDFFilesEnabled,
         &ScanSetting::setScanPDFFilesEnabled},
        {"scan.memory-at-startup", "for other modules; not used by the service", Place::ScanSwitch,
         &ScanSetting::isScanMemoryAtStartupEnabled, &ScanSetting::setScanMemoryAtStartupEnabled},
        {"scan.show-report", "for other modules; not used by the service", Place::ScanSwitch,
         &ScanSetting::isShowReportAfterScanEnabled, &ScanSetting::setShowReportAfterScanEnabled},
        {"scan.show-errors", "for other modules; not used by the service", Place::ScanSwitch,
         &ScanSetting::isShowErrorFilesEnabled, &ScanSetting::setShowErrorFilesEnabled},
        {"scan.take-backup", "for other modules; the service always keeps a copy", Place::ScanSwitch,
         &ScanSetting::isTakeBackupOfFilesEnabled, &ScanSetting::setTakeBackupOfFilesEnabled},
        {"ioc.enabled", "look files up in the hash lists, on request", Place::IocEnabled},
        {"ioc.action", "what happens to listed files: allow, rename or delete", Place::IocAction},
    };
    return keys;
}

const SettingKey* settingKey(const QString& name)
{
    const QVector<SettingKey>& keys = settingKeys();
    const auto key = std::find_if(keys.begin(), keys.end(), [&name](const SettingKey& each) {
        return name == QLatin1String(each.name);
    });
    return key == keys.end() ? nullptr : &*key;
}

int storedValue(const SettingKey& key)
{
    switch (key.place) {
    case Place::Protection:
        return int(ProtectionConfig().isOnlineProtectionEnabled());
    case Place::ScanAction:
    case Place::ScanSwitch:
        return valueIn(ScanConfig().getScanSetting(), key);
    default:
        return valueIn(IOCScanConfig().getScanSettings(), key);
    }
}

std::optional<int> storeValue(const SettingKey& key, int value)
{
    int previous = 0;
    const auto change = [&key, &previous, value](auto& settings) {
        previous = valueIn(settings, key);
        setValueIn(settings, key, value);
    };
    bool isStored = false;
    switch (key.place) {
    case Place::Protection:
        previous = storedValue(key);
        isStored = TvCore::couldReadSettings() && ProtectionConfig().setOnlineProtectionEnabled(value != 0);
        break;
    case Place::ScanAction:
    case Place::ScanSwitch:
        isStored = ScanConfig().changeScanSetting(change);
        break;
    default:
        isStored = IOCScanConfig().changeScanSettings(change);
        break;
    }
    return isStored ? std::make_optional(previous) : std::nullopt;
}
