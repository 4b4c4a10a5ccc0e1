#pragma once

#include "tvctl/client/servicereply.h"
#include "tvctl/commands/session.h"
#include "tvctl/commandtree/command.h"
#include "tvctl/console/exitcode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QVector>

#include <map>
#include <string>

/// What the running service can read anew.
enum class ReloadPart
{
    Databases,
    Settings,
    IocLists,
    IocSettings
};

/// By the names that the command line has for them.
const std::map<std::string, ReloadPart>& reloadParts();

/// The protocol's command.
QByteArray commandOf(ReloadPart part);

/// Lets a running service know that the store has changed, and says what came of it: on standard output,
/// in JSON under "reload" as "done", "failed", "service down", "not asked" or "not needed". A service that
/// does not run reads the change when it starts, which is no failure.
class ServiceReload
{
public:
    /// `isWanted` false for `--no-reload`.
    ServiceReload(Session& session, bool isWanted);

    /// For a reload by itself, which no change of the store went before.
    static ServiceReload ofNothingStored(Session& session);

    /// `parts` is empty for a change that the service sees by itself. ExitCode::Error when the service runs
    /// and could not do it; the reason was told.
    ExitCode run(const QVector<ReloadPart>& parts, QJsonObject& document);

    /// The same, but a failure is not told: the result is why the service could not do it, empty otherwise.
    QString attempt(const QVector<ReloadPart>& parts, QJsonObject& document);

private:
    ServiceReload(Session& session, bool isWanted, const QString& before);

    QString result(const QVector<ReloadPart>& parts);
    QString failed(const QString& reason);
    QString advice(const QVector<ReloadPart>& parts) const;

    Session& m_session;
    const bool m_isWanted;
    /// What goes before the words about the reload.
    const QString m_before;
    QString m_problem;
    /// The firewall does not let this user ask the service.
    bool m_isBarred = false;
};

/// Adds `--no-reload` to a command that changes the store.
void addNoReloadFlag(const Command& command, bool& isWithoutReload);
