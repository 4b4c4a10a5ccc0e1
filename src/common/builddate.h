#pragma once

#include <QDateTime>
#include <QString>

/// The moment that a compiler's `date` ("Mar  8 2025") and `time` ("13:02:59") name, in local time.
/// Invalid when they name none. The locale plays no part. Reentrant.
QDateTime parseBuildDate(const QString& date, const QString& time);
