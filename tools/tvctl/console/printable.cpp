#include "tvctl/console/printable.h"

#include "common/filename.h"

namespace
{
bool steersTerminal(uint codePoint)
{
    switch (QChar::category(codePoint)) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Other_Surrogate:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        return false;
    }
}

QString escaped(uint codePoint)
{
    constexpr QLatin1Char zero('0');
    if (codePoint < 0x100) {
        return QStringLiteral("\\x%1").arg(codePoint, 2, 16, zero);
    }
    return codePoint < 0x10000 ? QStringLiteral("\\u%1").arg(codePoint, 4, 16, zero)
                               : QStringLiteral("\\U%1").arg(codePoint, 8, 16, zero);
}
} // namespace

QString printable(const QString& text)
{
    const QString raw = FileName::toDisplay(text);
    QString shown;
    shown.reserve(raw.size());
    for (int i = 0; i < raw.size(); ++i) {
        const bool isPair =
            raw.at(i).isHighSurrogate() && i + 1 < raw.size() && raw.at(i + 1).isLowSurrogate();
        const uint codePoint =
            isPair ? QChar::surrogateToUcs4(raw.at(i), raw.at(i + 1)) : raw.at(i).unicode();
        if (steersTerminal(codePoint)) {
            shown += escaped(codePoint);
        } else {
            shown += raw.midRef(i, isPair ? 2 : 1);
        }
        i += isPair ? 1 : 0;
    }
    return shown;
}
