#include "tvctl/commands/cleancommand.h"

#include "common/filename.h"
#include "tvctl/commands/commandcapabilities.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/files/treewalker.h"
#include "tvctl/scanner/filecleaner.h"
#include "tvctl/scanner/handover.h"

#include <QJsonArray>
#include <QJsonObject>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace
{
using Result = FileCleaner::Result;

std::optional<bool> isReportOnly(Session& session)
{
    try {
        session.requireSettings();
        return FileCleaner::isReportOnlyStored();
    } catch (const ToolError&) {
        // Whoever may not read the settings may still ask the service.
        return std::nullopt;
    }
}

/// Why the service is not even asked to remove what `walker` stands at; empty when it may be asked.
QString problemOf(const TreeWalker& walker)
{
    switch (walker.kind()) {
    case TreeWalker::Kind::File:
        return {};
    case TreeWalker::Kind::Unreadable:
        return qt_error_string(walker.error());
    case TreeWalker::Kind::Other:
        return S_ISLNK(walker.status().st_mode) ? QStringLiteral("it is a symbolic link")
                                                : QStringLiteral("it is no regular file");
    default:
        return QStringLiteral("it is a folder");
    }
}

Result cleanOne(FileCleaner& cleaner, const QString& path, bool isHandedOver)
{
    TreeWalker walker(FileName::toBytes(path));
    const QString problem = walker.next() ? problemOf(walker) : qt_error_string(ENOENT);
    if (!problem.isEmpty()) {
        return {Result::Kind::NotRemoved, QStringLiteral("not removed: ") + problem};
    }
    return cleaner.clean(walker, isHandedOver ? std::make_optional(walker.status()) : std::nullopt);
}

ExitCode clean(Session& session, const QStringList& paths)
{
    Output& output = session.output();
    requireDroppedCapabilities();
    ServiceConnection& connection = session.service();
    const bool isHandedOver = HandOver::isPossible(connection);
    FileCleaner cleaner(connection, session.installation(), isReportOnly(session));
    QJsonArray results;
    bool isAllRemoved = true;
    for (const QString& path : paths) {
        Result result = cleanOne(cleaner, path, isHandedOver);
        const bool isServed = result.kind != Result::Kind::NoService;
        if (!isServed) {
            result.text = QStringLiteral("%1: %2").arg(connection.problem(), result.text);
        }
        const bool isRemoved = result.kind == Result::Kind::Removed;
        isAllRemoved = isAllRemoved && isRemoved;
        const QString line = QStringLiteral("%1: %2").arg(path, result.text);
        if (isRemoved) {
            output.line(printable(line));
        } else {
            output.error(line);
        }
        QJsonObject object;
        JsonText::insertPath(object, QStringLiteral("path"), path);
        object.insert(QStringLiteral("action"), FileCleaner::nameOf(result.kind));
        object.insert(QStringLiteral("detail"), result.text);
        results.append(object);
        if (!isServed) {
            break;
        }
    }
    if (output.isJson()) {
        output.document({{QStringLiteral("results"), results}});
    }
    return isAllRemoved ? ExitCode::Good : ExitCode::Error;
}
} // namespace

void addCleanCommand(const Command& tool)
{
    const Command command =
        tool.addCommand("clean", "Have files put into quarantine and removed, infected or not");
    command.setFooter(
        "Nobody looks whether a file is infected: what is named here is removed, if the settings allow\n"
        "more than reports. Folders and symbolic links are refused.");
    auto paths = std::make_shared<std::vector<std::string>>();
    command.addOption("PATH", *paths, "Files to remove").required();
    command.setAction([paths](Session& session) { return clean(session, pathsOf(*paths)); });
}
