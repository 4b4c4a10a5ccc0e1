#include "common/builddate.h"

#include <QLocale>

QDateTime parseBuildDate(const QString& date, const QString& time)
{
    const QLocale locale = QLocale::c();
    const QString text = QStringLiteral("%1 %2").arg(date).arg(time);
    const QDateTime moment = locale.toDateTime(text, QStringLiteral("MMM dd yyyy hh:mm:ss"));
    // Compilers pad a day of one digit with a blank.
    return moment.isValid() ? moment : locale.toDateTime(text, QStringLiteral("MMM  d yyyy hh:mm:ss"));
}
