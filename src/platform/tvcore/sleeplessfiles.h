#pragma once

#include <QLatin1String>

/// SQLite's own access to files, except that it never sleeps, and tells a disk from a file that are not
/// sound.
///
/// While another connection keeps the locks of a write-ahead log, SQLite sleeps for ten seconds altogether
/// before it says so, which no setting changes. Here it says so at once, and who uses the database decides
/// how long to go on.
///
/// What a disk does not give for an error of its own, SQLite calls a damaged database, and a database that is
/// called damaged is set aside. Here it is an error of reading, which may pass.
namespace SleeplessFiles
{
/// What to call it in the `vfs` parameter of a database's URI. Registers it with SQLite first.
QLatin1String name();
} // namespace SleeplessFiles
