#include "tvctl/commands/cleancommand.h"

#include "common/filename.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/scanner/filecleaner.h"

#include <CLI/CLI.hpp>

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

/// Why the service is not even asked to remove what is at `path`; empty when it may be asked.
QString problemOf(const QString& path)
{
    struct stat status = {};
    if (::lstat(FileName::toBytes(path).constData(), &status) != 0) {
        return qt_error_string(errno);
    }
    if (S_ISREG(status.st_mode)) {
        return {};
    }
    if (S_ISDIR(status.st_mode)) {
        return QStringLiteral("it is a folder");
    }
    return S_ISLNK(status.st_mode) ? QStringLiteral("it is a symbolic link")
                                   : QStringLiteral("it is no regular file");
}

Result cleanOne(FileCleaner& cleaner, const QString& path)
{
    const QString problem = problemOf(path);
    return problem.isEmpty() ? cleaner.clean(path)
                             : Result{Result::Kind::NotRemoved, QStringLiteral("not removed: ") + problem};
}

ExitCode clean(Session& session, const std::vector<std::string>& arguments)
{
    Output& output = session.output();
    ServiceConnection& connection = session.service();
    FileCleaner cleaner(connection, session.installation(), isReportOnly(session));
    QJsonArray results;
    bool isAllRemoved = true;
    for (const QString& path : pathsOf(arguments)) {
        Result result = cleanOne(cleaner, path);
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

void addCleanCommand(CLI::App& tool, Action& chosen)
{
    CLI::App* command =
        tool.add_subcommand("clean", "Have files put into quarantine and removed, infected or not");
    command->footer(
        "Nobody looks whether a file is infected: what is named here is removed, if the settings allow\n"
        "more than reports. Folders and symbolic links are refused.");
    auto paths = std::make_shared<std::vector<std::string>>();
    command->add_option("PATH", *paths, "Files to remove")->required();
    command->callback([paths, &chosen] {
        chosen = [paths](Session& session) {
            return clean(session, *paths);
        };
    });
}
