#pragma once

#include <QByteArray>
#include <QHash>
#include <QVector>

#include <functional>

/// Stands in front of the system calls that make, write and remove files: records them, and lets a test make
/// one fail or act while it happens.
///
/// Linked into a test it takes the place of these functions for the code under test alone; the shared
/// libraries keep the real ones. Known are "openat", "read", "write", "fsync", "linkat", "renameat2",
/// "unlinkat". A call that changes something is recorded, as its name and what tells it from others of the
/// name: "openat create", "fsync file", "fsync directory".
struct FakeFiles
{
    struct Failure
    {
        int error;
        /// How many calls go through before, and how many fail then; the ones after go through again.
        int after = 0;
        int count = 1;
    };

    static void reset();
    /// Calls that changed something or tried to; "read" and "write" are not among them.
    static QVector<QByteArray> calls;
    /// By what is recorded.
    static QHash<QByteArray, Failure> failures;
    /// Called before the call is made.
    static std::function<void(const QByteArray&)> onCall;
    /// As many bytes at most are taken by one write; 0 is no limit.
    static size_t longestWrite;
};
