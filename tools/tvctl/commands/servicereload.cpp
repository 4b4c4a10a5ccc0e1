#include "tvctl/commands/servicereload.h"

#include "tvctl/commands/session.h"

QByteArray commandOf(ReloadPart part)
{
    switch (part) {
    case ReloadPart::Databases:
        return QByteArrayLiteral("RELOADDB");
    case ReloadPart::Settings:
        return QByteArrayLiteral("RELOADSETT");
    case ReloadPart::IocLists:
        return QByteArrayLiteral("RELOADIOCDB");
    default:
        return QByteArrayLiteral("RELOADIOCSETT");
    }
}

ServiceReload::ServiceReload(Session& session, bool isWanted) : m_session(session), m_isWanted(isWanted)
{
}

ExitCode ServiceReload::run(const QVector<ReloadPart>& parts, QJsonObject& document)
{
    Output& output = m_session.output();
    const QString what = result(parts);
    document.insert(QStringLiteral("reload"), what);
    if (what == QLatin1String("service down")) {
        output.line(QStringLiteral("tvfilemon does not run; it reads this when it starts"));
    } else if (what == QLatin1String("not asked")) {
        output.line(
            QStringLiteral("tvfilemon was not told; it reads this when it starts or is told to reload"));
    } else if (what == QLatin1String("failed")) {
        output.error(
            QStringLiteral("stored, but tvfilemon did not reload: %1; try tvctl reload, or tvctl doctor")
                .arg(m_problem));
        return ExitCode::Error;
    }
    return ExitCode::Good;
}

QString ServiceReload::result(const QVector<ReloadPart>& parts)
{
    if (parts.isEmpty()) {
        return QStringLiteral("not needed");
    }
    if (!m_isWanted) {
        return QStringLiteral("not asked");
    }
    ServiceConnection connection;
    connection.setSlowNotice([this] {
        m_session.output().note(QStringLiteral("stored; waiting for tvfilemon, which is busy ..."));
    });
    if (!connection.open()) {
        return connection.state() == ServiceConnection::State::Refused ? QStringLiteral("service down")
                                                                       : failed(connection.problem());
    }
    for (const ReloadPart part : parts) {
        const auto reply = connection.ask(makeRequest(commandOf(part)));
        if (!reply) {
            return failed(connection.problem());
        }
        if (ServiceReply::reload(*reply) != ServiceReply::Reload::Succeeded) {
            return failed(QStringLiteral("its log tells why (%1)").arg(m_session.installation().logFile()));
        }
    }
    return QStringLiteral("done");
}

QString ServiceReload::failed(const QString& reason)
{
    m_problem = reason;
    return QStringLiteral("failed");
}

void addNoReloadFlag(const Command& command, bool& isWithoutReload)
{
    command.addFlag("--no-reload", isWithoutReload, "Do not tell a running service");
}
