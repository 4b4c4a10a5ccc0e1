#include "platform/tvcore/iocdatabaseconfig.h"

#include "platform/tvcore/storeregistry.h"

IOCDatabaseConfig::IOCDatabaseConfig() = default;

bool IOCDatabaseConfig::getFileIOCInfo(const QString& path, FileIOCInfo& info)
{
    return StoreRegistry::instance().hashCache().find(path, info);
}

bool IOCDatabaseConfig::addFileIOCInfo(FileIOCInfo& info)
{
    return StoreRegistry::instance().hashCache().add(info);
}

bool IOCDatabaseConfig::updateFileIOCInfo(FileIOCInfo& info)
{
    return StoreRegistry::instance().hashCache().update(info);
}

qint64 IOCDatabaseConfig::getFileIOCInfoCount() const
{
    return StoreRegistry::instance().hashCache().count();
}

bool IOCDatabaseConfig::clearFileIOCInfo()
{
    return StoreRegistry::instance().hashCache().clear();
}
