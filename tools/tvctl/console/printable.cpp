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

QString shownAs(uint codePoint)
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
    return replaceSteering(FileName::toDisplay(text), shownAs);
}

QString replaceSteering(const QString& text, const std::function<QString(uint)>& shownAs)
{
    QString shown;
    shown.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const bool isPair =
            text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        const uint codePoint =
            isPair ? QChar::surrogateToUcs4(text.at(i), text.at(i + 1)) : text.at(i).unicode();
        if (steersTerminal(codePoint)) {
            shown += shownAs(codePoint);
        } else {
            shown += text.midRef(i, isPair ? 2 : 1);
        }
        i += isPair ? 1 : 0;
    }
    return shown;
}
