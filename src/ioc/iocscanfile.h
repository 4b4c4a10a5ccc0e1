#pragma once

#include "platform/tvcore/hashindex.h"
#include "platform/tvcore/iocdatabaseconfig.h"
#include "platform/tvcore/iocscanconfig.h"

#include <QCryptographicHash>
#include <QString>

class FileIOCInfo;
class HeldFile;

/// Tells whether a file's content is on the lists of known-bad hashes.
///
/// The hashes of a file are kept in the store's cache; while its size and modification time stay as they are,
/// it is not read again. Lives on the main thread; takes no lock.
class IOCScanFile
{
public:
    static IOCScanFile* getInstance();
    static void releaseInstance();

    IOCScanFile(const IOCScanFile&) = delete;
    IOCScanFile& operator=(const IOCScanFile&) = delete;

    /// Reads the three lists from the store; always true.
    bool loadDatabases();
    /// The same.
    bool reloadDatabases();

    /// True once the lists were read, and from then on.
    bool isDBLoaded();
    bool isDBLoading();

    /// Lower-case hexadecimal digest of the file's content; empty when it cannot be read or is no regular
    /// file. Reads the file on every call.
    QString getHashOfFile(const QString& path, QCryptographicHash::Algorithm algorithm);

    /// 1, 2 or 3: the file's MD5, SHA-1 or SHA-256 is listed and put into `hash`; the first in this order
    /// counts. 0: none is, `hash` is unchanged. A file that cannot be read has empty hashes.
    int scanFile(const QString& path, QString& hash);
    /// The same for the `file` at `path` that is held already.
    int scanFile(const QString& path, const HeldFile& file, QString& hash);

private:
    IOCScanFile() = default;
    ~IOCScanFile() = default;

    /// Fills in size, dates and hashes of the file that can be reached at `path`. False when it could not be
    /// read for a reason that passes.
    static bool readFile(const QString& path, FileIOCInfo& info);

    static IOCScanFile* _instance;

    bool m_dbLoading = false;
    bool m_dbLoaded = false;
    IOCDatabaseConfig m_hashCache;
    IOCScanConfig m_iocConfig;
    HashIndex m_md5List;
    HashIndex m_sha1List;
    HashIndex m_sha256List;
};
