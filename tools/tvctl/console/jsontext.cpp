#include "tvctl/console/jsontext.h"

#include "common/filename.h"
#include "tvctl/console/printable.h"

#include <QLocale>

#include <algorithm>

namespace
{
bool isPlain(char byte)
{
    return byte >= 0 && byte != 0x7F;
}

QString escapedInJson(uint codePoint)
{
    const auto unit = [](uint value) {
        return QStringLiteral("\\u%1").arg(value, 4, 16, QLatin1Char('0'));
    };
    if (codePoint == '\n') {
        // Between the elements of an indented document. In its strings it is escaped already.
        return QStringLiteral("\n");
    }
    return QChar::requiresSurrogates(codePoint)
               ? unit(QChar::highSurrogate(codePoint)) + unit(QChar::lowSurrogate(codePoint))
               : unit(codePoint);
}
} // namespace

QByteArray JsonText::write(const QJsonDocument& document, QJsonDocument::JsonFormat format)
{
    const QByteArray json = document.toJson(format);
    if (std::all_of(json.cbegin(), json.cend(), isPlain)) {
        return json;
    }
    return FileName::toBytes(replaceSteering(FileName::toText(json), escapedInJson));
}

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
