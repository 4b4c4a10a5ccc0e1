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
bool isDirectory(DIR* directory, const dirent& entry)
{
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR;
    }
    // Some file systems do not tell the type with the name.
    struct stat status = {};
    return ::fstatat(::dirfd(directory), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}
} // namespace

QVector<QByteArray> subdirectoriesOf(int directory)
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
    while (const dirent* entry = ::readdir(stream.get())) {
        if (entry->d_name[0] != '.' && isDirectory(stream.get(), *entry)) {
            names.append(QByteArray(entry->d_name));
        }
    }
    return names;
}
