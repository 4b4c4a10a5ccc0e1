#include "platform/tvcore/storefiles.h"

#include "common/filename.h"
#include "common/uniquefd.h"
#include "platform/tvcore/filestamp.h"

#include <QDateTime>
#include <QFileInfo>
#include <QLocale>

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
/// More names than that in one second are a loop, not bad luck.
constexpr int maxNamesPerSecond = 100;
const QLatin1String logSuffix("-wal");

/// Returns 0 or the error number; EEXIST when `to` is taken.
int renameWithoutReplacing(const QString& from, const QString& to)
{
    const QByteArray source = FileName::toBytes(from);
    const QByteArray target = FileName::toBytes(to);
    return ::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0
               ? 0
               : errno;
}
} // namespace

StoreError StoreFiles::ensureExists(const QString& path)
{
    const QByteArray name = FileName::toBytes(path);
    UniqueFd created(::open(name.constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownerOnly));
    if (created.isValid()) {
        return {};
    }
    const int error = errno;
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
    const QString date =
        QLocale::c().toString(QDateTime::currentDateTimeUtc(), QStringLiteral("yyyyMMdd'T'hhmmss'Z'"));
    const QString firstChoice = path + QStringLiteral(".corrupt-") + date;
    // The log goes first: once the database is away, another process may find a new one beside the old log.
    const std::array<QString, 3> suffixes = {logSuffix, QStringLiteral("-shm"), QString()};
    for (int number = 0; number < maxNamesPerSecond; ++number) {
        newPath = number == 0 ? firstChoice : QStringLiteral("%1-%2").arg(firstChoice).arg(number);
        int error = FileStamp::of(newPath).isMissing() ? 0 : EEXIST;
        for (auto suffix = suffixes.begin(); error == 0 && suffix != suffixes.end(); ++suffix) {
            error = renameWithoutReplacing(path + *suffix, newPath + *suffix);
            if (error == ENOENT && !suffix->isEmpty()) {
                error = 0;
            }
        }
        if (error == 0) {
            return {};
        }
        if (error != EEXIST) {
            return StoreError::ofErrno(newPath, error);
        }
    }
    return StoreError::ofErrno(newPath, EEXIST);
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
