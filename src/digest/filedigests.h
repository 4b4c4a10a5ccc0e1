#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QString>
#include <QVector>

/// What a file's content hashes to.
struct FileDigests
{
    /// One for each algorithm asked for, in that order: lower-case hexadecimal, or all empty when the file
    /// could not be read.
    QVector<QString> hex;
    /// False when the file could not be read for a reason that may be gone the next moment (no descriptor, no
    /// memory, an I/O error, another program's lease): the answer says nothing about the file then.
    bool lasting = true;
};

/// Reads the file at `path` once, in pieces, and at most as much as it held when it was opened, so that one
/// that grows without end is done too. What is not a regular file is never opened for reading and counts as
/// one that cannot be. Blocks for as long as reading takes; reentrant.
FileDigests digestsOfFile(const QByteArray& path, const QVector<QCryptographicHash::Algorithm>& algorithms);
