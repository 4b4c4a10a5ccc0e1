#include "common/filecopy.h"

#include "common/abandonablework.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace
{
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

/// Copies `size` bytes from where both files stand, fewer when the source ends before. What is not `urgent`
/// gives way to the end of the process.
bool copyBytes(int from, int to, off_t size, bool urgent)
{
    std::array<char, 128UL * 1024> buffer;
    while (size > 0) {
        if (!urgent && AbandonableWork::isAwaited()) {
            errno = ECANCELED;
            return false;
        }
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
} // namespace

bool copyFileContent(int from, int to, off_t limit)
{
    // It is written before anybody who waits for the end of the process loses patience.
    constexpr off_t quick = off_t(16) << 20;
    const bool urgent = limit <= quick;
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
            ::lseek(to, start, SEEK_SET) < 0 || !copyBytes(from, to, end - start, urgent)) {
            return false;
        }
    }
    struct stat left = {};
    // The hole at the end has no byte behind it that would make the copy as long.
    return ::fstat(from, &left) == 0 && ::ftruncate(to, std::min(limit, left.st_size)) == 0;
}
