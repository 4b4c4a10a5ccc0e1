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

QSet<QString> ScanConfig::getExcludeList(int list)
{
    return StoreRegistry::instance().settings().excludeList(list);
}

bool ScanConfig::setExcludeList(int list, const QSet<QString>& paths)
{
    return StoreRegistry::instance().settings().setExcludeList(list, paths);
}
