#pragma once

#include "tvctl/health/watchedset.h"

#include <QByteArray>
#include <QtGlobal>

#include <optional>

/// What a process watches.
struct InotifyUse
{
    /// How many queues of events it has.
    int instances = 0;
    WatchedSet watched;
};

/// Adds what is watched by `text`, the content of /proc/PID/fdinfo/N of an inotify descriptor. Pure.
void parseInotifyInfo(const QByteArray& text, WatchedSet& watched);

/// What the process `id` watches; nothing when that cannot be read (without root's rights, of others).
std::optional<InotifyUse> inotifyUseOf(qint64 id);

/// What the kernel allows; -1 for what cannot be read.
struct InotifyLimits
{
    static InotifyLimits read();

    qint64 watches = -1;
    qint64 instances = -1;
    qint64 queuedEvents = -1;
};
