#include "platform/tvcore/storefiles.h"

#include "common/filename.h"
#include "common/uniquefd.h"

#include <QDateTime>
#include <QFileInfo>
#include <QLocale>

#include <cerrno>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
const QLatin1String logSuffix("-wal");
const QLatin1String indexSuffix("-shm");

/// "<path>.<tag>-<date>", with a number added when something of that name is there already.
QString unusedName(const QString& path, const QString& tag)
{
    const QString date =
        QLocale::c().toString(QDateTime::currentDateTimeUtc(), QStringLiteral("yyyyMMdd'T'hhmmss'Z'"));
    const QString wanted = QStringLiteral("%1.%2-%3").arg(path, tag, date);
    QString name = wanted;
    const auto isUsed = [&name](const QString& suffix) {
        return FileStamp::of(name + suffix).error() == 0;
    };
    for (int number = 1; isUsed(QString()) || isUsed(logSuffix) || isUsed(indexSuffix); ++number) {
        name = QStringLiteral("%1-%2").arg(wanted).arg(number);
    }
    return name;
}

/// Returns 0 or the error number.
int renameWithoutReplacing(const QString& from, const QString& to)
{
    const QByteArray source = FileName::toBytes(from);
    const QByteArray target = FileName::toBytes(to);
    const int result =
        ::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE);
    return result == 0 ? 0 : errno;
}
} // namespace

StoreError StoreFiles::ensureExists(const QString& path)
{
    const QByteArray name = FileName::toBytes(path);
    UniqueFd created(::open(name.constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownerOnly));
    const int error = created.isValid() ? 0 : errno;
    if (error == 0) {
        return {};
    }
    const FileStamp present = FileStamp::of(path);
    // A file that is there and cannot be created over is the normal case; also on a read-only file system.
    if (present.isRegularFile()) {
        return {};
    }
    if (present.error() == 0) {
        return {StoreError::Unavailable, QStringLiteral("%1: not a regular file").arg(path)};
    }
    return StoreError::ofErrno(path, error);
}

StoreError StoreFiles::setAside(const QString& path, QString& newPath)
{
    newPath = unusedName(path, QStringLiteral("corrupt"));
    // The log goes first: once the database is away, SQLite may find a new one beside the old log.
    for (const QString& suffix : {QString(logSuffix), QString(indexSuffix), QString()}) {
        const int error = renameWithoutReplacing(path + suffix, newPath + suffix);
        if (error != 0 && (error != ENOENT || suffix.isEmpty())) {
            return StoreError::ofErrno(newPath, error);
        }
    }
    return {};
}

StoreFiles::Companions StoreFiles::Companions::of(const QString& path)
{
    return {FileStamp::of(path + logSuffix), FileStamp::of(path + indexSuffix)};
}

bool StoreFiles::moveLeftovers(const QString& path, const Companions& companions, QString& newPath)
{
    newPath = unusedName(path, QStringLiteral("replaced"));
    const Companions present = Companions::of(path);
    bool isMoved = false;
    if (present.log.isSameFile(companions.log)) {
        isMoved = renameWithoutReplacing(path + logSuffix, newPath + logSuffix) == 0;
    }
    if (present.index.isSameFile(companions.index)) {
        isMoved = renameWithoutReplacing(path + indexSuffix, newPath + indexSuffix) == 0 || isMoved;
    }
    return isMoved;
}

bool StoreFiles::isCompleteAndReadOnly(const QString& path)
{
    const QByteArray directory = FileName::toBytes(QFileInfo(path).path());
    return ::faccessat(AT_FDCWD, directory.constData(), W_OK, AT_EACCESS) != 0 && !hasLog(path);
}

bool StoreFiles::hasLog(const QString& path)
{
    return FileStamp::of(path + logSuffix).size() > 0;
}
