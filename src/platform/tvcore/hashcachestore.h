#pragma once

#include "platform/tvcore/fileiocinfo.h"
#include "platform/tvcore/store.h"

#include <QString>

/// The file of the hash cache. For the operations see IOCDatabaseConfig.
class HashCacheStore
{
public:
    HashCacheStore();

    /// Empty stands for the installation's own; see Store::setDirectory.
    void setDirectory(const QString& directory);
    void close();

    bool find(const QString& path, FileIOCInfo& info);
    bool add(const FileIOCInfo& info);
    bool update(const FileIOCInfo& info);
    qint64 count();
    bool clear();

private:
    Store m_store;
};
