#include "scan/enginedirectory.h"

#include "common/common.h"
#include "common/filename.h"

#include <QCryptographicHash>

#include <cstdlib>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace
{
/// The engine unpacks up to 400 MB of one archive, and what has no room there ends in an error.
constexpr quint64 leastRoomInMemory = 512ULL * 1024 * 1024;
constexpr quint64 leastRoomOnDisk = 1024ULL * 1024;
constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// Somebody else could rename a directory in it, and put another in its place.
bool isSafeParent(int directory)
{
    struct stat status = {};
    return ::fstat(directory, &status) == 0 && (status.st_uid == 0 || status.st_uid == ::geteuid()) &&
           ((status.st_mode & (S_IWGRP | S_IWOTH)) == 0 || (status.st_mode & S_ISVTX) != 0);
}

bool hasRoom(int directory, quint64 least)
{
    struct statvfs disk = {};
    if (::fstatvfs(directory, &disk) != 0) {
        return false;
    }
    // A file system without a fixed number of inodes says that it has none.
    return static_cast<quint64>(disk.f_bavail) * disk.f_frsize >= least &&
           (disk.f_files == 0 || disk.f_favail > 0);
}

bool isOwnAndPrivate(int directory)
{
    struct stat status = {};
    return ::fstat(directory, &status) == 0 && status.st_uid == ::geteuid() &&
           ((status.st_mode & 07777) == 0700 || ::fchmod(directory, 0700) == 0);
}

/// Whether a scan could make its directory here.
bool isUsable(int directory)
{
    constexpr const char* probe = "probe";
    return ::mkdirat(directory, probe, 0700) == 0 && ::unlinkat(directory, probe, AT_REMOVEDIR) == 0;
}

struct CloseListing
{
    void operator()(DIR* listing) const
    {
        ::closedir(listing);
    }
};

/// Removes everything in the directory `parent`, which it takes over. Only the service itself made what is in
/// there, so the depth is that of an archive in an archive.
void removeContent(UniqueFd parent)
{
    const std::unique_ptr<DIR, CloseListing> listing(::fdopendir(parent.get()));
    if (listing == nullptr) {
        return;
    }
    parent.release();
    const int directory = ::dirfd(listing.get());
    while (const dirent* entry = ::readdir(listing.get())) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0 ||
            ::unlinkat(directory, entry->d_name, 0) == 0) {
            continue;
        }
        UniqueFd below(::openat(directory, entry->d_name, directoryFlags));
        if (below.isValid()) {
            removeContent(std::move(below));
            ::unlinkat(directory, entry->d_name, AT_REMOVEDIR);
        }
    }
}

void removeContentOf(const UniqueFd& directory)
{
    removeContent(UniqueFd(::openat(directory.get(), ".", directoryFlags)));
}
} // namespace

QVector<EngineDirectory::Place> EngineDirectory::places()
{
    QVector<Place> places;
    const QByteArray given = qgetenv("TMPDIR");
    if (given.startsWith('/')) {
        places += {given, leastRoomOnDisk};
    }
    places += {QByteArrayLiteral("/run"), leastRoomInMemory};
    places += {QByteArrayLiteral("/dev/shm"), leastRoomInMemory};
    places += {FileName::toBytes(Common::getRootPath()), leastRoomOnDisk};
    return places;
}

EngineDirectory::EngineDirectory(const QVector<Place>& places)
{
    // The same name in each run of one installation, so that the next one finds what a killed one left.
    const QByteArray root = FileName::toBytes(Common::getRootPath());
    const QByteArray name = QByteArrayLiteral("tvfilemon-engine-") +
                            QCryptographicHash::hash(root, QCryptographicHash::Md5).toHex().left(8);
    for (const Place& place : places) {
        if (take(place, name) || take(place, name + '-' + QByteArray::number(::getpid()))) {
            return;
        }
    }
}

void EngineDirectory::clear() const
{
    if (!m_directory.isValid()) {
        return;
    }
    // A file that is made while its directory is emptied keeps that one for the next time.
    constexpr int tries = 5;
    for (int i = 0; i < tries; ++i) {
        removeContentOf(m_directory);
    }
}

bool EngineDirectory::take(const Place& place, const QByteArray& name)
{
    const UniqueFd parent(::open(place.parent.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!parent.isValid() || !isSafeParent(parent.get())) {
        return false;
    }
    ::mkdirat(parent.get(), name.constData(), 0700);
    UniqueFd directory(::openat(parent.get(), name.constData(), directoryFlags));
    // Locked: another service of the same installation works in it.
    if (!directory.isValid() || !isOwnAndPrivate(directory.get()) ||
        ::flock(directory.get(), LOCK_EX | LOCK_NB) != 0) {
        return false;
    }
    removeContentOf(directory);
    if (!hasRoom(directory.get(), place.leastRoom) || !isUsable(directory.get())) {
        ::unlinkat(parent.get(), name.constData(), AT_REMOVEDIR);
        return false;
    }
    m_path = place.parent + '/' + name;
    m_directory = std::move(directory);
    return true;
}
