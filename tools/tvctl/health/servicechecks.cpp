#include "tvctl/health/servicechecks.h"

#include "tvctl/console/timetext.h"
#include "tvctl/health/advice.h"

#include <netinet/in.h>

using State = ServiceConnection::State;

namespace
{
QString guardThePort()
{
    return QStringLiteral("systemctl reload-or-restart tvfilemon-firewall");
}

QString whoListens()
{
    return QStringLiteral("find and end that program: ss -ltnp 'sport = :%1'").arg(ServiceConnection::port);
}

QString lastLoad(const LoadOutcome& load)
{
    switch (load.result) {
    case LoadOutcome::Result::Failed:
        return load.file.isEmpty() ? QStringLiteral("; its log says that the signatures could not be loaded")
                                   : QStringLiteral("; its log says that %1 could not be loaded: %2")
                                         .arg(load.file, ServiceReply::scanErrorText(load.errorCode));
    case LoadOutcome::Result::Loaded:
        return QStringLiteral("; its log says that the signatures were loaded at %1")
            .arg(TimeText::format(load.time));
    default:
        return {};
    }
}

Finding silentService(const ServiceFacts& facts)
{
    const QString name = QStringLiteral("service");
    if (facts.isLoading()) {
        return Finding::failed(name, QStringLiteral("it is still loading its signatures"),
                               QStringLiteral("wait a minute, then look again"));
    }
    if (!facts.processes.isEmpty() && facts.processes.first().isStopped) {
        const qint64 id = facts.processes.first().id;
        return Finding::failed(name, QStringLiteral("process %1 was stopped by somebody").arg(id),
                               QStringLiteral("kill -CONT %1").arg(id));
    }
    if (facts.processes.isEmpty()) {
        return Finding::failed(name, facts.probe.problem, QStringLiteral("systemctl start tvfilemon"));
    }
    return Finding::failed(
        name,
        QStringLiteral("process %1 runs, but: %2").arg(facts.processes.first().id).arg(facts.probe.problem),
        QStringLiteral("when it stays so: ") + Advice::restart());
}
} // namespace

Finding ServiceChecks::service(const ServiceFacts& facts)
{
    const QString name = QStringLiteral("service");
    if (facts.isBarred()) {
        return Finding::notChecked(name);
    }
    if (!facts.probe.answers()) {
        return silentService(facts);
    }
    if (facts.processes.isEmpty()) {
        return Finding::ok(name, QStringLiteral("it answers"));
    }
    const RunningProcess& process = facts.processes.first();
    if (facts.processes.size() > 1) {
        return Finding::warning(name, QStringLiteral("it runs %1 times").arg(facts.processes.size()),
                                QStringLiteral("end all but one, or all: then systemctl start tvfilemon"));
    }
    if (process.isOutdated) {
        return Finding::warning(name, QStringLiteral("it runs as it was before its program was replaced"),
                                Advice::restart());
    }
    return Finding::ok(name, QStringLiteral("process %1 answers, for %2")
                                 .arg(process.id)
                                 .arg(TimeText::formatSpan(process.uptimeSeconds)));
}

Finding ServiceChecks::portOwner(const ServiceFacts& facts, const Installation& installation, bool isRoot)
{
    const QString name = QStringLiteral("port_owner");
    for (const RunningProcess& holder : facts.holders) {
        bool isOurs = false;
        for (const RunningProcess& process : facts.processes) {
            isOurs = isOurs || process.id == holder.id;
        }
        if (!isOurs) {
            return Finding::failed(
                name,
                QStringLiteral("process %1, %2, listens on port %3, and not only %4")
                    .arg(holder.id)
                    .arg(holder.program.isEmpty() ? QStringLiteral("unknown") : holder.program)
                    .arg(ServiceConnection::port)
                    .arg(installation.program()),
                whoListens());
        }
    }
    if (facts.probe.state == State::Untrusted) {
        return Finding::failed(name, facts.probe.problem, whoListens());
    }
    if (facts.listeners.isEmpty()) {
        return facts.processes.isEmpty()
                   ? Finding::ok(name,
                                 QStringLiteral("nobody listens on port %1").arg(ServiceConnection::port))
                   : Finding::failed(name,
                                     QStringLiteral("the service runs and does not listen on port %1")
                                         .arg(ServiceConnection::port),
                                     Advice::restart());
    }
    if (facts.holders.isEmpty()) {
        return isRoot ? Finding::warning(
                            name,
                            QStringLiteral("cannot tell who listens on port %1").arg(ServiceConnection::port),
                            whoListens())
                      : Finding::notChecked(name);
    }
    return Finding::ok(name,
                       QStringLiteral("only the service listens on port %1").arg(ServiceConnection::port));
}

Finding ServiceChecks::engine(const ServiceFacts& facts, const SignatureFiles& files, const QString& logFile)
{
    const QString name = QStringLiteral("engine");
    using Result = EngineProbe::Result;
    const QString fix =
        QStringLiteral("mend the signature files, then tvctl reload db; the reason is in %1").arg(logFile);
    if (facts.isBarred()) {
        return Finding::notChecked(name);
    }
    if (!facts.probe.answers()) {
        return Finding::failed(name, QStringLiteral("it could not be asked") + lastLoad(facts.load),
                               QStringLiteral("get the service to run first"));
    }
    switch (facts.probe.engine) {
    case Result::Infected:
        return Finding::ok(name, QStringLiteral("it recognises the test pattern"));
    case Result::Clean:
        if (files.areComing) {
            return Finding::warning(name, QStringLiteral("it finds nothing yet: the first update is running"),
                                    Advice::waitForFirstUpdate());
        }
        if (files.loaded.isEmpty() && files.problem.isEmpty()) {
            return Finding::failed(
                name, QStringLiteral("it finds nothing, not even the test pattern: there are no signatures"),
                Advice::getSignatures());
        }
        return Finding::failed(
            name, QStringLiteral("it finds nothing, not even the test pattern") + lastLoad(facts.load), fix);
    case Result::Failed:
        return Finding::failed(
            name,
            QStringLiteral("it does not work: %1").arg(ServiceReply::scanErrorText(facts.probe.errorCode)),
            fix);
    default:
        return Finding::failed(name, QStringLiteral("its answer makes no sense"), Advice::restart());
    }
}

Finding ServiceChecks::portExposure(const ServiceFacts& facts, const QStringList& interfaces,
                                    const FirewallView& firewall)
{
    const QString name = QStringLiteral("port_exposure");
    bool isForAll = false;
    for (const TcpSocket& listener : facts.listeners) {
        // All of 127.0.0.0/8 stays on the machine.
        isForAll = isForAll || listener.localAddress >> 24 != IN_LOOPBACKNET;
    }
    if (!isForAll) {
        return Finding::ok(name, facts.listeners.isEmpty() ? QStringLiteral("nobody listens")
                                                           : QStringLiteral("only this machine reaches it"));
    }
    if (interfaces.isEmpty()) {
        return Finding::ok(name, QStringLiteral("this machine is on no network"));
    }
    if (firewall.verdict == FirewallView::Verdict::Guarded) {
        return Finding::ok(name, firewall.seen);
    }
    const QString seen = QStringLiteral("port %1 is open on %2; %3")
                             .arg(ServiceConnection::port)
                             .arg(interfaces.join(QStringLiteral(", ")), firewall.seen);
    const QString fix = guardThePort();
    return firewall.verdict == FirewallView::Verdict::Open ? Finding::failed(name, seen, fix)
                                                           : Finding::warning(name, seen, fix);
}

Finding ServiceChecks::portUsers(const ServiceFacts& facts, LocalAccess access)
{
    const QString name = QStringLiteral("port_users");
    if (facts.listeners.isEmpty()) {
        return Finding::ok(name, QStringLiteral("nobody listens"));
    }
    switch (access) {
    case LocalAccess::Refused:
        return Finding::ok(name, QStringLiteral("other users of this machine are refused"));
    case LocalAccess::Admitted:
        return Finding::failed(name,
                               QStringLiteral("any user of this machine may have the service delete files"),
                               guardThePort());
    default:
        return Finding::notChecked(name);
    }
}

Finding ServiceChecks::watches(const ServiceFacts& service, const WatchFacts& facts)
{
    const QString name = QStringLiteral("watches");
    if (service.processes.isEmpty()) {
        return Finding::failed(name, QStringLiteral("nothing is watched: the service does not run"),
                               QStringLiteral("systemctl start tvfilemon"));
    }
    if (!facts.use) {
        return Finding::notChecked(name);
    }
    if (facts.use->instances == 0) {
        return Finding::failed(
            name,
            QStringLiteral("the service sees no events%1")
                .arg(service.isLoading() ? QStringLiteral(": it is still starting") : QString()),
            QStringLiteral("look into fs.inotify.max_user_instances, then ") + Advice::restart());
    }
    if (facts.need.unwatched > 0) {
        return Finding::failed(
            name,
            QStringLiteral("%1 of %2 directories are not watched, %3 for example")
                .arg(facts.need.unwatched)
                .arg(facts.need.directories)
                .arg(facts.need.examples.join(QStringLiteral(", "))),
            Advice::restart() +
                QStringLiteral(", which watches them all again; tvctl sweep scans what was missed"));
    }
    const QString seen =
        QStringLiteral("%1 directories are watched, all of %2 that have to be%3")
            .arg(facts.use->watched.size())
            .arg(facts.need.directories)
            .arg(facts.need.isComplete ? QString() : QStringLiteral(" as far as they were counted"));
    return Finding::ok(name, seen);
}
