#include "tvctl/commands/quarantinedeletecommand.h"

#include "common/common.h"
#include "common/filename.h"
#include "tvctl/commands/quarantineaccess.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/timeargument.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/toolerror.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

namespace
{
struct Arguments
{
    std::vector<std::string> names;
    std::string olderThan;
};

/// Copies to delete, and what each would free.
struct Selection
{
    QVector<QByteArray> names;
    QVector<qint64> sizes;
};

Selection selectByName(const Quarantine& quarantine, const std::vector<std::string>& arguments)
{
    Selection selection;
    for (const std::string& argument : arguments) {
        const QByteArray name = QByteArray::fromStdString(argument);
        if (selection.names.contains(name)) {
            continue;
        }
        const auto entry = quarantine.entry(name);
        selection.names.append(name);
        selection.sizes.append(entry ? entry->size : 0);
    }
    return selection;
}

Selection selectByAge(const QuarantineListing& listing, const QDateTime& before)
{
    Selection selection;
    for (const QuarantineEntry& entry : listing.entries) {
        if (entry.time < before) {
            selection.names.append(entry.name);
            selection.sizes.append(entry.size);
        }
    }
    return selection;
}

/// Deletes them and tells what came of it.
ExitCode remove(Session& session, const Quarantine& quarantine, const Selection& selection)
{
    Output& output = session.output();
    const QVector<int> errors = quarantine.remove(selection.names);
    QJsonArray deleted;
    QJsonArray failed;
    qint64 freed = 0;
    for (int i = 0; i < errors.size(); ++i) {
        const QByteArray& name = selection.names.at(i);
        QJsonObject object;
        JsonText::insertPath(object, QStringLiteral("name"), FileName::toText(name));
        if (errors.at(i) == 0) {
            freed += selection.sizes.at(i);
            deleted.append(object);
            continue;
        }
        const QString problem = QuarantineAccess::problemOf(name, errors.at(i));
        output.error(problem);
        object.insert(QStringLiteral("reason"), FileName::toDisplay(problem));
        failed.append(object);
    }
    output.line(QStringLiteral("deleted %1, %2")
                    .arg(QuarantineAccess::countText(deleted.size()),
                         Common::getSizeInString(static_cast<unsigned long long>(freed))));
    if (output.isJson()) {
        output.document({{QStringLiteral("deleted"), deleted},
                         {QStringLiteral("failed"), failed},
                         {QStringLiteral("freed"), freed}});
    }
    return failed.isEmpty() ? ExitCode::Good : ExitCode::Error;
}

ExitCode run(Session& session, const Arguments& arguments)
{
    const bool isByAge = !arguments.olderThan.empty();
    if (!isByAge && arguments.names.empty()) {
        throw ToolError(QStringLiteral("name copies to delete, or say --older-than TIME; see tvctl "
                                       "quarantine list"));
    }
    const QDateTime before = timeOf(arguments.olderThan, "--older-than");
    const Quarantine quarantine = QuarantineAccess::open(session);
    return remove(session, quarantine,
                  isByAge ? selectByAge(QuarantineAccess::list(session, quarantine), before)
                          : selectByName(quarantine, arguments.names));
}
} // namespace

void addQuarantineDelete(const Command& quarantine)
{
    const Command command = quarantine.addCommand("delete", "Delete copies for good");
    auto arguments = std::make_shared<Arguments>();
    const CommandOption names =
        command.addOption("NAME", arguments->names, "Copies, as tvctl quarantine list names them");
    command.addOption("--older-than", arguments->olderThan, "All that were made before: 90d, 2026-11-21 ...")
        .notWith(names)
        .named("TIME");
    command.setAction([arguments](Session& session) { return run(session, *arguments); });
}
