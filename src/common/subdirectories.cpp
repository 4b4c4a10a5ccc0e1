#include "common/subdirectories.h"

#include "common/uniquefd.h"

#include <array>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{
/// Whether the entry is a directory itself, not a link to one.
bool isDirectory(const UniqueFd& directory, const dirent64& entry, bool trusted)
{
    // Some file systems do not tell the type with the name.
    if (trusted && entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR;
    }
    struct stat status = {};
    return ::fstatat(directory.get(), entry.d_name, &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0 &&
           S_ISDIR(status.st_mode);
}
} // namespace

QVector<QByteArray> subdirectoriesOf(int directory, bool trusted)
{
    // Read here and not by QDir, which leaves out names that the locale cannot spell; nor by readdir, which
    // takes three more system calls for each directory, and passes over what a medium gives the inode 0.
    QVector<QByteArray> names;
    const UniqueFd readable(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    alignas(dirent64) std::array<char, 32768> records;
    ssize_t size = 0;
    while ((size = ::getdents64(readable.get(), records.data(), records.size())) > 0) {
        for (ssize_t offset = 0; offset < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(records.data() + offset);
            offset += entry->d_reclen;
            if (entry->d_name[0] != '.' && isDirectory(readable, *entry, trusted)) {
                names.append(QByteArray(entry->d_name));
            }
        }
    }
    return names;
}
