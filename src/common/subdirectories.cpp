#include "common/subdirectories.h"

#include "common/uniquefd.h"

#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{
struct CloseDirectory
{
    void operator()(DIR* directory) const
    {
        ::closedir(directory);
    }
};

/// Whether the entry is a directory itself, not a link to one.
bool isDirectory(DIR* directory, const dirent& entry, bool isTypeTrusted)
{
    // Some file systems do not tell the type with the name.
    if (isTypeTrusted && entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR;
    }
    struct stat status = {};
    return ::fstatat(::dirfd(directory), entry.d_name, &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0 &&
           S_ISDIR(status.st_mode);
}
} // namespace

QVector<QByteArray> subdirectoriesOf(int directory, const OwnDevices& trusted)
{
    // Read here and not by QDir, which leaves out names that the locale cannot spell.
    QVector<QByteArray> names;
    UniqueFd readable(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, CloseDirectory> stream(::fdopendir(readable.get()));
    if (!stream) {
        return names;
    }
    // The stream closes it from here on.
    readable.release();
    struct stat own = {};
    const bool isTypeTrusted = ::fstat(::dirfd(stream.get()), &own) == 0 && trusted.contains(own.st_dev);
    while (const dirent* entry = ::readdir(stream.get())) {
        if (entry->d_name[0] != '.' && isDirectory(stream.get(), *entry, isTypeTrusted)) {
            names.append(QByteArray(entry->d_name));
        }
    }
    return names;
}
