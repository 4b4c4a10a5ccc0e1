#include "tvctl/health/servicechecks.h"

#include <QTest>

#include <netinet/in.h>
#include <sys/sysmacros.h>

using Result = Finding::Result;
using State = ServiceConnection::State;
using Scan = ServiceReply::Scan::Result;
using Load = LoadOutcome::Result;
Q_DECLARE_METATYPE(Finding)
Q_DECLARE_METATYPE(Finding::Result)

class TestServiceChecks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void judges_data();
    void judges();
};

namespace
{
const Installation installation(QStringLiteral("/opt/a/root"));

RunningProcess process(qint64 id, const QString& program = installation.program())
{
    return {id, program, false, false, 7200};
}

TcpSocket listenerOn(quint32 address)
{
    TcpSocket socket;
    socket.localAddress = address;
    socket.localPort = ServiceConnection::port;
    socket.state = TcpSocket::Listen;
    socket.inode = 5;
    return socket;
}

/// All is well.
ServiceFacts good()
{
    ServiceFacts facts;
    facts.probe.state = State::Open;
    facts.probe.engine = Scan::Infected;
    facts.load = {Load::Loaded, QDateTime(QDate(2026, 1, 2), QTime(3, 4)), {}, 0};
    facts.processes = {process(27)};
    facts.holders = facts.processes;
    facts.listeners = {listenerOn(INADDR_ANY)};
    return facts;
}

ServiceFacts silent(State state, Load load = Load::Loaded)
{
    ServiceFacts facts = good();
    facts.probe.state = state;
    facts.probe.engine = Scan::Unknown;
    facts.probe.problem = QStringLiteral("a problem");
    facts.load.result = load;
    return facts;
}

ServiceFacts down()
{
    ServiceFacts facts = silent(State::Refused);
    facts.processes.clear();
    facts.holders.clear();
    facts.listeners.clear();
    return facts;
}

template <typename Change> ServiceFacts changed(ServiceFacts facts, Change change)
{
    change(facts);
    return facts;
}

Finding exposure(const ServiceFacts& facts, const QStringList& interfaces, FirewallView::Verdict verdict)
{
    return ServiceChecks::portExposure(facts, interfaces, {verdict, QStringLiteral("rules")});
}

WatchFacts watching(qint64 needed, qint64 unwatched, int instances = 1)
{
    WatchFacts facts;
    facts.need.directories = needed;
    facts.need.unwatched = unwatched;
    facts.need.examples = QStringList{QStringLiteral("/home/x")};
    facts.use = InotifyUse{instances, {}};
    return facts;
}

void addServiceRows()
{
    using ServiceChecks::service;
    const auto row = [](const char* name, const ServiceFacts& facts, Result result, const char* seen,
                        const char* fix) {
        QTest::newRow(name) << service(facts) << result << QString::fromLatin1(seen)
                            << QString::fromLatin1(fix);
    };
    row("service: good", good(), Result::Ok, "process 27 answers, for 2 h", "");
    row("service: good, unseen", changed(good(), [](ServiceFacts& f) { f.processes.clear(); }), Result::Ok,
        "it answers", "");
    row("service: down", down(), Result::Failed, "a problem", "systemctl start");
    row("service: hangs", silent(State::TimedOut), Result::Failed, "process 27 runs, but: a problem",
        "restart");
    row("service: starting", silent(State::TimedOut, Load::Starting), Result::Failed, "still loading",
        "wait");
    row("service: loading", silent(State::TimedOut, Load::Loading), Result::Failed, "still loading", "wait");
    row("service: does not listen",
        changed(silent(State::Refused, Load::Loading), [](ServiceFacts& f) { f.listeners.clear(); }),
        Result::Failed, "a problem", "restart");
    row("service: stopped",
        changed(silent(State::TimedOut, Load::Starting),
                [](ServiceFacts& f) { f.processes.first().isStopped = true; }),
        Result::Failed, "was stopped", "kill -CONT 27");
    row("service: not to be asked", changed(good(), [](ServiceFacts& f) { f.probe.state = State::Barred; }),
        Result::Warning, "only root", "sudo");
    row("service: twice", changed(good(), [](ServiceFacts& f) { f.processes += process(28); }),
        Result::Warning, "2 times", "end all but one");
    row("service: outdated", changed(good(), [](ServiceFacts& f) { f.processes.first().isOutdated = true; }),
        Result::Warning, "replaced", "restart");
}

void addPortRows()
{
    const auto row = [](const char* name, const ServiceFacts& facts, bool isRoot, Result result,
                        const char* seen, const char* fix) {
        QTest::newRow(name) << ServiceChecks::portOwner(facts, installation, isRoot) << result
                            << QString::fromLatin1(seen) << QString::fromLatin1(fix);
    };
    row("port: good", good(), true, Result::Ok, "only the service", "");
    row("port: down", down(), true, Result::Ok, "nobody", "");
    row("port: somebody else",
        changed(down(),
                [](ServiceFacts& f) {
                    f.listeners = {listenerOn(INADDR_LOOPBACK)};
                    f.holders = {process(99, QStringLiteral("/usr/bin/python3"))};
                }),
        true, Result::Failed, "process 99, /usr/bin/python3", "ss -ltnp");
    row("port: somebody else beside",
        changed(good(),
                [](ServiceFacts& f) { f.holders += process(99, QStringLiteral("/usr/bin/python3")); }),
        true, Result::Failed, "process 99", "ss -ltnp");
    row("port: of another user", silent(State::Untrusted), false, Result::Failed, "a problem", "ss -ltnp");
    row("port: not listening",
        changed(silent(State::Refused),
                [](ServiceFacts& f) {
                    f.listeners.clear();
                    f.holders.clear();
                }),
        true, Result::Failed, "does not listen", "restart");
    row("port: unseen", changed(good(), [](ServiceFacts& f) { f.holders.clear(); }), false, Result::Warning,
        "not checked", "sudo");
    row("port: hidden from root", changed(good(), [](ServiceFacts& f) { f.holders.clear(); }), true,
        Result::Warning, "cannot tell", "ss -ltnp");
}

void addEngineRows()
{
    SignatureFiles files;
    files.loaded.resize(1);
    const auto row = [&files](const char* name, const ServiceFacts& facts, Result result, const char* seen,
                              const char* fix) {
        QTest::newRow(name) << ServiceChecks::engine(facts, files, QStringLiteral("/log")) << result
                            << QString::fromLatin1(seen) << QString::fromLatin1(fix);
    };
    const auto answering = [](Scan answer, Load load) {
        return changed(good(), [answer, load](ServiceFacts& f) {
            f.probe.engine = answer;
            f.probe.errorCode = 18;
            f.load.result = load;
            f.load.file = QStringLiteral("x.cvd");
            f.load.errorCode = 4;
        });
    };
    row("engine: good", good(), Result::Ok, "recognises", "");
    row("engine: good, whatever the log says", answering(Scan::Infected, Load::Failed), Result::Ok,
        "recognises", "");
    row("engine: not loaded", answering(Scan::Clean, Load::Failed), Result::Failed,
        "finds nothing, not even the test pattern; its log says that x.cvd could not be loaded: a damaged",
        "reload db; the reason is in /log");
    row("engine: the log is wrong", answering(Scan::Clean, Load::Loaded), Result::Failed,
        "its log says that the signatures were loaded", "reload db");
    files.loaded.clear();
    row("engine: without signatures", answering(Scan::Clean, Load::Loaded), Result::Failed,
        "there are no signatures", "systemctl start tvfilemon-update");
    files.areComing = true;
    row("engine: during the first update", answering(Scan::Clean, Load::Loaded), Result::Warning,
        "it finds nothing yet: the first update is running", "wait");
    row("engine: broken during the first update", answering(Scan::Failed, Load::Loaded), Result::Failed,
        "does not work", "reload db");
    files.areComing = false;
    files.loaded.resize(1);
    row("engine: the log says nothing", answering(Scan::Clean, Load::Unknown), Result::Failed, "test pattern",
        "reload db");
    row("engine: does not work", answering(Scan::Failed, Load::Loaded), Result::Failed,
        "no temporary directory could be made", "reload db");
    row("engine: nonsense", answering(Scan::Unknown, Load::Loaded), Result::Failed, "no sense", "restart");
    row("engine: not to be asked", changed(good(), [](ServiceFacts& f) { f.probe.state = State::Barred; }),
        Result::Warning, "only root", "sudo");
    row("engine: silent", silent(State::TimedOut), Result::Failed, "could not be asked", "service");
}

void addExposureRows()
{
    using Verdict = FirewallView::Verdict;
    const QStringList network = {QStringLiteral("eth0 (192.0.2.1)")};
    const auto row = [](const char* name, const Finding& finding, Result result, const char* seen,
                        const char* fix) {
        QTest::newRow(name) << finding << result << QString::fromLatin1(seen) << QString::fromLatin1(fix);
    };
    row("exposure: open", exposure(good(), network, Verdict::Open), Result::Failed,
        "port 8889 is open on eth0 (192.0.2.1); rules", "systemctl reload-or-restart tvfilemon-firewall");
    row("exposure: unknown", exposure(good(), network, Verdict::Unknown), Result::Warning, "eth0",
        "firewall");
    row("exposure: guarded", exposure(good(), network, Verdict::Guarded), Result::Ok, "rules", "");
    row("exposure: no network", exposure(good(), {}, Verdict::Open), Result::Ok, "no network", "");
    row("exposure: down", exposure(down(), network, Verdict::Open), Result::Ok, "nobody", "");
    row("exposure: this machine only",
        exposure(changed(good(), [](ServiceFacts& f) { f.listeners = {listenerOn(0x7f000102)}; }), network,
                 Verdict::Open),
        Result::Ok, "only this machine", "");
    row("exposure: one address",
        exposure(changed(good(), [](ServiceFacts& f) { f.listeners = {listenerOn(0xc0000201)}; }), network,
                 Verdict::Open),
        Result::Failed, "eth0", "firewall");
}

void addUserRows()
{
    using ServiceChecks::portUsers;
    const auto row = [](const char* name, const Finding& finding, Result result, const char* seen,
                        const char* fix) {
        QTest::newRow(name) << finding << result << QString::fromLatin1(seen) << QString::fromLatin1(fix);
    };
    row("users: refused", portUsers(good(), LocalAccess::Refused), Result::Ok, "are refused", "");
    row("users: admitted", portUsers(good(), LocalAccess::Admitted), Result::Failed,
        "any user of this machine", "systemctl reload-or-restart tvfilemon-firewall");
    row("users: not tried", portUsers(good(), LocalAccess::Unknown), Result::Warning, "not checked", "sudo");
    row("users: down", portUsers(down(), LocalAccess::Unknown), Result::Ok, "nobody listens", "");
}

void addWatchRows()
{
    const auto row = [](const char* name, const ServiceFacts& service, const WatchFacts& facts, Result result,
                        const char* seen, const char* fix) {
        QTest::newRow(name) << ServiceChecks::watches(service, facts) << result << QString::fromLatin1(seen)
                            << QString::fromLatin1(fix);
    };
    row("watches: good", good(), watching(12, 0), Result::Ok, "all of 12", "");
    row("watches: some missing", good(), watching(12, 2), Result::Failed,
        "2 of 12 directories are not watched, /home/x for example", "restart");
    row("watches: no queue", good(), watching(12, 12, 0), Result::Failed, "sees no events",
        "max_user_instances");
    row("watches: down", down(), watching(12, 12), Result::Failed, "does not run", "systemctl start");
    WatchFacts unseen = watching(12, 12);
    unseen.use.reset();
    row("watches: unseen", good(), unseen, Result::Warning, "not checked", "sudo");
    WatchFacts cut = watching(12, 0);
    cut.need.isComplete = false;
    row("watches: too many to count", good(), cut, Result::Ok, "as far as", "");
}
} // namespace

void TestServiceChecks::judges_data()
{
    QTest::addColumn<Finding>("finding");
    QTest::addColumn<Finding::Result>("result");
    QTest::addColumn<QString>("seen");
    QTest::addColumn<QString>("fix");
    addServiceRows();
    addPortRows();
    addEngineRows();
    addExposureRows();
    addUserRows();
    addWatchRows();
}

void TestServiceChecks::judges()
{
    QFETCH(const Finding, finding);
    QFETCH(const QString, seen);
    QFETCH(const QString, fix);
    QFETCH(const Finding::Result, result);
    QVERIFY2(finding.seen.contains(seen), qPrintable(finding.seen));
    QVERIFY2(finding.fix.contains(fix), qPrintable(finding.fix));
    QCOMPARE(static_cast<int>(finding.result), static_cast<int>(result));
    QCOMPARE(finding.fix.isEmpty(), result == Result::Ok);
}

QTEST_GUILESS_MAIN(TestServiceChecks)
#include "tst_servicechecks.moc"
