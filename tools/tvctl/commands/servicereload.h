#pragma once

#include "tvctl/client/servicereply.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/exitcode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QVector>

/// What the running service can read anew.
enum class ReloadPart
{
    Databases,
    Settings,
    IocLists,
    IocSettings
};

/// The protocol's command.
QByteArray commandOf(ReloadPart part);

/// Lets a running service know that the store has changed, and says what came of it: on standard output,
/// in JSON under "reload" as "done", "failed", "service down" or "not asked". A service that does not run
/// reads the change when it starts, which is no failure. Returns ExitCode::Error when the service could not
/// do it.
class ServiceReload
{
public:
    /// `isWanted` false for `--no-reload`.
    ServiceReload(Session& session, bool isWanted);

    ExitCode run(const QVector<ReloadPart>& parts, QJsonObject& document);

private:
    QString result(const QVector<ReloadPart>& parts);

    Session& m_session;
    const bool m_isWanted;
};
