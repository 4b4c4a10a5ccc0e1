#include "tvctl/detections/timeline.h"

#include <algorithm>

namespace
{
constexpr qint64 hoursADay = 24;
constexpr int daysAWeek = 7;
/// The most bars that can be told apart in one row, about.
constexpr qint64 manyHours = 3 * hoursADay;
constexpr qint64 manyDays = 92 * hoursADay;
constexpr qint64 manyWeeks = 2 * 366 * hoursADay;
constexpr qint64 manyMonths = 10 * 366 * hoursADay;

qint64 hourOf(const QDateTime& time)
{
    const QDateTime local = time.toLocalTime();
    return local.date().toJulianDay() * hoursADay + local.time().hour();
}

QDate dayOf(qint64 hour)
{
    return QDate::fromJulianDay(hour / hoursADay);
}

qint64 beginOf(const QDate& day)
{
    return day.toJulianDay() * hoursADay;
}

const QDate& firstDay()
{
    static const QDate day(1970, 1, 1);
    return day;
}

Timeline::Unit unitFor(qint64 hours)
{
    if (hours <= manyHours) {
        return Timeline::Unit::Hour;
    }
    if (hours <= manyDays) {
        return Timeline::Unit::Day;
    }
    if (hours <= manyWeeks) {
        return Timeline::Unit::Week;
    }
    return hours <= manyMonths ? Timeline::Unit::Month : Timeline::Unit::Year;
}

/// Where the bar begins that `hour` is in.
qint64 barOf(qint64 hour, Timeline::Unit unit)
{
    const QDate day = dayOf(hour);
    switch (unit) {
    case Timeline::Unit::Hour:
        return hour;
    case Timeline::Unit::Day:
        return beginOf(day);
    case Timeline::Unit::Week:
        return beginOf(day.addDays(1 - day.dayOfWeek()));
    case Timeline::Unit::Month:
        return beginOf(QDate(day.year(), day.month(), 1));
    default:
        return beginOf(QDate(day.year(), 1, 1));
    }
}

qint64 barAfter(qint64 bar, Timeline::Unit unit)
{
    switch (unit) {
    case Timeline::Unit::Hour:
        return bar + 1;
    case Timeline::Unit::Day:
        return bar + hoursADay;
    case Timeline::Unit::Week:
        return bar + daysAWeek * hoursADay;
    case Timeline::Unit::Month:
        return beginOf(dayOf(bar).addMonths(1));
    default:
        return beginOf(dayOf(bar).addYears(1));
    }
}

QString startOf(qint64 hour)
{
    return dayOf(hour).toString(Qt::ISODate) +
           QStringLiteral("T%1:00").arg(hour % hoursADay, 2, 10, QLatin1Char('0'));
}
} // namespace

Timeline::Timeline(const QDateTime& now) : m_end(hourOf(now))
{
}

bool Timeline::add(const QDateTime& time, int series)
{
    // A year far away would take its bars with it.
    if (!time.isValid() || hourOf(time) < beginOf(firstDay()) || hourOf(time) > m_end) {
        return false;
    }
    ++m_hours[hourOf(time)][static_cast<size_t>(series)];
    return true;
}

QVector<Timeline::Bar> Timeline::bars(const QDateTime& since, Unit& unit) const
{
    const qint64 first = firstHour(since);
    unit = unitFor(m_end - first);
    QVector<Bar> bars;
    auto hour = m_hours.lowerBound(first);
    for (qint64 bar = barOf(first, unit); bar <= m_end; bar = barAfter(bar, unit)) {
        Counts counts = {};
        const qint64 next = barAfter(bar, unit);
        for (; hour != m_hours.cend() && hour.key() < next; ++hour) {
            std::transform(counts.cbegin(), counts.cend(), hour->cbegin(), counts.begin(), std::plus<>());
        }
        bars.append({startOf(bar), counts});
    }
    return bars;
}

qint64 Timeline::firstHour(const QDateTime& since) const
{
    if (since.isValid()) {
        return std::clamp(hourOf(since), beginOf(firstDay()), m_end);
    }
    // At least a day, so that a first detection does not stand alone.
    const qint64 aDayAgo = m_end - hoursADay + 1;
    return m_hours.isEmpty() ? aDayAgo : std::min(aDayAgo, m_hours.firstKey());
}

QString timelineUnitWord(Timeline::Unit unit)
{
    switch (unit) {
    case Timeline::Unit::Hour:
        return QStringLiteral("hour");
    case Timeline::Unit::Day:
        return QStringLiteral("day");
    case Timeline::Unit::Week:
        return QStringLiteral("week");
    case Timeline::Unit::Month:
        return QStringLiteral("month");
    default:
        return QStringLiteral("year");
    }
}
