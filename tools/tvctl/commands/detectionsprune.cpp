#include "tvctl/commands/detectionsprune.h"

#include "platform/tvcore/virusconfig.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/timeargument.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/timetext.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/installation/storeaccess.h"

#include <QJsonObject>

#include <memory>
#include <string>

namespace
{
ExitCode prune(Session& session, const std::string& olderThan)
{
    const QDateTime before = timeOf(olderThan, "--older-than");
    session.requireReports();
    const qint64 removed = VirusConfig().removeVirusReports(before);
    if (removed < 0) {
        // It is done in steps, each for good.
        const QString reason = StoreAccess::takeMessage();
        throw ToolError(QStringLiteral("not all records older than %1 could be removed%2; try again")
                            .arg(TimeText::format(before),
                                 reason.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(reason)));
    }
    Output& output = session.output();
    output.line(QStringLiteral("removed %1 %2 older than %3")
                    .arg(QString::number(removed),
                         removed == 1 ? QStringLiteral("detection") : QStringLiteral("detections"),
                         TimeText::format(before)));
    if (output.isJson()) {
        output.document(
            {{QStringLiteral("removed"), removed}, {QStringLiteral("older_than"), JsonText::time(before)}});
    }
    return ExitCode::Good;
}
} // namespace

void addDetectionsPrune(const Command& detections)
{
    const Command command = detections.addCommand(
        "prune", "Remove old records; files in quarantine then no longer know where they came from");
    auto olderThan = std::make_shared<std::string>();
    command.addOption("--older-than", *olderThan, "What is removed: 90d, 2026-11-21 ...")
        .required()
        .named("TIME");
    command.setAction([olderThan](Session& session) { return prune(session, *olderThan); });
}
