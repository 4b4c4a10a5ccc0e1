#include "tvctl/commands/excludecommand.h"

#include "common/filename.h"
#include "platform/tvcore/scanconfig.h"
#include "platform/tvcore/tvcore.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/exclusioncheck.h"
#include "tvctl/commands/servicereload.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/health/watchneed.h"
#include "tvctl/installation/storeaccess.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace
{
struct Arguments
{
    std::string list = "files";
    std::vector<std::string> paths;
    bool isWithoutReload = false;
};

const std::map<std::string, ExclusionList>& lists()
{
    static const std::map<std::string, ExclusionList> table = {
        {"files", ExclusionList::Files},
        {"directories", ExclusionList::Directories},
        {"other", ExclusionList::Other},
    };
    return table;
}

ExclusionList listOf(const Arguments& arguments)
{
    return lists().at(arguments.list);
}

/// What a list that the service does not consult is good for.
void explain(Output& output, ExclusionList list)
{
    if (list == ExclusionList::Directories) {
        output.note(QStringLiteral("the service itself scans what is in these directories all the same; "
                                   "tvctl scan and tvctl sweep leave them out"));
    } else if (list == ExclusionList::Other) {
        output.note(
            QStringLiteral("neither the service nor tvctl consults this list; it is for other modules"));
    }
}

QJsonArray toJson(const QStringList& paths)
{
    QJsonArray array;
    for (const QString& path : paths) {
        QJsonObject object;
        JsonText::insertPath(object, QStringLiteral("path"), path);
        array.append(object);
    }
    return array;
}

ExitCode list(Session& session, const Arguments& arguments)
{
    session.requireSettings();
    const QSet<QString> stored = ScanConfig().getExcludeList(static_cast<int>(listOf(arguments)));
    StoreAccess::confirmSettings(session.installation());
    QStringList paths(stored.begin(), stored.end());
    std::sort(paths.begin(), paths.end());
    Output& output = session.output();
    for (const QString& path : qAsConst(paths)) {
        output.line(printable(path));
    }
    if (output.isJson()) {
        output.document({{QStringLiteral("list"), QString::fromStdString(arguments.list)},
                         {QStringLiteral("paths"), toJson(paths)}});
    }
    return ExitCode::Good;
}

/// Tells a running service and prints the document.
ExitCode finish(Session& session, const Arguments& arguments, QJsonObject document)
{
    // The service reads all three lists anew with its settings.
    const ExitCode code =
        ServiceReload(session, !arguments.isWithoutReload).run({ReloadPart::Settings}, document);
    if (session.output().isJson()) {
        session.output().document(document);
    }
    return code;
}

void store(const Arguments& arguments, const std::function<void(QSet<QString>&)>& change)
{
    if (!ScanConfig().changeExcludeList(static_cast<int>(listOf(arguments)), change)) {
        throw ToolError(StoreAccess::notWritten(QStringLiteral("the list of exclusions")));
    }
}

ExitCode add(Session& session, const Arguments& arguments)
{
    QStringList paths = pathsOf(arguments.paths);
    session.requireSettings();
    Output& output = session.output();
    explain(output, listOf(arguments));
    for (int i = 0; i < paths.size(); ++i) {
        const QString& path = paths.at(i);
        const QStringList warnings = exclusionWarnings(
            listOf(arguments), arguments.paths.at(static_cast<size_t>(i)), path, WatchNeed::watchedRoots());
        for (const QString& warning : warnings) {
            output.warning(path + QStringLiteral(": ") + warning);
        }
    }
    paths.removeDuplicates();
    QStringList added;
    store(arguments, [&paths, &added](QSet<QString>& stored) {
        added.clear();
        for (const QString& path : qAsConst(paths)) {
            if (!stored.contains(path)) {
                stored.insert(path);
                added += path;
            }
        }
    });
    for (const QString& path : qAsConst(paths)) {
        output.line(
            (added.contains(path) ? QStringLiteral("added: ") : QStringLiteral("is there already: ")) +
            printable(path));
    }
    return finish(session, arguments,
                  {{QStringLiteral("list"), QString::fromStdString(arguments.list)},
                   {QStringLiteral("added"), toJson(added)},
                   {QStringLiteral("already_there"), paths.size() - added.size()}});
}

ExitCode remove(Session& session, const Arguments& arguments)
{
    const QStringList paths = pathsOf(arguments.paths);
    session.requireSettings();
    QStringList removed;
    QStringList missing;
    store(arguments, [&arguments, &paths, &removed, &missing](QSet<QString>& stored) {
        removed.clear();
        missing.clear();
        for (int i = 0; i < paths.size(); ++i) {
            // As it is given first: others may have stored what `add` would not.
            const QString verbatim =
                FileName::toText(QByteArray::fromStdString(arguments.paths.at(static_cast<size_t>(i))));
            const QString& path = paths.at(i);
            if (stored.remove(verbatim)) {
                removed += verbatim;
            } else if (stored.remove(path)) {
                removed += path;
            } else if (!removed.contains(verbatim) && !removed.contains(path)) {
                missing += path;
            }
        }
    });
    Output& output = session.output();
    for (const QString& path : qAsConst(removed)) {
        output.line(QStringLiteral("removed: ") + printable(path));
    }
    for (const QString& path : qAsConst(missing)) {
        output.error(QStringLiteral("%1 is not in the list; see tvctl exclude list --list %2")
                         .arg(path, QString::fromStdString(arguments.list)));
    }
    const ExitCode code = finish(session, arguments,
                                 {{QStringLiteral("list"), QString::fromStdString(arguments.list)},
                                  {QStringLiteral("removed"), toJson(removed)},
                                  {QStringLiteral("missing"), toJson(missing)}});
    // A slip of the pen must not leave somebody believing that the file is scanned again.
    return missing.isEmpty() ? code : ExitCode::Error;
}

using Run = ExitCode (*)(Session&, const Arguments&);

std::shared_ptr<Arguments> declare(const Command& command, Run run)
{
    auto arguments = std::make_shared<Arguments>();
    command.addOption("--list", arguments->list, "Which list: files, the default, directories or other")
        .oneOf(lists());
    command.setAction([arguments, run](Session& session) { return run(session, *arguments); });
    return arguments;
}

void addChange(const Command& exclude, const char* name, const char* description, Run run)
{
    const Command command = exclude.addCommand(name, description);
    const auto arguments = declare(command, run);
    command.addOption("PATH", arguments->paths, "Files or directories, by their whole path").required();
    addNoReloadFlag(command, arguments->isWithoutReload);
}
} // namespace

void addExcludeCommand(const Command& tool)
{
    const Command exclude = tool.addGroup("exclude", "Show and change the lists of excluded paths");
    exclude.setFooter(
        "The service itself consults only the list of files, by the whole path. tvctl scan and tvctl\n"
        "sweep leave out what stands in the list of directories. Nothing here uses the third.");
    declare(exclude.addCommand("list", "Show a list"), list);
    addChange(exclude, "add", "Add paths", add);
    addChange(exclude, "remove", "Remove paths", remove);
}
