#include "tvctl/detections/hostidentity.h"

#include <QFile>
#include <QRegularExpression>
#include <QSysInfo>

HostIdentity HostIdentity::own()
{
    HostIdentity identity;
    identity.hostname = QSysInfo::machineHostName();
    QFile file(QStringLiteral("/etc/machine-id"));
    if (file.open(QIODevice::ReadOnly)) {
        constexpr qint64 enough = 64;
        const QString text = QString::fromLatin1(file.read(enough)).trimmed();
        // "uninitialized" in an image that has not been started yet.
        static const QRegularExpression pattern(QStringLiteral("^[0-9a-f]{32}\\z"));
        if (pattern.match(text).hasMatch()) {
            identity.id = text;
        }
    }
    return identity;
}
