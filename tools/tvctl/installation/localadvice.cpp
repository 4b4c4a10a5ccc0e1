#include "tvctl/installation/localadvice.h"

#include "common/filename.h"

#include <QFile>
#include <QList>

#include <utility>

namespace
{
/// In the order in which systemd looks.
constexpr const char* unitDirectories[] = {"/etc/systemd/system", "/run/systemd/system",
                                           "/usr/local/lib/systemd/system", "/usr/lib/systemd/system",
                                           "/lib/systemd/system"};

bool hasUnit(const QString& program)
{
    for (const char* directory : unitDirectories) {
        QFile unit(QLatin1String(directory) + QStringLiteral("/tvfilemon.service"));
        if (unit.open(QIODevice::ReadOnly)) {
            return LocalAdvice::unitStarts(unit.readAll(), program);
        }
    }
    return false;
}
} // namespace

LocalAdvice::LocalAdvice(const Installation& installation)
    : LocalAdvice(installation, ::hasUnit(installation.program()))
{
}

LocalAdvice::LocalAdvice(const Installation& installation, bool hasUnit)
    : m_installation(installation),
      m_hasUnit(hasUnit)
{
}

bool LocalAdvice::unitStarts(const QByteArray& unit, const QString& program)
{
    return unit.split('\n').contains("ExecStart=" + FileName::toBytes(program));
}

QString LocalAdvice::wordedFor(QString advice) const
{
    if (m_hasUnit) {
        return advice;
    }
    const QString program = m_installation.program();
    // A text that begins with another one comes before it.
    const std::pair<QString, QString> others[] = {
        {QStringLiteral("journalctl -u tvfilemon-update tells more; then systemctl start tvfilemon-update"),
         QStringLiteral("run %1-update as root").arg(program)},
        {QStringLiteral("systemctl start tvfilemon-update"),
         QStringLiteral(
             "put new *.cvd files into %1 (freshclam gets them, with \"ScriptedUpdates no\" in its "
             "configuration), then tvctl reload db")
             .arg(m_installation.databases())},
        {QStringLiteral("systemctl enable --now tvfilemon-update.timer"),
         QStringLiteral("run %1-update as root, by a timer").arg(program)},
        {QStringLiteral("systemctl reload-or-restart tvfilemon-firewall"),
         QStringLiteral("run as root: %1-firewall start").arg(program)},
        {QStringLiteral("systemctl restart tvfilemon"),
         QStringLiteral("end it, and start it as root: %1").arg(program)},
        {QStringLiteral("systemctl start tvfilemon"), QStringLiteral("start it as root: %1").arg(program)},
    };
    for (const auto& [command, other] : others) {
        advice.replace(command, other);
    }
    return advice;
}
