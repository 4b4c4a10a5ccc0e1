#pragma once

#include "platform/tvcore/fileiocinfo.h"
#include "platform/tvcore/tvcoreexport.h"

#include <QString>
#include <QtGlobal>

/// Access to the cache of file hashes. Thread and opening: see TvCore.
///
/// The cache may be lost at any time, with the power for example: it spares work and is worth nothing else.
/// A record comes back as it was stored, a null text as a null text included. Looking up a record and
/// updating it takes a few tens of microseconds.
class TVCORE_EXPORT IOCDatabaseConfig
{
public:
    IOCDatabaseConfig();

    /// True when there is a record for exactly this path, which `info` then holds. False, with `info` left
    /// alone, when there is none or the store cannot be read.
    bool getFileIOCInfo(const QString& path, FileIOCInfo& info);
    /// Stores `info`, in place of a record of the same path if there is one. True when stored.
    bool addFileIOCInfo(FileIOCInfo& info);
    /// Rewrites the record of the same path. False when there is none or it cannot be stored.
    bool updateFileIOCInfo(FileIOCInfo& info);

    /// How many records there are; -1 when the store cannot be read.
    qint64 getFileIOCInfoCount() const;
    /// Removes all records. True when that is done.
    bool clearFileIOCInfo();
};
