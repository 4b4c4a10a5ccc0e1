#include "platform/tvcore/sleeplessfiles.h"

#include <sqlite3.h>

namespace
{
constexpr const char* registeredName = "tvcore";

int doNotSleep(sqlite3_vfs*, int microseconds)
{
    return microseconds;
}

int registerIt()
{
    static sqlite3_vfs files = *sqlite3_vfs_find(nullptr);
    files.zName = registeredName;
    files.xSleep = &doNotSleep;
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
