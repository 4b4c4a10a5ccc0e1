#include "tvctl/console/jsontext.h"

#include "common/filename.h"

#include <QLocale>

void JsonText::insertPath(QJsonObject& object, const QString& key, const QString& path)
{
    const QString shown = FileName::toDisplay(path);
    object.insert(key, shown);
    if (shown != path) {
        object.insert(key + QStringLiteral("_base64"),
                      QString::fromLatin1(FileName::toBytes(path).toBase64()));
    }
}

QJsonValue JsonText::time(const QDateTime& time)
{
    if (!time.isValid()) {
        return QJsonValue::Null;
    }
    return QLocale::c().toString(time.toUTC(), QStringLiteral("yyyy-MM-ddThh:mm:ss.zzzZ"));
}
