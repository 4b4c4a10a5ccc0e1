#include "tvctl/health/verdict.h"

#include "tvctl/health/databasechecks.h"

namespace
{
QString reasonOfSilence(const ServiceFacts& service)
{
    if (service.isLoading()) {
        return QStringLiteral("tvfilemon is still loading its signatures");
    }
    if (!service.processes.isEmpty() && service.processes.first().isStopped) {
        return QStringLiteral("tvfilemon was stopped by somebody (process %1)")
            .arg(service.processes.first().id);
    }
    return service.probe.problem;
}

QString reasonOfBlindness(const ServiceFacts& service, const SignatureFiles& files)
{
    if (service.probe.engine != EngineProbe::Result::Clean) {
        return QStringLiteral("the engine does not work");
    }
    if (service.load.result == LoadOutcome::Result::Failed) {
        return service.load.file.isEmpty()
                   ? QStringLiteral("the signatures could not be loaded, so nothing is found")
                   : QStringLiteral("%1 could not be loaded, so nothing is found").arg(service.load.file);
    }
    if (files.areComing) {
        return QStringLiteral(
            "there are no signatures yet, so nothing is found: the first update is running");
    }
    return files.loaded.isEmpty() ? QStringLiteral("there are no signatures, so nothing is found")
                                  : QStringLiteral("the engine finds nothing, not even the test pattern");
}

void addReasons(Verdict& verdict, const ServiceFacts& service, const StoreFacts& stores,
                const SignatureFiles& files, const WatchFacts& watches)
{
    if (!service.probe.answers() && !service.isBarred()) {
        verdict.reasons += reasonOfSilence(service);
    } else if (service.probe.answers() && !service.probe.detects()) {
        verdict.reasons += reasonOfBlindness(service, files);
    }
    if (stores.hasSettings() && !stores.isRealtimeOn) {
        verdict.reasons += QStringLiteral("real-time protection is switched off");
    }
    if (service.probe.answers() && watches.use && watches.use->watched.isEmpty()) {
        verdict.reasons += QStringLiteral("no directory is watched");
    }
}

void addWarnings(Verdict& verdict, const ServiceFacts& service, const StoreFacts& stores,
                 const SignatureFiles& files, const WatchFacts& watches, const QDateTime& now)
{
    const SignatureFile* freshest = files.freshest();
    const qint64 days = freshest == nullptr ? 0 : DatabaseChecks::ageInDays(freshest->header->built, now);
    if (days > DatabaseChecks::maxAgeDays) {
        verdict.warnings +=
            QStringLiteral("the signatures are %1 days old: systemctl start tvfilemon-update").arg(days);
    }
    for (const SignatureFile& file : files.loaded) {
        if (!file.problem.isEmpty()) {
            verdict.warnings += QStringLiteral("%1: %2").arg(file.name, file.problem);
        }
    }
    // Else it may be a new file that is not loaded yet.
    if (service.probe.detects() && service.load.result == LoadOutcome::Result::Failed) {
        verdict.warnings += QStringLiteral("the log says that the signatures could not be loaded");
    }
    if (stores.hasSettings() && stores.scanAction == 0) {
        verdict.warnings += QStringLiteral("infected files are reported only, and stay where they are");
    }
    if (watches.use && !watches.use->watched.isEmpty() && watches.need.unwatched > 0) {
        verdict.warnings += QStringLiteral("%1 of %2 directories are not watched: see tvctl doctor")
                                .arg(watches.need.unwatched)
                                .arg(watches.need.directories);
    }
    if (watches.limits.watches >= 0 && watches.need.directories > watches.limits.watches) {
        verdict.warnings += QStringLiteral("%1 directories have to be watched, the kernel lets %2: see tvctl "
                                           "doctor")
                                .arg(watches.need.directories)
                                .arg(watches.limits.watches);
    }
    if (!stores.hasReports()) {
        verdict.warnings += stores.reportsProblem;
    }
}
} // namespace

QString Verdict::text() const
{
    switch (state) {
    case State::Protected:
        return QStringLiteral("Protected.");
    case State::NotProtected:
        return QStringLiteral("NOT PROTECTED: ") + reasons.join(QStringLiteral("; "));
    default:
        return QStringLiteral("Cannot tell: ") + reasons.join(QStringLiteral("; "));
    }
}

Verdict judge(const ServiceFacts& service, const StoreFacts& stores, const SignatureFiles& files,
              const WatchFacts& watches, const QDateTime& now)
{
    Verdict verdict;
    addReasons(verdict, service, stores, files, watches);
    if (!verdict.reasons.isEmpty()) {
        verdict.state = Verdict::State::NotProtected;
    } else if (service.isBarred()) {
        verdict.reasons += QStringLiteral("only root may ask tvfilemon: sudo tvctl status");
    } else if (!stores.hasSettings()) {
        verdict.reasons += stores.settingsProblem;
    } else {
        verdict.state = Verdict::State::Protected;
    }
    addWarnings(verdict, service, stores, files, watches, now);
    return verdict;
}
