#include "tvctl/scanner/pathtrust.h"

#include "common/filename.h"
#include "common/uniquefd.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
QString problemOf(const struct stat& status, const QByteArray& path)
{
    const QString directory = FileName::toText(path);
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        return QStringLiteral("%1 belongs to somebody else, who could have another file in its place")
            .arg(directory);
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return QStringLiteral("others may write in %1 and could have another file in its place")
            .arg(directory);
    }
    return {};
}
} // namespace

QString distrustOf(const QByteArray& path)
{
    constexpr int flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    UniqueFd directory(::open("/", flags));
    for (int slash = 0; slash >= 0;) {
        struct stat status = {};
        const QByteArray here = slash == 0 ? QByteArray("/") : path.left(slash);
        if (!directory.isValid() || ::fstat(directory.get(), &status) != 0) {
            const int error = errno;
            return error == ENOTDIR ? QStringLiteral("%1 is no folder itself").arg(FileName::toText(here))
                                    : qt_error_string(error);
        }
        const QString problem = problemOf(status, here);
        if (!problem.isEmpty()) {
            return problem;
        }
        const int next = path.indexOf('/', slash + 1);
        if (next >= 0) {
            directory =
                UniqueFd(::openat(directory.get(), path.mid(slash + 1, next - slash - 1).constData(), flags));
        }
        slash = next;
    }
    return {};
}
