#include "fakescanconfig.h"

#include "platform/tvcore/scanconfig.h"

ScanSetting FakeScanConfig::setting;
QHash<int, QSet<QString>> FakeScanConfig::excludeLists;
int FakeScanConfig::settingReads = 0;
QVector<int> FakeScanConfig::listReads;

void FakeScanConfig::reset()
{
    setting = ScanSetting();
    excludeLists.clear();
    settingReads = 0;
    listReads.clear();
}

ScanConfig::ScanConfig() = default;

ScanSetting ScanConfig::getScanSetting() const
{
    ++FakeScanConfig::settingReads;
    return FakeScanConfig::setting;
}

QSet<QString> ScanConfig::getExcludeList(int list)
{
    FakeScanConfig::listReads.append(list);
    return FakeScanConfig::excludeLists.value(list);
}
