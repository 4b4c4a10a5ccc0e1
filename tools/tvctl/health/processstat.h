#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <optional>

/// A process as the kernel describes it in one line.
struct ProcessStat
{
    /// The name, at most 15 bytes; any process may call itself anything.
    QByteArray name;
    /// 'R', 'S', 'T' ...
    char state = '?';
    /// When it was started, in clock ticks since the machine was.
    quint64 startTicks = 0;
};

/// Reads the content of /proc/PID/stat; nothing when it is none. Pure.
std::optional<ProcessStat> parseProcessStat(const QByteArray& text);
