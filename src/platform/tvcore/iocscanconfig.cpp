#include "platform/tvcore/iocscanconfig.h"

#include "platform/tvcore/storeregistry.h"

namespace
{
HashListStore& lists()
{
    return StoreRegistry::instance().settings().hashLists();
}
} // namespace

IOCScanConfig::IOCScanConfig() = default;

IOCScanSettings IOCScanConfig::getScanSettings() const
{
    return StoreRegistry::instance().settings().iocScanSettings();
}

bool IOCScanConfig::setScanSettings(const IOCScanSettings& settings)
{
    return StoreRegistry::instance().settings().setIOCScanSettings(settings);
}

bool IOCScanConfig::changeScanSettings(const std::function<void(IOCScanSettings&)>& change)
{
    return StoreRegistry::instance().settings().changeIOCScanSettings(change);
}

QStringList IOCScanConfig::getHashList(HASH_TYPE type) const
{
    return lists().hashes(type);
}

HashIndex IOCScanConfig::getHashIndex(HASH_TYPE type) const
{
    return lists().index(type);
}

bool IOCScanConfig::setHashList(HASH_TYPE type, const QStringList& hashes)
{
    return lists().setHashes(type, hashes);
}

bool IOCScanConfig::clearHashList(HASH_TYPE type)
{
    return lists().setHashes(type, {});
}

int IOCScanConfig::addHashes(HASH_TYPE type, const QStringList& hashes)
{
    return lists().add(type, hashes);
}

int IOCScanConfig::removeHashes(HASH_TYPE type, const QStringList& hashes)
{
    return lists().remove(type, hashes);
}

int IOCScanConfig::getHashCount(HASH_TYPE type) const
{
    return lists().count(type);
}

bool IOCScanConfig::getHashes(HASH_TYPE type, QStringList& hashes, int from, int limit) const
{
    return lists().find(type, hashes, from, limit);
}
