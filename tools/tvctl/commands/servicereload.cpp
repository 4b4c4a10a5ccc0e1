#include "tvctl/commands/servicereload.h"

#include "tvctl/commands/session.h"

const std::map<std::string, ReloadPart>& reloadParts()
{
    static const std::map<std::string, ReloadPart> table = {
        {"db", ReloadPart::Databases},
        {"settings", ReloadPart::Settings},
        {"ioc-db", ReloadPart::IocLists},
        {"ioc-settings", ReloadPart::IocSettings},
    };
    return table;
}

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

ServiceReload::ServiceReload(Session& session, bool isWanted)
    : ServiceReload(session, isWanted, QStringLiteral("stored"))
{
}

ServiceReload::ServiceReload(Session& session, bool isWanted, const QString& before)
    : m_session(session),
      m_isWanted(isWanted),
      m_before(before)
{
}

ServiceReload ServiceReload::ofNothingStored(Session& session)
{
    return {session, true, QString()};
}

ExitCode ServiceReload::run(const QVector<ReloadPart>& parts, QJsonObject& document)
{
    const QString problem = attempt(parts, document);
    if (problem.isEmpty()) {
        return ExitCode::Good;
    }
    m_session.output().error(QStringLiteral("%1tvfilemon did not reload: %2; %3")
                                 .arg(m_before.isEmpty() ? QString() : m_before + QStringLiteral(", but "),
                                      problem, advice(parts)));
    return ExitCode::Error;
}

QString ServiceReload::attempt(const QVector<ReloadPart>& parts, QJsonObject& document)
{
    Output& output = m_session.output();
    m_problem.clear();
    const QString what = result(parts);
    document.insert(QStringLiteral("reload"), what);
    if (what == QLatin1String("service down")) {
        output.line(QStringLiteral("tvfilemon does not run; it reads this when it starts"));
    } else if (what == QLatin1String("not asked")) {
        output.line(
            QStringLiteral("tvfilemon was not told; it reads this when it starts or is told to reload"));
    }
    return m_problem;
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
        m_session.output().note((m_before.isEmpty() ? QString() : m_before + QStringLiteral("; ")) +
                                QStringLiteral("waiting for tvfilemon, which is busy ..."));
    });
    if (!connection.open()) {
        m_isBarred = connection.state() == ServiceConnection::State::Barred;
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

QString ServiceReload::advice(const QVector<ReloadPart>& parts) const
{
    QStringList commands;
    for (const auto& part : reloadParts()) {
        if (parts.contains(part.second)) {
            commands +=
                (m_isBarred ? QStringLiteral("sudo tvctl reload ") : QStringLiteral("tvctl reload ")) +
                QString::fromStdString(part.first);
        }
    }
    if (!m_isBarred) {
        commands += QStringLiteral("or tvctl doctor");
    }
    return QStringLiteral("try ") + commands.join(QStringLiteral(", "));
}

void addNoReloadFlag(const Command& command, bool& isWithoutReload)
{
    command.addFlag("--no-reload", isWithoutReload, "Do not tell a running service");
}
