#include "tvctl/commands/quarantinerestorecommand.h"

#include "common/filename.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/quarantineaccess.h"
#include "tvctl/commands/restoreexclusion.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/modetext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/installation/storeaccess.h"
#include "tvctl/quarantine/quarantinerestore.h"

#include <QDir>
#include <QJsonObject>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

struct Arguments
{
    std::string name;
    std::optional<std::string> target;
    std::vector<std::string> candidates;
    bool isToBeExcluded = false;
    bool isCopyKept = false;
};

QString originOf(Session& session, const QuarantineEntry& entry, const std::vector<std::string>& candidates)
{
    QVector<QuarantineEntry> entries = {entry};
    QuarantineAccess::identify(session, entries, candidates);
    const QString path = FileName::toText(entries.constFirst().originalPath);
    if (path.isEmpty()) {
        throw ToolError(QStringLiteral("where %1 came from is not known; say where to put it with --to, or "
                                       "where it may have been with --path")
                            .arg(FileName::toText(entry.name)));
    }
    // Without double slashes it is the path that file events come with. ".." is left for restoring to
    // refuse: links may stand in front of it.
    return path.contains(QLatin1String("..")) ? path : QDir::cleanPath(path);
}

QString targetOf(Session& session, const QuarantineEntry& entry, const Arguments& arguments)
{
    if (!arguments.target) {
        return originOf(session, entry, arguments.candidates);
    }
    return pathOf(*arguments.target);
}

QString noDirectoryText(const QString& target, int error)
{
    switch (error) {
    case ENOENT:
        return QStringLiteral("the folder of %1 is not there; make it, or name another path with --to")
            .arg(target);
    case ENOTDIR:
        return QStringLiteral("what %1 would lie in is no folder, or behind a symbolic link, which is not "
                              "followed; name another path with --to")
            .arg(target);
    default:
        return QStringLiteral("cannot enter the folder of %1: %2; name another path with --to")
            .arg(target, qt_error_string(error));
    }
}

/// Why nothing was given back, and what to do.
QString problemOf(const RestoreResult& result, const QByteArray& name, const QString& target)
{
    switch (result.outcome) {
    case RestoreOutcome::NoCopy:
        return QuarantineAccess::problemOf(name, result.error);
    case RestoreOutcome::BadTarget:
        return QStringLiteral("%1 is no full path of a file without \"..\"; name another path with --to")
            .arg(target);
    case RestoreOutcome::NoDirectory:
        return noDirectoryText(target, result.error);
    case RestoreOutcome::TargetExists:
        return QStringLiteral("something is at %1 already, and nothing is overwritten; move it away, or "
                              "name another path with --to")
            .arg(target);
    case RestoreOutcome::Vanished:
        return QStringLiteral("%1 was taken away or replaced as soon as it appeared; the copy is still in "
                              "quarantine; see tvctl detections list, and --exclude")
            .arg(target);
    default:
        return QStringLiteral("cannot write %1: %2; name another path with --to")
            .arg(target, qt_error_string(result.error));
    }
}

/// Says in what the restored file is not what it was.
void explain(Output& output, const QuarantineEntry& entry, const RestoreResult& result)
{
    constexpr mode_t specialBits = S_ISUID | S_ISGID | S_ISVTX;
    if (!result.isOriginalKnown) {
        output.warning(QStringLiteral("nobody knows whose the file was: it belongs to root alone, mode %1")
                           .arg(modeText(result.mode)));
        return;
    }
    if (!result.isInOwnersDirectory) {
        output.warning(
            QStringLiteral("its folder belongs to another user than the file did (%1): it belongs to "
                           "root alone, mode %2; look at it, then chown and chmod it")
                .arg(entry.original ? QString::number(entry.original->uid) : QString(),
                     modeText(result.mode)));
    } else if (!result.hasOriginalOwner) {
        output.warning(QStringLiteral("it could not be given its owner back, so not its permissions either: "
                                      "owner %1, mode %2")
                           .arg(QString::number(result.uid), modeText(result.mode)));
    } else if (!result.hasOriginalMode) {
        output.warning(
            QStringLiteral("it could not be given its permissions back: mode %1").arg(modeText(result.mode)));
    }
    if (!result.hasOriginalTime) {
        output.warning(QStringLiteral("it could not be given its time of change back"));
    }
    if (entry.original && (entry.original->mode & specialBits) != 0) {
        output.note(QStringLiteral("the set-id or sticky bits that it had (mode %1) are not given back")
                        .arg(modeText(entry.original->mode)));
    }
}

QString fateOfCopy(const RestoreResult& result, bool isKept)
{
    if (isKept) {
        return QStringLiteral("kept");
    }
    return result.outcome == RestoreOutcome::Restored ? QStringLiteral("removed")
                                                      : QStringLiteral("not removed");
}

void insertResult(QJsonObject& document, const RestoreResult& result)
{
    document.insert(QStringLiteral("size"), result.size);
    document.insert(QStringLiteral("mode"), modeText(result.mode));
    document.insert(QStringLiteral("uid"), qint64(result.uid));
    document.insert(QStringLiteral("gid"), qint64(result.gid));
    document.insert(QStringLiteral("owner_restored"), result.hasOriginalOwner);
    document.insert(QStringLiteral("mode_restored"), result.hasOriginalMode);
    document.insert(QStringLiteral("mtime_restored"), result.hasOriginalTime);
}

ExitCode restore(Session& session, const Arguments& arguments)
{
    if (::geteuid() != 0) {
        throw ToolError(QStringLiteral("giving a file back needs root") + StoreAccess::privilegeHint());
    }
    Output& output = session.output();
    const QByteArray name = QByteArray::fromStdString(arguments.name);
    const Quarantine quarantine = QuarantineAccess::open(session);
    const auto entry = quarantine.entry(name);
    if (!entry) {
        throw ToolError(QuarantineAccess::problemOf(name, errno));
    }
    const QString target = targetOf(session, *entry, arguments);

    QJsonObject document = {{QStringLiteral("name"), FileName::toText(name)}};
    JsonText::insertPath(document, QStringLiteral("path"), target);
    RestoreExclusion exclusion(session, target);
    if (arguments.isToBeExcluded) {
        exclusion.add(document);
    }
    const bool isExcluded = arguments.isToBeExcluded || exclusion.isStored();
    if (!isExcluded) {
        output.warning(
            QStringLiteral("%1 is not excluded and will be detected again, at once where tvfilemon "
                           "watches (/home, /media); --exclude prevents that")
                .arg(target));
    }
    document.insert(QStringLiteral("excluded"), isExcluded);

    const RestoreResult result =
        restoreFromQuarantine(quarantine, name, FileName::toBytes(target), {arguments.isCopyKept});
    if (!result.isRestored()) {
        exclusion.takeBack();
        throw ToolError(problemOf(result, name, target));
    }
    output.line(QStringLiteral("restored: %1 (mode %2, owner %3, group %4)")
                    .arg(printable(target), modeText(result.mode), QString::number(result.uid),
                         QString::number(result.gid)));
    explain(output, *entry, result);
    if (result.outcome == RestoreOutcome::CopyNotRemoved) {
        output.error(QStringLiteral("the copy could not be removed: %1; try tvctl quarantine delete %2")
                         .arg(qt_error_string(result.error), FileName::toText(name)));
    }
    if (output.isJson()) {
        insertResult(document, result);
        document.insert(QStringLiteral("copy"), fateOfCopy(result, arguments.isCopyKept));
        output.document(document);
    }
    return result.outcome == RestoreOutcome::Restored ? ExitCode::Good : ExitCode::Error;
}
} // namespace

void addQuarantineRestore(const Command& quarantine)
{
    const Command command = quarantine.addCommand("restore", "Give a file back");
    command.setFooter(
        "Nothing is overwritten, no link is followed, and set-id bits are not given back. The file will\n"
        "be detected again unless it is excluded.");
    auto arguments = std::make_shared<Arguments>();
    command.addOption("NAME", arguments->name, "The copy, as tvctl quarantine list names it").required();
    command.addOption("--to", arguments->target, "Where to put the file, instead of where it was")
        .named("PATH");
    QuarantineAccess::addCandidatesOption(command, arguments->candidates);
    command.addFlag("--exclude", arguments->isToBeExcluded,
                    "Put the path into the list of excluded files first, and let a running service know");
    command.addFlag("--keep", arguments->isCopyKept, "Leave the copy in the quarantine");
    command.setAction([arguments](Session& session) { return restore(session, *arguments); });
}
