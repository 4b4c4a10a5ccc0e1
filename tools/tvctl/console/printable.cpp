#include "tvctl/console/printable.h"

#include "common/filename.h"

namespace
{
bool steersTerminal(QChar character)
{
    const QChar::Category category = character.category();
    return category == QChar::Other_Control || category == QChar::Other_Format ||
           category == QChar::Separator_Line || category == QChar::Separator_Paragraph;
}

QString escaped(ushort code)
{
    return code < 0x100 ? QStringLiteral("\\x%1").arg(code, 2, 16, QLatin1Char('0'))
                        : QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
}
} // namespace

QString printable(const QString& text)
{
    QString shown;
    shown.reserve(text.size());
    for (const QChar character : FileName::toDisplay(text)) {
        if (steersTerminal(character)) {
            shown += escaped(character.unicode());
        } else {
            shown += character;
        }
    }
    return shown;
}
