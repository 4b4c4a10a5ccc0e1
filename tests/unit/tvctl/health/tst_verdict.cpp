#include "tvctl/health/verdict.h"

#include <QTest>

#include <functional>

using State = ServiceConnection::State;
using Scan = ServiceReply::Scan::Result;
using Load = LoadOutcome::Result;

class TestVerdict : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isGoodWhenAllIs();
    void tellsWhyNot_data();
    void tellsWhyNot();
    void tellsAllReasons();
    void doesNotGuess();
    void warns_data();
    void warns();
};

namespace
{
const QDateTime now(QDate(2026, 5, 20), QTime(12, 0), Qt::UTC);

struct Facts
{
    Facts()
    {
        service.probe.state = State::Open;
        service.probe.engine = Scan::Infected;
        service.load.result = Load::Loaded;
        service.processes = {RunningProcess{27, {}, false, false, 60}};
        stores.isRealtimeOn = true;
        stores.scanAction = 1;
        SignatureHeader header;
        header.built = now;
        files.loaded = {SignatureFile{QStringLiteral("daily.cvd"), {}, header}};
        watches.limits.watches = 100;
        watches.need.directories = 3;
        watches.use = InotifyUse{1, {}};
        watches.use->watched.add(1, 2);
    }

    Verdict judged() const
    {
        return judge(service, stores, files, watches, now);
    }

    ServiceFacts service;
    StoreFacts stores;
    SignatureFiles files;
    WatchFacts watches;
};

void silence(Facts& facts, State state, Load load)
{
    facts.service.probe.state = state;
    facts.service.probe.engine = Scan::Unknown;
    facts.service.probe.problem = QStringLiteral("a problem");
    facts.service.load.result = load;
}

using Change = std::function<void(Facts&)>;
} // namespace

Q_DECLARE_METATYPE(Change)

void TestVerdict::isGoodWhenAllIs()
{
    const Verdict verdict = Facts().judged();
    QCOMPARE(verdict.text(), QStringLiteral("Protected."));
    QCOMPARE(static_cast<int>(verdict.state), static_cast<int>(Verdict::State::Protected));
    QCOMPARE(verdict.warnings, QStringList());
    // What nobody may see is no reason to worry.
    Facts facts;
    facts.watches.use.reset();
    facts.service.processes.clear();
    facts.service.load.result = Load::Unknown;
    QCOMPARE(facts.judged().text(), QStringLiteral("Protected."));
    QCOMPARE(facts.judged().warnings, QStringList());
}

void TestVerdict::tellsWhyNot_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* name, const Change& change, const char* reason) {
        QTest::newRow(name) << change << QString::fromLatin1(reason);
    };
    row(
        "down", [](Facts& f) { silence(f, State::Refused, Load::Loaded); }, "a problem");
    row(
        "hangs", [](Facts& f) { silence(f, State::TimedOut, Load::Loaded); }, "a problem");
    row(
        "loading", [](Facts& f) { silence(f, State::TimedOut, Load::Loading); },
        "tvfilemon is still loading its signatures");
    row(
        "stopped",
        [](Facts& f) {
            silence(f, State::TimedOut, Load::Loading);
            f.service.processes.first().isStopped = true;
        },
        "tvfilemon was stopped by somebody (process 27)");
    row(
        "ended while loading",
        [](Facts& f) {
            silence(f, State::TimedOut, Load::Loading);
            f.service.processes.clear();
        },
        "a problem");
    row(
        "not loaded",
        [](Facts& f) {
            f.service.probe.engine = Scan::Clean;
            f.service.load = {Load::Failed, now, QStringLiteral("x.cvd"), 4};
        },
        "x.cvd could not be loaded, so nothing is found");
    row(
        "not compiled",
        [](Facts& f) {
            f.service.probe.engine = Scan::Clean;
            f.service.load = {Load::Failed, now, {}, 4};
        },
        "the signatures could not be loaded, so nothing is found");
    row(
        "no signatures",
        [](Facts& f) {
            f.service.probe.engine = Scan::Clean;
            f.files.loaded.clear();
        },
        "there are no signatures, so nothing is found");
    row(
        "no signatures yet",
        [](Facts& f) {
            f.service.probe.engine = Scan::Clean;
            f.files.loaded.clear();
            f.files.areComing = true;
        },
        "there are no signatures yet, so nothing is found: the first update is running");
    // Whatever the log says: others write into it.
    row(
        "finds nothing", [](Facts& f) { f.service.probe.engine = Scan::Clean; },
        "the engine finds nothing, not even the test pattern");
    row(
        "fails", [](Facts& f) { f.service.probe.engine = Scan::Failed; }, "the engine does not work");
    row(
        "off", [](Facts& f) { f.stores.isRealtimeOn = false; }, "real-time protection is switched off");
    row(
        "blind",
        [](Facts& f) {
            f.watches.use = InotifyUse{1, {}};
        },
        "no directory is watched");
}

void TestVerdict::tellsWhyNot()
{
    QFETCH(const Change, change);
    QFETCH(const QString, reason);
    Facts facts;
    change(facts);
    const Verdict verdict = facts.judged();
    QCOMPARE(verdict.reasons, QStringList{reason});
    QCOMPARE(verdict.text(), QStringLiteral("NOT PROTECTED: ") + reason);
    QCOMPARE(static_cast<int>(verdict.state), static_cast<int>(Verdict::State::NotProtected));
}

void TestVerdict::tellsAllReasons()
{
    Facts facts;
    silence(facts, State::Refused, Load::Loaded);
    facts.stores.isRealtimeOn = false;
    QCOMPARE(facts.judged().text(),
             QStringLiteral("NOT PROTECTED: a problem; real-time protection is switched off"));
}

void TestVerdict::doesNotGuess()
{
    Facts facts;
    facts.stores.settingsProblem = QStringLiteral("no settings");
    facts.stores.isRealtimeOn = false;
    QCOMPARE(facts.judged().text(), QStringLiteral("Cannot tell: no settings"));
    QCOMPARE(static_cast<int>(facts.judged().state), static_cast<int>(Verdict::State::Unknown));
    silence(facts, State::Refused, Load::Loaded);
    QCOMPARE(facts.judged().text(), QStringLiteral("NOT PROTECTED: a problem"));
    silence(facts, State::Barred, Load::Loaded);
    QCOMPARE(facts.judged().text(),
             QStringLiteral("Cannot tell: only root may ask tvfilemon: sudo tvctl status"));
}

void TestVerdict::warns_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("warning");
    const auto row = [](const char* name, const Change& change, const char* warning) {
        QTest::newRow(name) << change << QString::fromLatin1(warning);
    };
    row(
        "old", [](Facts& f) { f.files.loaded.first().header->built = now.addDays(-8); },
        "the signatures are 8 days old");
    row(
        "a new file that is broken",
        [](Facts& f) {
            f.files.loaded += SignatureFile{QStringLiteral("x.cvd"), QStringLiteral("broken"), {}};
        },
        "x.cvd: broken");
    row(
        "the log disagrees", [](Facts& f) { f.service.load.result = Load::Failed; }, "the log says");
    row(
        "report only", [](Facts& f) { f.stores.scanAction = 0; }, "reported only");
    row(
        "unwatched", [](Facts& f) { f.watches.need.unwatched = 2; }, "2 of 3 directories are not watched");
    row(
        "limit", [](Facts& f) { f.watches.need.directories = 101; },
        "101 directories have to be watched, the kernel lets 100");
    row(
        "records", [](Facts& f) { f.stores.reportsProblem = QStringLiteral("no records"); }, "no records");
}

void TestVerdict::warns()
{
    QFETCH(const Change, change);
    QFETCH(const QString, warning);
    Facts facts;
    change(facts);
    const Verdict verdict = facts.judged();
    QCOMPARE(verdict.text(), QStringLiteral("Protected."));
    QCOMPARE(verdict.warnings.size(), 1);
    QVERIFY2(verdict.warnings.first().contains(warning), qPrintable(verdict.warnings.first()));
}

QTEST_GUILESS_MAIN(TestVerdict)
#include "tst_verdict.moc"
