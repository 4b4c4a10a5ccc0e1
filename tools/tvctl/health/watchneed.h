#pragma once

#include "tvctl/health/watchedset.h"

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <chrono>

/// The directories that the service has to watch, as it counts them itself when it starts: five levels from
/// the root on, hidden ones and links left out.
struct WatchNeed
{
    /// Each once, also where it is mounted a second time; only those that may be read, as nobody may watch
    /// another.
    qint64 directories = 0;
    /// False when the time was over before the end: there are more.
    bool isComplete = true;
    /// How many of them are not watched, and a few by name.
    qint64 unwatched = 0;
    QStringList examples;

    /// The places whose trees are watched.
    static QStringList watchedRoots();
};

/// Walks `roots`, for `limit` at most; `watched` is what is watched.
WatchNeed walkWatchedTrees(const QStringList& roots, const WatchedSet& watched,
                           std::chrono::milliseconds limit);
