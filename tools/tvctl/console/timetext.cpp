#include "tvctl/console/timetext.h"

#include <QLocale>
#include <QRegularExpression>

namespace
{
constexpr qint64 minute = 60;
constexpr qint64 hour = 60 * minute;
constexpr qint64 day = 24 * hour;
constexpr qint64 week = 7 * day;

qint64 secondsOf(QChar unit)
{
    switch (unit.unicode()) {
    case 's':
        return 1;
    case 'm':
        return minute;
    case 'h':
        return hour;
    case 'd':
        return day;
    default:
        return week;
    }
}

std::optional<QDateTime> spanBack(const QString& text, const QDateTime& now)
{
    // At most nine digits: the product stays far from the end of its range.
    static const QRegularExpression pattern(QStringLiteral("^([0-9]{1,9})([smhdw])$"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const QDateTime then = now.addSecs(-match.captured(1).toLongLong() * secondsOf(match.captured(2).at(0)));
    return then.isValid() ? std::make_optional(then) : std::nullopt;
}
} // namespace

std::optional<QDateTime> TimeText::parse(const QString& text, const QDateTime& now)
{
    if (const auto then = spanBack(text, now)) {
        return then;
    }
    if (text == QLatin1String("today")) {
        return now.date().startOfDay();
    }
    if (text == QLatin1String("yesterday")) {
        return now.date().addDays(-1).startOfDay();
    }
    static const QRegularExpression isoPattern(
        QStringLiteral("^[0-9]{4}-[0-9]{2}-[0-9]{2}"
                       "([ T][0-9]{2}:[0-9]{2}(:[0-9]{2}([.][0-9]{1,3})?)?(Z|[+-][0-9]{2}:[0-9]{2})?)?$"));
    if (!isoPattern.match(text).hasMatch()) {
        return std::nullopt;
    }
    if (text.size() == 10) {
        const QDate date = QDate::fromString(text, Qt::ISODate);
        return date.isValid() ? std::make_optional(date.startOfDay()) : std::nullopt;
    }
    QString iso = text;
    iso[10] = QLatin1Char('T');
    const QDateTime time = QDateTime::fromString(iso, Qt::ISODateWithMs);
    return time.isValid() ? std::make_optional(time) : std::nullopt;
}

QString TimeText::accepted()
{
    return QStringLiteral(
        "a span like 90s, 15m, 24h, 7d or 2w, today, yesterday, 2026-11-21, or 2026-11-21 10:00");
}

QString TimeText::format(const QDateTime& time)
{
    return time.isValid() ? QLocale::c().toString(time.toLocalTime(), QStringLiteral("yyyy-MM-dd hh:mm:ss"))
                          : QStringLiteral("-");
}

QString TimeText::formatSpan(qint64 seconds)
{
    if (seconds < 2 * minute) {
        return QStringLiteral("%1 s").arg(seconds);
    }
    if (seconds < 2 * hour) {
        return QStringLiteral("%1 min").arg(seconds / minute);
    }
    if (seconds < 2 * day) {
        return QStringLiteral("%1 h").arg(seconds / hour);
    }
    return QStringLiteral("%1 days").arg(seconds / day);
}
