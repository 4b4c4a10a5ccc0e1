#pragma once

#include <QDateTime>
#include <QMap>
#include <QString>
#include <QVector>

#include <array>

/// How many of what there were when, in bars that are wide enough for the eye.
///
/// In local time. An hour that a clock change repeats is one hour here.
class Timeline
{
public:
    static constexpr int seriesCount = 5;
    using Counts = std::array<qint64, seriesCount>;

    enum class Unit
    {
        Hour,
        Day,
        Week,
        Month,
        Year
    };

    struct Bar
    {
        /// When it begins: "2026-11-21T10:00".
        QString start;
        Counts counts;
    };

    /// `now` is where it ends.
    explicit Timeline(const QDateTime& now);

    /// False when `time` is none that can be shown: invalid, before 1970, or in the future.
    bool add(const QDateTime& time, int series);

    /// From `since` on, or from a little before the first when that is invalid.
    QVector<Bar> bars(const QDateTime& since, Unit& unit) const;

private:
    qint64 firstHour(const QDateTime& since) const;

    /// In hours since the beginning of days.
    qint64 m_end;
    QMap<qint64, Counts> m_hours;
};

/// "hour", "day", ...
QString timelineUnitWord(Timeline::Unit unit);
