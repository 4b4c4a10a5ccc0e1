#include "fakeiocstore.h"

#include "platform/tvcore/iocdatabaseconfig.h"
#include "platform/tvcore/iocscanconfig.h"

#include <cerrno>

IOCScanSettings FakeIocStore::settings;
int FakeIocStore::settingsRead = 0;
QStringList FakeIocStore::lists[3];
QList<int> FakeIocStore::listsRead;
std::function<void()> FakeIocStore::onListRead;
QHash<QString, FileIOCInfo> FakeIocStore::records;
QStringList FakeIocStore::cacheCalls;
int FakeIocStore::saveError = 0;

void FakeIocStore::reset()
{
    settings = IOCScanSettings();
    settingsRead = 0;
    for (QStringList& list : lists) {
        list.clear();
    }
    listsRead.clear();
    onListRead = nullptr;
    records.clear();
    cacheCalls.clear();
    saveError = 0;
}

IOCScanConfig::IOCScanConfig() = default;

IOCScanSettings IOCScanConfig::getScanSettings() const
{
    ++FakeIocStore::settingsRead;
    return FakeIocStore::settings;
}

HashIndex IOCScanConfig::getHashIndex(HASH_TYPE type) const
{
    FakeIocStore::listsRead.append(type);
    if (FakeIocStore::onListRead) {
        FakeIocStore::onListRead();
    }
    return HashIndex(FakeIocStore::lists[type]);
}

IOCDatabaseConfig::IOCDatabaseConfig() = default;

bool IOCDatabaseConfig::getFileIOCInfo(const QString& path, FileIOCInfo& info)
{
    FakeIocStore::cacheCalls.append(QStringLiteral("get ") + path);
    const auto record = FakeIocStore::records.constFind(path);
    if (record == FakeIocStore::records.constEnd()) {
        return false;
    }
    info = *record;
    return true;
}

bool IOCDatabaseConfig::addFileIOCInfo(FileIOCInfo& info)
{
    FakeIocStore::cacheCalls.append(QStringLiteral("add ") + info.getFilePath());
    errno = FakeIocStore::saveError;
    if (FakeIocStore::saveError != 0) {
        return false;
    }
    FakeIocStore::records.insert(info.getFilePath(), info);
    return true;
}

bool IOCDatabaseConfig::updateFileIOCInfo(FileIOCInfo& info)
{
    FakeIocStore::cacheCalls.append(QStringLiteral("update ") + info.getFilePath());
    errno = FakeIocStore::saveError;
    if (FakeIocStore::saveError != 0 || !FakeIocStore::records.contains(info.getFilePath())) {
        return false;
    }
    FakeIocStore::records.insert(info.getFilePath(), info);
    return true;
}
