#pragma once

#include "platform/tvcore/filestamp.h"
#include "platform/tvcore/storeerror.h"

#include <QString>

/// A store's files on disk: the database `path` and what SQLite keeps beside it.
///
/// To be used under a DirectoryLock.
namespace StoreFiles
{
/// Makes an empty file at `path` that only its owner may read and write, unless one is there already. The
/// files that SQLite puts beside it get the same permissions. Nothing but a regular file is accepted.
StoreError ensureExists(const QString& path);

/// Renames the database and the files beside it to "<path>.corrupt-<date>" (the date in UTC, with a number
/// added when the name is taken: nothing is overwritten), and gives the new name in `newPath`.
StoreError setAside(const QString& path, QString& newPath);

/// What SQLite keeps beside a database while it is open: the write-ahead log and the index of it.
struct Companions
{
    static Companions of(const QString& path);

    FileStamp log;
    FileStamp index;
};

/// Renames `companions`, as far as they still lie beside `path`, to "<path>.replaced-<date>" with their
/// endings.
///
/// For a database that somebody put in the place of the one that they belonged to: SQLite would take the old
/// log for the new database's and play it back into it. False when there is nothing of the kind, or
/// it stays.
bool moveLeftovers(const QString& path, const Companions& companions, QString& newPath);

/// True when nothing can be created beside `path` and there is no log whose content would be missed by
/// reading the database alone.
bool isCompleteAndReadOnly(const QString& path);

/// True when there is a write-ahead log with something in it.
bool hasLog(const QString& path);
} // namespace StoreFiles
