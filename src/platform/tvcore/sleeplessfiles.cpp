#include "platform/tvcore/sleeplessfiles.h"

#include <map>
#include <mutex>

#include <sqlite3.h>

namespace
{
constexpr const char* registeredName = "tvcore";

sqlite3_vfs* base()
{
    static sqlite3_vfs* const files = sqlite3_vfs_find(nullptr);
    return files;
}

/// How an open file is accessed. SQLite has the address of the first member.
struct Methods
{
    sqlite3_io_methods changed;
    const sqlite3_io_methods* original;
};

int doNotSleep(sqlite3_vfs*, int microseconds)
{
    return microseconds;
}

int read(sqlite3_file* file, void* buffer, int size, sqlite3_int64 offset)
{
    const auto* methods = reinterpret_cast<const Methods*>(file->pMethods);
    const int result = methods->original->xRead(file, buffer, size, offset);
    return result == SQLITE_IOERR_CORRUPTFS ? SQLITE_IOERR_READ : result;
}

/// SQLite has a few sets of methods, by how files are locked.
const Methods& changed(const sqlite3_io_methods* original)
{
    static std::mutex mutex;
    static std::map<const sqlite3_io_methods*, Methods> known;
    const std::lock_guard<std::mutex> guard(mutex);
    Methods& methods = known.try_emplace(original, Methods{*original, original}).first->second;
    methods.changed.xRead = &read;
    return methods;
}

int open(sqlite3_vfs*, const char* path, sqlite3_file* file, int flags, int* outFlags)
{
    const int result = base()->xOpen(base(), path, file, flags, outFlags);
    if (file->pMethods != nullptr) {
        file->pMethods = &changed(file->pMethods).changed;
    }
    return result;
}

int registerIt()
{
    static sqlite3_vfs files = *base();
    files.zName = registeredName;
    files.xSleep = &doNotSleep;
    files.xOpen = &open;
    return sqlite3_vfs_register(&files, 0);
}
} // namespace

QLatin1String SleeplessFiles::name()
{
    // Fails only where nothing of SQLite works.
    static const int registered = registerIt();
    Q_UNUSED(registered)
    return QLatin1String(registeredName);
}
