#pragma once

#include <QByteArray>
#include <QDataStream>
#include <QtGlobal>

#include <optional>

/// A moment by two clocks: the one that files are dated by, which people and the network set, and the one
/// that only ever goes on, until the machine starts anew.
struct SweepTime
{
    static SweepTime now();

    qint64 msecsSinceEpoch = 0;
    qint64 msecsSinceBoot = 0;
    QByteArray bootId;
};

QDataStream& operator<<(QDataStream& stream, const SweepTime& time);
QDataStream& operator>>(QDataStream& stream, SweepTime& time);

/// From which change time on, in ms since the epoch, a file may have changed after `last`, seen from `now`. A
/// clock that was set back in between is allowed for. Nothing when nobody can tell: then everything may have.
/// Pure.
std::optional<qint64> changedSince(const SweepTime& last, const SweepTime& now);
