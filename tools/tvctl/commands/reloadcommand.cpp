#include "tvctl/commands/reloadcommand.h"

#include "tvctl/commands/servicereload.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/toolerror.h"

#include <QJsonObject>

#include <memory>
#include <string>

namespace
{
/// The same, but a service that does not run is no failure.
ExitCode reloadIfRunning(Session& session, const std::string& name)
{
    Output& output = session.output();
    const QString shown = QString::fromStdString(name);
    QJsonObject document = {{QStringLiteral("reloaded"), QJsonValue::Null}};
    const ExitCode code = ServiceReload::ofNothingStored(session).run({reloadParts().at(name)}, document);
    if (document.value(QStringLiteral("reload")) == QLatin1String("done")) {
        output.line(QStringLiteral("reloaded: %1").arg(shown));
        document.insert(QStringLiteral("reloaded"), shown);
    }
    if (output.isJson()) {
        output.document(document);
    }
    return code;
}

ExitCode reload(Session& session, const std::string& name)
{
    const QString shown = QString::fromStdString(name);
    const QByteArray reply = session.ask(makeRequest(commandOf(reloadParts().at(name))));
    if (ServiceReply::reload(reply) != ServiceReply::Reload::Succeeded) {
        throw ToolError(QStringLiteral("tvfilemon could not reload %1; its log tells why: %2")
                            .arg(shown, session.installation().logFile()));
    }
    Output& output = session.output();
    output.line(QStringLiteral("reloaded: %1").arg(shown));
    if (output.isJson()) {
        output.document({{QStringLiteral("reloaded"), shown}});
    }
    return ExitCode::Good;
}
} // namespace

void addReloadCommand(const Command& tool)
{
    const Command command = tool.addCommand("reload", "Make the running service read something anew");
    auto part = std::make_shared<std::string>();
    command.addOption("PART", *part, "db, settings, ioc-db or ioc-settings").required().oneOf(reloadParts());
    auto isOnlyIfRunning = std::make_shared<bool>(false);
    command.addFlag("--if-running", *isOnlyIfRunning, "A service that does not run is no error");
    command.setAction([part, isOnlyIfRunning](Session& session) {
        return *isOnlyIfRunning ? reloadIfRunning(session, *part) : reload(session, *part);
    });
}
