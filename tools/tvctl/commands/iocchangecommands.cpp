#include "tvctl/commands/iocchangecommands.h"

#include "common/filename.h"
#include "tvctl/commands/hashtypeoption.h"
#include "tvctl/commands/servicereload.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/hashlists/harmlesshashes.h"
#include "tvctl/hashlists/hashtype.h"
#include "tvctl/installation/storeaccess.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QSet>

#include <memory>
#include <string>
#include <vector>

namespace
{
struct Arguments
{
    std::vector<std::string> hashes;
    HashTypeOption type;
    bool isRaw = false;
    bool isAll = false;
    bool isWithoutReload = false;
};

using HashesByType = QMap<IOCScanConfig::HASH_TYPE, QStringList>;

QString textOf(const std::string& argument)
{
    return FileName::toText(QByteArray::fromStdString(argument));
}

/// `done` hashes of other kinds were `doneWord` already: the lists are stored one after the other.
[[noreturn]] void failStoring(IOCScanConfig::HASH_TYPE type, int done, const QString& doneWord)
{
    throw ToolError(
        (done > 0 ? QStringLiteral("%1 of other kinds were %2, but ").arg(done).arg(doneWord) : QString()) +
        StoreAccess::notWritten(QStringLiteral("the list of %1 hashes").arg(HashPages::nameOf(type))));
}

ExitCode finish(Session& session, const Arguments& arguments, QJsonObject document)
{
    // The service keeps the lists in memory also while it does not look into them.
    const ExitCode code =
        ServiceReload(session, !arguments.isWithoutReload).run({ReloadPart::IocLists}, document);
    if (session.output().isJson()) {
        session.output().document(document);
    }
    return code;
}

/// What is to be added; throws when any of it is refused.
HashesByType checkedHashes(Output& output, const Arguments& arguments)
{
    HashesByType wanted;
    for (const std::string& argument : arguments.hashes) {
        const QString given = textOf(argument);
        const auto type = hashTypeOf(given);
        if (!type) {
            throw ToolError(
                QStringLiteral("\"%1\" is no MD5, SHA-1 or SHA-256: 32, 40 or 64 hexadecimal digits; "
                               "nothing was added")
                    .arg(given));
        }
        const QString lower = given.toLower();
        const QString harmless = harmlessContentOf(*type, lower.toStdString());
        if (!harmless.isEmpty()) {
            throw ToolError(
                QStringLiteral("%1 is the hash of %2, which sound files hold too; nothing was added")
                    .arg(given, harmless));
        }
        if (arguments.isRaw && given != lower) {
            output.warning(
                QStringLiteral("%1 never matches: the service looks hashes up in lower case").arg(given));
        }
        wanted[*type] += arguments.isRaw ? given : lower;
    }
    return wanted;
}

ExitCode add(Session& session, const Arguments& arguments)
{
    Output& output = session.output();
    const HashesByType wanted = checkedHashes(output, arguments);
    session.requireSettings();
    int added = 0;
    for (auto hashes = wanted.begin(); hashes != wanted.end(); ++hashes) {
        const int count = IOCScanConfig().addHashes(hashes.key(), hashes.value());
        if (count < 0) {
            failStoring(hashes.key(), added, QStringLiteral("added"));
        }
        added += count;
    }
    const int there = static_cast<int>(arguments.hashes.size()) - added;
    output.line(QStringLiteral("added: %1, duplicate: %2").arg(added).arg(there));
    return finish(session, arguments,
                  {{QStringLiteral("added"), added}, {QStringLiteral("duplicate"), there}});
}

/// The texts that may stand for an argument: as it was given, which somebody may have stored so, and in lower
/// case.
QStringList spellingsOf(const QString& given)
{
    QStringList spellings = {given, given.toLower()};
    spellings.removeDuplicates();
    return spellings;
}

/// Of `candidates`, those that a list holds.
QSet<QString> listed(const QSet<QString>& candidates)
{
    QSet<QString> found;
    for (const IOCScanConfig::HASH_TYPE type : HashPages::types()) {
        HashPages::forEach(type, [&candidates, &found](const QStringList& hashes) {
            for (const QString& hash : hashes) {
                if (candidates.contains(hash)) {
                    found.insert(hash);
                }
            }
        });
    }
    return found;
}

ExitCode remove(Session& session, const Arguments& arguments)
{
    session.requireSettings();
    QSet<QString> candidates;
    for (const std::string& argument : arguments.hashes) {
        for (const QString& spelling : spellingsOf(textOf(argument))) {
            candidates.insert(spelling);
        }
    }
    const QSet<QString> found = listed(candidates);
    int removed = 0;
    for (const IOCScanConfig::HASH_TYPE type : HashPages::types()) {
        // In all three: others may have put a text into any of them.
        const int count = found.isEmpty() ? 0 : IOCScanConfig().removeHashes(type, found.values());
        if (count < 0) {
            failStoring(type, removed, QStringLiteral("removed"));
        }
        removed += count;
    }
    Output& output = session.output();
    output.line(QStringLiteral("removed: %1").arg(removed));
    QJsonArray missing;
    for (const std::string& argument : arguments.hashes) {
        const QString given = textOf(argument);
        const QStringList spellings = spellingsOf(given);
        if (!QSet<QString>(spellings.begin(), spellings.end()).intersects(found)) {
            output.error(QStringLiteral("%1 is in none of the lists; see tvctl ioc list").arg(given));
            missing.append(FileName::toDisplay(given));
        }
    }
    const ExitCode code = finish(
        session, arguments, {{QStringLiteral("removed"), removed}, {QStringLiteral("missing"), missing}});
    return missing.isEmpty() ? code : ExitCode::Error;
}

ExitCode clear(Session& session, const Arguments& arguments)
{
    if (!arguments.type.isGiven() && !arguments.isAll) {
        throw ToolError(QStringLiteral("say which list to empty: --type md5, sha1 or sha256, or --all"));
    }
    session.requireSettings();
    IOCScanConfig config;
    int removed = 0;
    for (const IOCScanConfig::HASH_TYPE type : arguments.type.types()) {
        const int count = config.getHashCount(type);
        if (!config.clearHashList(type)) {
            failStoring(type, removed, QStringLiteral("removed"));
        }
        removed += qMax(count, 0);
    }
    session.output().line(QStringLiteral("removed: %1").arg(removed));
    return finish(session, arguments, {{QStringLiteral("removed"), removed}});
}

using Run = ExitCode (*)(Session&, const Arguments&);

Command declare(const Command& ioc, const char* name, const char* description, Run run,
                const std::shared_ptr<Arguments>& arguments)
{
    const Command command = ioc.addCommand(name, description);
    addNoReloadFlag(command, arguments->isWithoutReload);
    command.setAction([arguments, run](Session& session) { return run(session, *arguments); });
    return command;
}
} // namespace

void addIocChangeCommands(const Command& ioc)
{
    const auto added = std::make_shared<Arguments>();
    const Command addition = declare(ioc, "add", "Add hashes to the lists", add, added);
    addition.addOption("HASH", added->hashes, "MD5, SHA-1 or SHA-256, in hexadecimal digits").required();
    addition.addFlag("--raw", added->isRaw, "Do not put them into lower case, the only form that matches");

    const auto removed = std::make_shared<Arguments>();
    declare(ioc, "remove", "Remove hashes from the lists", remove, removed)
        .addOption("HASH", removed->hashes, "As the lists hold them, or in upper case")
        .required();

    const auto cleared = std::make_shared<Arguments>();
    const Command clearing =
        declare(ioc, "clear", "Remove all hashes from a list, or from all", clear, cleared);
    const CommandOption type = cleared->type.addTo(clearing, "The list of this kind");
    clearing.addFlag("--all", cleared->isAll, "All three lists").notWith(type);
}
