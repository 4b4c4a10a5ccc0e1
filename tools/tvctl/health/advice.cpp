#include "tvctl/health/advice.h"

QString Advice::restart()
{
    return QStringLiteral("systemctl restart tvfilemon");
}
