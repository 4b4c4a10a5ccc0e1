#include "tvctl/health/databasechecks.h"

#include <QTest>

#include <optional>

using Result = Finding::Result;
using Load = LoadOutcome::Result;

class TestDatabaseChecks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void databases();
    void lastLoad();
    void freshness_data();
    void freshness();
    void update();
    void clock();
};

namespace
{
const QDateTime now(QDate(2026, 5, 20), QTime(12, 0), Qt::UTC);

SignatureFile file(const char* name, const QDateTime& built = now)
{
    SignatureHeader header;
    header.built = built;
    header.version = 62;
    return {QLatin1String(name), {}, header};
}

SignatureFiles with(const QVector<SignatureFile>& loaded, const QStringList& ignored = {})
{
    SignatureFiles files;
    files.loaded = loaded;
    files.ignored = ignored;
    return files;
}

void expect(const Finding& finding, Result result, const char* seen)
{
    QVERIFY2(finding.seen.contains(QLatin1String(seen)), qPrintable(finding.seen));
    QCOMPARE(static_cast<int>(finding.result), static_cast<int>(result));
    QCOMPARE(finding.fix.isEmpty(), result == Result::Ok);
}
} // namespace

void TestDatabaseChecks::databases()
{
    const QString directory = QStringLiteral("/root/db");
    const auto check = [&directory](const SignatureFiles& files) {
        return DatabaseChecks::databases(files, directory);
    };
    expect(check(with({file("main.cvd")})), Result::Ok, "main.cvd (version 62)");
    expect(check({}), Result::Failed, "no *.cvd in /root/db");
    expect(check(with({}, {QStringLiteral("daily.cld")})), Result::Failed, "daily.cld is of a kind");
    expect(check(with({file("main.cvd")}, {QStringLiteral("daily.cld")})), Result::Warning,
           "does not load daily.cld");
    expect(check(with({file("main.cvd"), {QStringLiteral("x.cvd"), QStringLiteral("broken"), {}}})),
           Result::Failed, "x.cvd: broken");
    SignatureFiles coming = with({}, {QStringLiteral("daily.cld")});
    coming.areComing = true;
    expect(check(coming), Result::Warning, "no *.cvd in /root/db yet: the first update is running");
    QVERIFY(!check(coming).fix.contains(QStringLiteral("systemctl")));
    SignatureFiles unreadable;
    unreadable.problem = QStringLiteral("Permission denied");
    expect(check(unreadable), Result::Failed, "/root/db: Permission denied");
}

void TestDatabaseChecks::lastLoad()
{
    const auto check = [](Load result, const char* name = "", bool isDetecting = false) {
        return DatabaseChecks::lastLoad({result, now, QLatin1String(name), 4}, QStringLiteral("/log"),
                                        isDetecting);
    };
    expect(check(Load::Loaded), Result::Ok, "succeeded at 2026-05-20");
    expect(check(Load::Failed, "x.cvd"), Result::Failed, "x.cvd could not be loaded at 2026-05-20");
    expect(check(Load::Failed), Result::Failed, "it failed at");
    expect(check(Load::Failed, "x.cvd", true), Result::Warning, "x.cvd could not be loaded at 2026-05-20");
    expect(check(Load::Failed, "", true), Result::Warning, "a file's name can forge such a line");
    expect(check(Load::Starting), Result::Warning, "not say yet");
    expect(check(Load::Loading), Result::Warning, "not say yet");
    expect(check(Load::Unknown), Result::Warning, "/log");
}

void TestDatabaseChecks::freshness_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<int>("days");
    QTest::addColumn<bool>("isOld");
    constexpr qint64 day = 24LL * 60 * 60;
    QTest::newRow("new") << 0LL << 0 << false;
    QTest::newRow("of the future") << -3 * day << 0 << false;
    QTest::newRow("a week") << 8 * day - 1 << 7 << false;
    QTest::newRow("more") << 8 * day << 8 << true;
    QTest::newRow("years") << 2000 * day << 2000 << true;
}

void TestDatabaseChecks::freshness()
{
    QFETCH(const qint64, seconds);
    QFETCH(const int, days);
    QFETCH(const bool, isOld);
    const SignatureFiles files = with({file("daily.cvd", now.addSecs(-seconds)), file("main.cvd")});
    expect(DatabaseChecks::freshness(files, now), isOld ? Result::Failed : Result::Ok,
           qPrintable(QStringLiteral("daily.cvd is %1 days old").arg(days)));
    SignatureFiles none;
    expect(DatabaseChecks::freshness(none, now), Result::Warning, "nothing that says its age");
    QVERIFY(DatabaseChecks::freshness(none, now).fix.startsWith(QStringLiteral("systemctl")));
    none.areComing = true;
    expect(DatabaseChecks::freshness(none, now), Result::Warning, "nothing that says its age");
    QVERIFY(DatabaseChecks::freshness(none, now).fix.startsWith(QStringLiteral("wait")));
}

void TestDatabaseChecks::update()
{
    const auto check = [](const char* result, int daysAgo, std::optional<int> succeededDaysAgo = {}) {
        UpdateStatus status;
        status.tried = now.addDays(-daysAgo);
        status.result = QLatin1String(result);
        status.message = QStringLiteral("why");
        if (succeededDaysAgo) {
            status.succeeded = now.addDays(-*succeededDaysAgo);
        }
        return DatabaseChecks::update(status, now);
    };
    expect(DatabaseChecks::update({}, now), Result::Ok, "has not been run yet");
    expect(check("updated", 0), Result::Ok, ": why");
    expect(check("current", 2), Result::Ok, "current at 20");
    expect(check("current", 3), Result::Warning, "the last one was current");
    expect(check("download-failed", 0), Result::Warning, "download-failed at 20");
    expect(check("refused", 9), Result::Warning, "refused at 20");
    expect(check("download-failed", 0, 2), Result::Warning, "download-failed at 20");
    expect(check("download-failed", 0, 3), Result::Failed, "none has succeeded since 20");
}

void TestDatabaseChecks::clock()
{
    expect(DatabaseChecks::clock(with({file("a.cvd")}), now), Result::Ok, "2026-05-20");
    expect(DatabaseChecks::clock({}, now), Result::Ok, "2026-05-20");
    expect(DatabaseChecks::clock(with({file("a.cvd", now.addDays(1))}), now), Result::Ok, "2026-05-20");
    expect(DatabaseChecks::clock(with({file("a.cvd"), file("b.cvd", now.addDays(2))}), now), Result::Warning,
           "b.cvd was made at 2026-05-22");
}

QTEST_GUILESS_MAIN(TestDatabaseChecks)
#include "tst_databasechecks.moc"
