#include "tvctl/commands/quarantineaccess.h"

#include "common/filename.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/installation/storeaccess.h"
#include "tvctl/quarantine/quarantineorigins.h"

#include <QFileInfo>

#include <cerrno>

Quarantine QuarantineAccess::open(const Session& session)
{
    const Installation& installation = session.installation();
    Quarantine quarantine(FileName::toBytes(installation.quarantine()));
    if (quarantine.error() == ENOENT && !QFileInfo(installation.settings()).isDir()) {
        throw ToolError(QStringLiteral("there is no %1: start tvfilemon once, or name its root with --root")
                            .arg(installation.quarantine()));
    }
    if (quarantine.error() != 0 && quarantine.error() != ENOENT) {
        throw ToolError(QStringLiteral("cannot look into %1: %2%3")
                            .arg(installation.quarantine(), qt_error_string(quarantine.error()),
                                 StoreAccess::privilegeHint()));
    }
    return quarantine;
}

QuarantineListing QuarantineAccess::list(const Session& session, const Quarantine& quarantine)
{
    if (quarantine.error() == ENOENT) {
        return {};
    }
    QuarantineListing listing = quarantine.list();
    if (listing.error != 0) {
        throw ToolError(QStringLiteral("cannot read %1: %2%3")
                            .arg(session.installation().quarantine(), qt_error_string(listing.error),
                                 StoreAccess::privilegeHint()));
    }
    return listing;
}

QString QuarantineAccess::problemOf(const QByteArray& name, int error)
{
    const QString shown = FileName::toText(name);
    switch (error) {
    case ENOENT:
        return QStringLiteral("there is no copy %1 in quarantine; see tvctl quarantine list").arg(shown);
    case EINVAL:
        return QStringLiteral("%1 in quarantine is no regular file, so no copy; leave it alone").arg(shown);
    default:
        return QStringLiteral("%1 in quarantine: %2%3")
            .arg(shown, qt_error_string(error), StoreAccess::privilegeHint());
    }
}

bool QuarantineAccess::identify(Session& session, QVector<QuarantineEntry>& entries,
                                const std::vector<std::string>& candidates)
{
    if (entries.isEmpty()) {
        return true;
    }
    QuarantineOrigins origins(entries);
    for (const std::string& candidate : candidates) {
        // As it is given as well: modules may name files in ways that nobody would write.
        origins.addCandidate(QByteArray::fromStdString(candidate));
        origins.addCandidate(FileName::toBytes(pathOf(candidate)));
    }
    bool isRead = false;
    try {
        session.requireReports();
        isRead = origins.readRecords();
        if (!isRead) {
            throw ToolError(StoreAccess::notRead(QStringLiteral("the detection records")));
        }
    } catch (const ToolError& error) {
        session.output().warning(QStringLiteral("they do not tell where copies came from: ") +
                                 error.message());
    }
    origins.identify(entries);
    return isRead;
}

void QuarantineAccess::addCandidatesOption(const Command& command, std::vector<std::string>& candidates)
{
    command
        .addOption("--path", candidates,
                   "A path that a copy may have come from, when the records do not tell; may be repeated")
        .repeatable()
        .named("PATH");
}

QString QuarantineAccess::countText(int copies)
{
    return copies == 1 ? QStringLiteral("1 copy") : QStringLiteral("%1 copies").arg(copies);
}
