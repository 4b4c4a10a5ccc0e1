#include "tvctl/health/databasechecks.h"

#include "tvctl/client/servicereply.h"
#include "tvctl/console/timetext.h"
#include "tvctl/health/advice.h"

#include <QStringList>

namespace
{
constexpr qint64 daySeconds = 24LL * 60 * 60;
} // namespace

Finding DatabaseChecks::databases(const SignatureFiles& files, const QString& directory)
{
    const QString name = QStringLiteral("databases");
    if (!files.problem.isEmpty()) {
        return Finding::failed(name, QStringLiteral("%1: %2").arg(directory, files.problem),
                               QStringLiteral("mend the directory, then tvctl reload db"));
    }
    for (const SignatureFile& file : files.loaded) {
        if (!file.problem.isEmpty()) {
            return Finding::failed(name,
                                   QStringLiteral("%1: %2, which keeps all signatures from being loaded")
                                       .arg(file.name, file.problem),
                                   QStringLiteral("remove it, then tvctl reload db; then ") +
                                       Advice::getSignatures());
        }
    }
    if (files.areComing) {
        return Finding::warning(
            name, QStringLiteral("there is no *.cvd in %1 yet: the first update is running").arg(directory),
            Advice::waitForFirstUpdate());
    }
    if (files.loaded.isEmpty()) {
        const QString others = files.ignored.isEmpty()
                                   ? QString()
                                   : QStringLiteral("; %1 is of a kind that the service does not load")
                                         .arg(files.ignored.first());
        return Finding::failed(name, QStringLiteral("there is no *.cvd in %1%2").arg(directory, others),
                               Advice::getSignatures());
    }
    if (!files.ignored.isEmpty()) {
        return Finding::warning(
            name,
            QStringLiteral("the service does not load %1").arg(files.ignored.join(QStringLiteral(", "))),
            QStringLiteral("it loads *.cvd alone: remove these files; then ") + Advice::getSignatures());
    }
    QStringList names;
    for (const SignatureFile& file : files.loaded) {
        names += QStringLiteral("%1 (version %2)").arg(file.name).arg(file.header ? file.header->version : 0);
    }
    return Finding::ok(name, names.join(QStringLiteral(", ")));
}

Finding DatabaseChecks::lastLoad(const LoadOutcome& load, const QString& logFile, bool isDetecting)
{
    const QString name = QStringLiteral("last_load");
    const auto failure = [&load] {
        return load.file.isEmpty()
                   ? QStringLiteral("the log says that it failed at %1").arg(TimeText::format(load.time))
                   : QStringLiteral("the log says that %1 could not be loaded at %2: %3")
                         .arg(load.file, TimeText::format(load.time),
                              ServiceReply::scanErrorText(load.errorCode));
    };
    switch (load.result) {
    case LoadOutcome::Result::Loaded:
        return Finding::ok(
            name, QStringLiteral("the log says that it succeeded at %1").arg(TimeText::format(load.time)));
    case LoadOutcome::Result::Failed:
        return isDetecting
                   ? Finding::warning(name,
                                      failure() + QStringLiteral("; yet the engine detects the test pattern, "
                                                                 "and a file's name can forge such a line"),
                                      QStringLiteral("load them again: tvctl reload db"))
                   : Finding::failed(name, failure(),
                                     QStringLiteral("mend the signature files, then tvctl reload db"));
    case LoadOutcome::Result::Starting:
    case LoadOutcome::Result::Loading:
        return Finding::warning(name, QStringLiteral("the log does not say yet what came of it"),
                                QStringLiteral("wait a minute, then look again"));
    default:
        return Finding::warning(name, QStringLiteral("the log does not tell: %1").arg(logFile),
                                QStringLiteral("load them again: tvctl reload db"));
    }
}

Finding DatabaseChecks::freshness(const SignatureFiles& files, const QDateTime& now)
{
    const QString name = QStringLiteral("signature_age");
    const SignatureFile* file = files.freshest();
    if (file == nullptr) {
        return Finding::warning(name, QStringLiteral("there is nothing that says its age"),
                                files.areComing ? Advice::waitForFirstUpdate() : Advice::getSignatures());
    }
    const qint64 days = ageInDays(file->header->built, now);
    const QString seen = QStringLiteral("%1 is %2 days old").arg(file->name).arg(days);
    return days > maxAgeDays ? Finding::failed(name, seen, Advice::getSignatures()) : Finding::ok(name, seen);
}

Finding DatabaseChecks::update(const std::optional<UpdateStatus>& status, const QDateTime& now)
{
    const QString name = QStringLiteral("update");
    if (!status) {
        return Finding::ok(name, QStringLiteral("tvfilemon-update has not been run yet"));
    }
    const QString seen =
        QStringLiteral("%1 at %2: %3").arg(status->result, TimeText::format(status->tried), status->message);
    if (!status->isGood()) {
        const QString fix = QStringLiteral("journalctl -u tvfilemon-update tells more; then "
                                           "systemctl start tvfilemon-update");
        const bool isForDays =
            status->succeeded.isValid() && ageInDays(status->succeeded, now) > maxDaysWithoutUpdate;
        return isForDays ? Finding::failed(name,
                                           QStringLiteral("none has succeeded since %1; the last one: ")
                                                   .arg(TimeText::format(status->succeeded)) +
                                               seen,
                                           fix)
                         : Finding::warning(name, seen, fix);
    }
    if (ageInDays(status->tried, now) > maxDaysWithoutUpdate) {
        return Finding::warning(name, QStringLiteral("the last one was ") + seen,
                                QStringLiteral("systemctl enable --now tvfilemon-update.timer"));
    }
    return Finding::ok(name, seen);
}

Finding DatabaseChecks::clock(const SignatureFiles& files, const QDateTime& now)
{
    const QString name = QStringLiteral("clock");
    for (const SignatureFile& file : files.loaded) {
        // Less than a day may be the clock of who made it.
        if (file.header && file.header->built.isValid() && now.secsTo(file.header->built) > daySeconds) {
            return Finding::warning(name,
                                    QStringLiteral("%1 was made at %2, which lies ahead")
                                        .arg(file.name, TimeText::format(file.header->built)),
                                    QStringLiteral("set the clock: timedatectl set-ntp true"));
        }
    }
    return Finding::ok(name, TimeText::format(now));
}

qint64 DatabaseChecks::ageInDays(const QDateTime& built, const QDateTime& now)
{
    return qMax<qint64>(0, built.secsTo(now)) / daySeconds;
}
