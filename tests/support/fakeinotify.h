#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QVector>

#include <cstdint>
#include <functional>

/// Stands in for the kernel's inotify, and for the directory tree that is watched.
///
/// Linked into a test it takes the place of `inotify_init1` and `inotify_add_watch`; directories are
/// opened below `root` instead, so that the machine's own are never looked at.
struct FakeInotify
{
    struct Watch
    {
        int fd;
        QByteArray path;
        uint32_t mask;
        int descriptor;
    };

    /// Forgets everything; `root` then stands for "/".
    static void reset(const QString& root);
    /// Puts records into the descriptor.
    static void deliver(const QByteArray& records);
    /// One record as the kernel writes it. An empty name has no length, others are padded with zeros.
    static QByteArray record(int descriptor, uint32_t mask, const QByteArray& name = QByteArray());
    /// The watch descriptor given out last for `path`, 0 when it is not watched.
    static int descriptorOf(const QByteArray& path);
    static QVector<QByteArray> watchedPaths();
    /// Makes the descriptor one that cannot be read.
    static void breakDescriptor();

    static int initError;
    static QHash<QByteArray, int> watchErrors;
    /// Paths that are given a chosen descriptor instead of the next one.
    static QHash<QByteArray, int> chosenDescriptors;
    /// Called for each watch once its directory is found, also for one that fails.
    static std::function<void(const QByteArray& path)> onWatch;
    static QVector<Watch> watches;
    static int initCalls;
    /// Calls of `inotify_rm_watch`.
    static int removals;
};
