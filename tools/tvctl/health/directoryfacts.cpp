#include "tvctl/health/directoryfacts.h"

#include "common/filename.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace
{
constexpr mode_t permissionBits = 07777;
}

DirectoryFacts DirectoryFacts::of(const QString& path)
{
    DirectoryFacts facts;
    facts.path = path;
    const QByteArray name = FileName::toBytes(path);
    struct stat status = {};
    if (::stat(name.constData(), &status) != 0) {
        facts.error = errno;
        return facts;
    }
    facts.isDirectory = S_ISDIR(status.st_mode);
    facts.owner = status.st_uid;
    facts.mode = status.st_mode & permissionBits;
    facts.isWritable = ::faccessat(AT_FDCWD, name.constData(), W_OK, AT_EACCESS) == 0;
    struct statvfs space = {};
    if (::statvfs(name.constData(), &space) == 0) {
        facts.isReadOnly = (space.f_flag & ST_RDONLY) != 0;
        facts.freeBytes = static_cast<qint64>(space.f_bavail) * static_cast<qint64>(space.f_frsize);
        // Some file systems have no table of files that could be full.
        facts.isOutOfFiles = space.f_files > 0 && space.f_favail == 0;
    }
    return facts;
}
