#include "platform/tvcore/scanconfig.h"

#include "platform/tvcore/storeregistry.h"

ScanConfig::ScanConfig() = default;

ScanSetting ScanConfig::getScanSetting() const
{
    return StoreRegistry::instance().settings().scanSetting();
}

bool ScanConfig::setScanSetting(const ScanSetting& setting)
{
    return StoreRegistry::instance().settings().setScanSetting(setting);
}

bool ScanConfig::changeScanSetting(const std::function<void(ScanSetting&)>& change)
{
    return StoreRegistry::instance().settings().changeScanSetting(change);
}

QSet<QString> ScanConfig::getExcludeList(int list)
{
    return StoreRegistry::instance().settings().excludeList(list);
}

bool ScanConfig::setExcludeList(int list, const QSet<QString>& paths)
{
    return StoreRegistry::instance().settings().setExcludeList(list, paths);
}

bool ScanConfig::changeExcludeList(int list, const std::function<void(QSet<QString>&)>& change)
{
    return StoreRegistry::instance().settings().changeExcludeList(list, change);
}
