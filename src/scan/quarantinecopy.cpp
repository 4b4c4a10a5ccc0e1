#include "scan/quarantinecopy.h"

#include "common/checkedfile.h"
#include "common/filename.h"
#include "common/uniquefd.h"

#include <QByteArray>
#include <QString>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace
{
constexpr mode_t copyMode = S_IRUSR;

/// The copy while it is made: a file under a passing name, which goes again unless it was published.
///
/// Not a file without a name: where the quarantine itself is watched, the kernel tells of such a file by a
/// made-up name, and the monitor would look for it.
class PendingCopy
{
public:
    PendingCopy(const UniqueFd& directory, const QByteArray& name)
        : m_directory(directory),
          m_name(name),
          m_passingName(name + '.' + QByteArray::number(::getpid()) + ".tvq")
    {
    }
    PendingCopy(const PendingCopy&) = delete;
    PendingCopy& operator=(const PendingCopy&) = delete;
    ~PendingCopy()
    {
        if (m_hasPassingName) {
            remove(m_passingName);
        }
    }

    bool create()
    {
        m_file.reset(::openat(m_directory.get(), m_passingName.constData(),
                              O_CREAT | O_EXCL | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, copyMode));
        m_hasPassingName = m_file.isValid();
        return m_hasPassingName;
    }

    int file() const
    {
        return m_file.get();
    }

    /// Gives the copy its name, which nothing may have yet.
    bool publish()
    {
        if (::renameat2(m_directory.get(), m_passingName.constData(), m_directory.get(), m_name.constData(),
                        RENAME_NOREPLACE) == 0) {
            m_hasPassingName = false;
            return true;
        }
        // Network file systems know no such rename, but links, which replace nothing either.
        return errno == EINVAL && ::linkat(m_directory.get(), m_passingName.constData(), m_directory.get(),
                                           m_name.constData(), 0) == 0;
    }

    void withdraw()
    {
        remove(m_name);
    }

private:
    void remove(const QByteArray& name)
    {
        const int error = errno;
        ::unlinkat(m_directory.get(), name.constData(), 0);
        errno = error;
    }

    const UniqueFd& m_directory;
    const QByteArray m_name;
    const QByteArray m_passingName;
    UniqueFd m_file;
    bool m_hasPassingName = false;
};

bool writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t written = TEMP_FAILURE_RETRY(::write(fd, data, size));
        if (written < 0) {
            return false;
        }
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

/// So that a copy that cannot succeed does not fill the disk first.
bool hasRoomFor(int file, off_t size)
{
    struct statvfs disk = {};
    // A file system that tells no size has its own ways to refuse.
    if (::fstatvfs(file, &disk) == 0 && disk.f_blocks > 0 &&
        (static_cast<fsblkcnt_t>(size) + disk.f_frsize - 1) / disk.f_frsize > disk.f_bfree) {
        errno = ENOSPC;
        return false;
    }
    return true;
}

/// Copies `size` bytes from where both files stand, fewer when the source ends before.
bool copyBytes(int from, int to, off_t size)
{
    std::array<char, 128UL * 1024> buffer;
    while (size > 0) {
        const size_t wanted = std::min(buffer.size(), static_cast<size_t>(size));
        const ssize_t got = TEMP_FAILURE_RETRY(::read(from, buffer.data(), wanted));
        if (got <= 0) {
            return got == 0;
        }
        if (!writeAll(to, buffer.data(), static_cast<size_t>(got))) {
            return false;
        }
        size -= got;
    }
    return true;
}

/// Copies the first `limit` bytes, holes as holes: a file of any size costs its owner nothing while it is
/// nothing but a hole, and must not cost the disk here, nor the time to read it.
bool copyContent(int from, int to, off_t limit)
{
    off_t end = 0;
    while (end < limit) {
        off_t start = ::lseek(from, end, SEEK_DATA);
        if (start < 0 && errno == ENXIO) {
            break;
        }
        // A file system without knowledge of holes has data everywhere.
        start = start < 0 ? end : start;
        const off_t hole = ::lseek(from, start, SEEK_HOLE);
        end = std::min(hole > start ? hole : limit, limit);
        if (start >= limit) {
            break;
        }
        if (!hasRoomFor(to, end - start) || ::lseek(from, start, SEEK_SET) < 0 ||
            ::lseek(to, start, SEEK_SET) < 0 || !copyBytes(from, to, end - start)) {
            return false;
        }
    }
    struct stat left = {};
    // The hole at the end has no byte behind it that would make the copy as long.
    return ::fstat(from, &left) == 0 && ::ftruncate(to, std::min(limit, left.st_size)) == 0;
}
} // namespace

int copyIntoQuarantine(const QByteArray& source, const QString& destination)
{
    const CheckedFile checked(source);
    if (checked.kind() == CheckedFile::Kind::Missing) {
        return errno;
    }
    if (checked.kind() != CheckedFile::Kind::Regular) {
        return checked.kind() == CheckedFile::Kind::Directory ? EISDIR : EINVAL;
    }
    const UniqueFd original = checked.openForReading();
    if (!original.isValid()) {
        return errno;
    }

    const int nameStart = destination.lastIndexOf(QLatin1Char('/')) + 1;
    const UniqueFd directory(::open(FileName::toBytes(destination.left(nameStart)).constData(),
                                    O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.isValid()) {
        return errno;
    }

    PendingCopy copy(directory, FileName::toBytes(destination.mid(nameStart)));
    if (!copy.create() || !copyContent(original.get(), copy.file(), checked.status().st_size) ||
        ::fsync(copy.file()) != 0 || !copy.publish()) {
        return errno;
    }
    // Without this a crash could leave neither the original nor the copy.
    if (::fsync(directory.get()) != 0) {
        const int error = errno;
        copy.withdraw();
        return error;
    }
    return 0;
}
