#include "digest/filedigests.h"

#include "common/checkedfile.h"
#include "common/uniquefd.h"
#include "digest/digest.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace
{
/// Each algorithm goes through the piece by itself, and finds it still in the processor's cache.
constexpr off_t pieceSize = 64L * 1024;

/// Whether a failure to open speaks of the path itself and not of this moment.
bool isLasting(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case EACCES:
    case EPERM:
    case ELOOP:
    case ENAMETOOLONG:
        return true;
    default:
        return false;
    }
}

FileDigests unreadable(int algorithmCount, bool lasting)
{
    return {QVector<QString>(algorithmCount), lasting};
}

bool feed(int fd, off_t limit, std::vector<Digest>& digests)
{
    const auto size = static_cast<size_t>(std::min(limit, pieceSize));
    const std::unique_ptr<char[]> piece(new (std::nothrow) char[size]);
    if (piece == nullptr) {
        return false;
    }
    while (limit > 0) {
        const auto wanted = static_cast<size_t>(std::min(limit, pieceSize));
        const ssize_t got = TEMP_FAILURE_RETRY(::read(fd, piece.get(), wanted));
        if (got <= 0) {
            return got == 0;
        }
        for (Digest& digest : digests) {
            digest.add(piece.get(), static_cast<size_t>(got));
        }
        limit -= got;
    }
    return true;
}
} // namespace

FileDigests digestsOfFile(const QByteArray& path, const QVector<QCryptographicHash::Algorithm>& algorithms)
{
    const int count = algorithms.size();
    const CheckedFile checked(path);
    if (checked.kind() == CheckedFile::Kind::Missing) {
        return unreadable(count, isLasting(errno));
    }
    if (checked.kind() != CheckedFile::Kind::Regular) {
        return unreadable(count, true);
    }
    const UniqueFd file = checked.openForReading();
    if (!file.isValid()) {
        return unreadable(count, isLasting(errno));
    }
    struct stat opened = {};
    if (::fstat(file.get(), &opened) != 0) {
        return unreadable(count, false);
    }

    std::vector<Digest> digests(algorithms.begin(), algorithms.end());
    if (!feed(file.get(), opened.st_size, digests)) {
        return unreadable(count, false);
    }
    FileDigests result;
    for (Digest& digest : digests) {
        result.hex.append(digest.takeHex());
    }
    // No digest is empty: libcrypto failed, for want of memory perhaps.
    if (result.hex.contains(QString())) {
        return unreadable(count, false);
    }
    return result;
}
