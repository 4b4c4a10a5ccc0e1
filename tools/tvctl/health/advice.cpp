#include "tvctl/health/advice.h"

QString Advice::restart()
{
    return QStringLiteral("systemctl restart tvfilemon");
}

QString Advice::waitForFirstUpdate()
{
    return QStringLiteral("wait; journalctl -fu tvfilemon-update shows how far it is");
}

QString Advice::getSignatures()
{
    return QStringLiteral("systemctl start tvfilemon-update");
}
