#include "platform/tvnotify/popupexpiry.h"

#include <QDateTime>
#include <QLocale>

std::optional<std::int64_t> popupCloseTime(const QString& timeStamp)
{
    const QDateTime time = QLocale::c().toDateTime(timeStamp, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    if (!time.isValid()) {
        return std::nullopt;
    }
    return time.toMSecsSinceEpoch();
}
