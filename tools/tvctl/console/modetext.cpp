#include "tvctl/console/modetext.h"

QString modeText(mode_t mode)
{
    constexpr int digits = 4;
    constexpr int octal = 8;
    return QStringLiteral("%1").arg(uint(mode), digits, octal, QLatin1Char('0'));
}
