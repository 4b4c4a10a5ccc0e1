#pragma once

#include <QString>
#include <QtGlobal>

#include <sys/types.h>

/// A file or directory and the file system that it lies on, as far as it matters to who depends on it.
struct DirectoryFacts
{
    /// Looks at `path`, following links.
    static DirectoryFacts of(const QString& path);

    bool exists() const
    {
        return error == 0;
    }

    QString path;
    /// Why it cannot be looked at; 0 when it can.
    int error = 0;
    bool isDirectory = false;
    uid_t owner = 0;
    /// The permission bits.
    mode_t mode = 0;
    bool isReadOnly = false;
    /// This process may write to it: read-only file systems and permissions allow it.
    bool isWritable = false;
    qint64 freeBytes = 0;
    /// The place for new files is used up, whatever the free bytes say.
    bool isOutOfFiles = false;
};
