#include "common/sameinode.h"

#include <cerrno>

#include <fcntl.h>

bool isSameInode(const struct stat& one, const struct stat& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool isNamed(int file, const UniqueFd& directory, const QByteArray& name)
{
    struct stat mine = {};
    struct stat there = {};
    if (::fstat(file, &mine) != 0 ||
        ::fstatat(directory.get(), name.constData(), &there, AT_SYMLINK_NOFOLLOW) != 0) {
        return false;
    }
    errno = ESTALE;
    return isSameInode(mine, there);
}
