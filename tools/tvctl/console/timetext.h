#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

/// Points and spans of time as people write and read them. Pure.
namespace TimeText
{
/// The point that `text` names, seen from `now`: a span that lies back ("90s", "15m", "24h", "7d", "2w"),
/// "today", "yesterday" (their beginning), a date "2026-11-21", or date and time "2026-11-21 10:00",
/// "2026-11-21T10:00:30", the latter also with "Z" or "+01:00" behind. Local time where nothing else is
/// said. Nothing for any other text.
std::optional<QDateTime> parse(const QString& text, const QDateTime& now);

/// What `parse` takes, for messages.
QString accepted();

/// "2026-11-21 10:00:30" in local time; "-" for an invalid time.
QString format(const QDateTime& time);

/// The largest fitting unit: "45 s", "12 min", "5 h", "3 days".
QString formatSpan(qint64 seconds);
} // namespace TimeText
