#include "ioc/iocscanfile.h"

#include "common/abandonablework.h"
#include "common/filename.h"
#include "common/heldfile.h"
#include "digest/filedigests.h"
#include "logger/clogger.h"
#include "platform/tvcore/fileiocinfo.h"

#include <QDateTime>
#include <QFileInfo>

#include <cerrno>

#include <sys/stat.h>

using LOGGER::CLogger;

namespace
{
/// As QFileInfo tells it, which has no time for the very moment that 0 stands for.
QDateTime modifiedAt(const struct stat& status)
{
    const qint64 milliseconds =
        static_cast<qint64>(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000;
    return milliseconds == 0 ? QDateTime() : QDateTime::fromMSecsSinceEpoch(milliseconds, Qt::UTC);
}

/// Whether the file at `path` still has the size and time of the record `info`.
bool isUnchanged(const FileIOCInfo& info, const QString& path, const CheckedFile& object)
{
    if (object.kind() == CheckedFile::Kind::Missing) {
        // It could not be held, which does not mean that it is not there.
        const QFileInfo file(path);
        return info.getFileModDate() == file.lastModified() && info.getFileSize() == file.size();
    }
    return info.getFileSize() == object.status().st_size &&
           info.getFileModDate() == modifiedAt(object.status());
}
} // namespace

IOCScanFile* IOCScanFile::_instance = nullptr;

IOCScanFile* IOCScanFile::getInstance()
{
    if (_instance == nullptr) {
        _instance = new IOCScanFile;
    }
    return _instance;
}

void IOCScanFile::releaseInstance()
{
    delete _instance;
    _instance = nullptr;
}

bool IOCScanFile::loadDatabases()
{
    m_dbLoading = true;
    m_md5List = m_iocConfig.getHashIndex(IOCScanConfig::MD5);
    m_sha1List = m_iocConfig.getHashIndex(IOCScanConfig::SHA1);
    m_sha256List = m_iocConfig.getHashIndex(IOCScanConfig::SHA256);
    m_dbLoaded = true;
    m_dbLoading = false;
    return true;
}

bool IOCScanFile::reloadDatabases()
{
    return loadDatabases();
}

bool IOCScanFile::isDBLoaded()
{
    return m_dbLoaded;
}

bool IOCScanFile::isDBLoading()
{
    return m_dbLoading;
}

QString IOCScanFile::getHashOfFile(const QString& path, QCryptographicHash::Algorithm algorithm)
{
    return digestsOfFile(FileName::toBytes(path), {algorithm}).hex.first();
}

bool IOCScanFile::readFile(const QString& path, FileIOCInfo& info)
{
    // Looked at before it is read: what is written meanwhile moves the time on, and is hashed the next time.
    const QFileInfo file(path);
    info.setFileSize(file.size());
    info.setFileCreateDate(file.birthTime());
    info.setFileModDate(file.lastModified());
    // The three from one reading, so that they speak of the same content.
    const FileDigests digests = [&path] {
        const AbandonableWork work;
        return digestsOfFile(FileName::toBytes(path),
                             {QCryptographicHash::Md5, QCryptographicHash::Sha1, QCryptographicHash::Sha256});
    }();
    info.setFileMD5(digests.hex.at(0));
    info.setFileSHA1(digests.hex.at(1));
    info.setFileSHA256(digests.hex.at(2));
    return digests.lasting;
}

int IOCScanFile::scanFile(const QString& path, QString& hash)
{
    return scanFile(path, HeldFile(FileName::toBytes(path)), hash);
}

int IOCScanFile::scanFile(const QString& path, const HeldFile& held, QString& hash)
{
    // By way of its descriptor: the path may lead to another file by now.
    const bool isMissing = held.object().kind() == CheckedFile::Kind::Missing;
    const QString object = isMissing ? path : FileName::toText(held.object().path());
    FileIOCInfo info;
    info.setFilePath(QFileInfo(path).absoluteFilePath());
    // By the path as it came: one that is not absolute and clean is never found, and hashed every time.
    const bool known = m_hashCache.getFileIOCInfo(path, info);
    const bool unchanged = known && isUnchanged(info, path, held.object());
    // An answer that holds for this moment only must not be kept: a listed file would be clean for ever.
    const bool worthKeeping = unchanged || readFile(object, info);
    info.setFileSign(QStringLiteral("-"));
    if (worthKeeping) {
        const bool saved = known ? m_hashCache.updateFileIOCInfo(info) : m_hashCache.addFileIOCInfo(info);
        const int error = errno;
        if (!saved) {
            CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Failed to save file hashes!");
        }
    }

    if (m_md5List.contains(info.getFileMD5())) {
        hash = info.getFileMD5();
        return 1;
    }
    if (m_sha1List.contains(info.getFileSHA1())) {
        hash = info.getFileSHA1();
        return 2;
    }
    if (m_sha256List.contains(info.getFileSHA256())) {
        hash = info.getFileSHA256();
        return 3;
    }
    return 0;
}
