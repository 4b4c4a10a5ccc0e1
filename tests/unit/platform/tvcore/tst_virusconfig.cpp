#include "platform/tvcore/virusconfig.h"

#include "capturedlog.h"
#include "platform/tvcore/tvcore.h"
#include "rawdatabase.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

#include <future>
#include <memory>

#include <signal.h>
#include <unistd.h>

namespace
{
constexpr int maxPending = 65536;
/// What the library waits, and as much again for a machine that is busy with other tests.
constexpr qint64 maxDelayMs = 400;

VirusReport reportOf(const QString& name, const QDateTime& time)
{
    VirusReport report;
    report.setFileName(name);
    report.setFilePath(QStringLiteral("/home/u/") + name);
    report.setVirusName(QStringLiteral("Eicar-Test-Signature"));
    report.setCleanStatus(-1);
    report.setModuleName(QStringLiteral("tvfilemon"));
    report.setModuleVersion(QStringLiteral("2025-03-28 13:02:59"));
    report.setDateTime(time);
    return report;
}

VirusReport numbered(int number)
{
    return reportOf(QString::number(number), QDateTime::fromMSecsSinceEpoch(1000LL * number));
}

QDateTime second(int number)
{
    return QDateTime::fromMSecsSinceEpoch(1000LL * number);
}

/// The names of all records in the order of the store.
QStringList storedNames(const VirusConfig& config)
{
    QVector<VirusReport> reports;
    if (!config.getVirusReports({}, {}, reports, 0, 100000)) {
        return {QStringLiteral("cannot be read")};
    }
    QStringList names;
    for (const VirusReport& report : qAsConst(reports)) {
        names.append(report.getFileName());
    }
    return names;
}

/// The other process: stores records `first` to `first + count - 1`, then dies without closing anything.
int addInAnotherProcess(const QString& directory, int first, int count)
{
    TvCore::setDirectory(directory);
    VirusConfig config;
    bool isStored = true;
    for (int i = first; i < first + count; ++i) {
        isStored = config.addVirusReport(numbered(i));
    }
    // One that found the store locked is stored by itself later, and those before it with it.
    const QString last = QString::number(first + count - 1);
    if (!isStored && !QTest::qWaitFor([&] { return storedNames(config).contains(last); }, 60000)) {
        return 1;
    }
    return ::kill(::getpid(), SIGKILL);
}
} // namespace

class TestVirusConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void keepsEveryValue();
    void keepsNamesToTheByte();
    void timesComeBackEqual_data();
    void timesComeBackEqual();
    void numbersAreStableAndNotUsedAgain();
    void findsByPeriod_data();
    void findsByPeriod();
    void readsInPieces();
    void readsInPiecesFromTheEnd();
    void removesOlderRecords();
    void removesManyInSteps();
    void recordsSurviveASuddenEnd();
    void twoProcessesStoreAtOnce();
    void keepsRecordsInOrderWhileLocked();
    void storesPendingRecordsByItself();
    void storesPendingRecordsWhenTheApplicationGoes();
    void storesPendingRecordsOnAnotherThread();
    void boundsWhatIsPending();
    void boundsTheNamesThatArePending();
    void doesNotDelayEachCallOfALongLock();
    void cannotReadIsNotEmpty();

private:
    QString path() const
    {
        return m_directory->filePath(QStringLiteral("reports.db"));
    }

    std::unique_ptr<QTemporaryDir> m_directory;
};

void TestVirusConfig::init()
{
    TvCore::setDirectory(QStringLiteral("/nonexistent"));
    m_directory = std::make_unique<QTemporaryDir>();
    TvCore::setDirectory(m_directory->path());
}

void TestVirusConfig::keepsEveryValue()
{
    const QDateTime time = QDateTime::fromMSecsSinceEpoch(1709643600123);
    VirusConfig config;
    QVERIFY(config.addVirusReport(reportOf(QStringLiteral("eicar.com"), time)));
    QVERIFY(config.addVirusReport(VirusReport()));
    TvCore::setDirectory(m_directory->path());
    QVector<VirusReport> reports;
    QVERIFY(config.getVirusReports({}, {}, reports));
    QCOMPARE(reports.size(), 2);
    const VirusReport& first = reports.constFirst();
    QCOMPARE(first.getFileName(), QStringLiteral("eicar.com"));
    QCOMPARE(first.getFilePath(), QStringLiteral("/home/u/eicar.com"));
    QCOMPARE(first.getVirusName(), QStringLiteral("Eicar-Test-Signature"));
    QCOMPARE(first.getCleanStatus(), -1);
    QCOMPARE(first.getModuleName(), QStringLiteral("tvfilemon"));
    QCOMPARE(first.getModuleVersion(), QStringLiteral("2025-03-28 13:02:59"));
    QCOMPARE(first.getDateTime(), time);
    QVERIFY(reports.constLast().getFilePath().isEmpty());
    QVERIFY(!reports.constLast().getDateTime().isValid());
}

void TestVirusConfig::keepsNamesToTheByte()
{
    const QStringList names = {QStringLiteral("a") + QChar(0xDCFF) + QStringLiteral("b"),
                               QString(QChar(0xFEFF)) + QStringLiteral("bom"), QStringLiteral("new\nline"),
                               QStringLiteral("it's %2 \"so\"")};
    VirusConfig config;
    for (const QString& name : names) {
        QVERIFY(config.addVirusReport(reportOf(name, second(1))));
    }
    QCOMPARE(storedNames(config), names);
}

void TestVirusConfig::timesComeBackEqual_data()
{
    QTest::addColumn<QDateTime>("time");
    QTest::newRow("local") << QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9, 123));
    QTest::newRow("UTC") << QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9, 999), Qt::UTC);
    QTest::newRow("offset") << QDateTime(QDate(2024, 3, 5), QTime(0, 0, 0, 1), Qt::OffsetFromUTC, 20700);
    QTest::newRow("zone, the hour that comes twice")
        << QDateTime(QDate(2024, 10, 27), QTime(2, 30, 0, 7), QTimeZone("Europe/Berlin"));
    QTest::newRow("start of the epoch") << QDateTime::fromMSecsSinceEpoch(0);
    QTest::newRow("before the epoch") << QDateTime::fromMSecsSinceEpoch(-1);
    QTest::newRow("far future") << QDateTime(QDate(9999, 12, 31), QTime(23, 59, 59, 999), Qt::UTC);
}

void TestVirusConfig::timesComeBackEqual()
{
    QFETCH(QDateTime, time);
    VirusConfig config;
    QVERIFY(config.addVirusReport(reportOf(QStringLiteral("x"), time)));
    QVector<VirusReport> reports;
    QVERIFY(config.getVirusReports({}, {}, reports));
    QCOMPARE(reports.size(), 1);
    QVERIFY(reports.constFirst().getDateTime().isValid());
    QVERIFY(reports.constFirst().getDateTime() == time);
    QCOMPARE(reports.constFirst().getDateTime().toMSecsSinceEpoch(), time.toMSecsSinceEpoch());
}

void TestVirusConfig::numbersAreStableAndNotUsedAgain()
{
    VirusConfig config;
    QVERIFY(config.addVirusReport(numbered(1)));
    QVERIFY(config.addVirusReport(numbered(2)));
    QVector<VirusReport> before;
    QVERIFY(config.getVirusReports({}, {}, before));
    QVERIFY(before.at(0).getId() > 0);
    QVERIFY(before.at(1).getId() > before.at(0).getId());
    QCOMPARE(config.removeVirusReports(second(3)), 2LL);
    QVERIFY(config.addVirusReport(numbered(3)));
    QVector<VirusReport> after;
    QVERIFY(config.getVirusReports({}, {}, after));
    QCOMPARE(after.size(), 1);
    QVERIFY(after.at(0).getId() > before.at(1).getId());
}

void TestVirusConfig::findsByPeriod_data()
{
    QTest::addColumn<QDateTime>("from");
    QTest::addColumn<QDateTime>("to");
    QTest::addColumn<QStringList>("names");
    const QStringList all = {QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3"),
                             QStringLiteral("-")};
    QTest::newRow("open") << QDateTime() << QDateTime() << all;
    QTest::newRow("from, included") << second(2) << QDateTime() << QStringList(all.mid(1, 2));
    QTest::newRow("to, excluded") << QDateTime() << second(2) << QStringList(all.mid(0, 1));
    QTest::newRow("both") << second(1) << second(3) << QStringList(all.mid(0, 2));
    QTest::newRow("a millisecond later")
        << second(1).addMSecs(1) << second(3).addMSecs(1) << QStringList(all.mid(1, 2));
    QTest::newRow("empty") << second(2) << second(2) << QStringList();
    QTest::newRow("turned round") << second(3) << second(1) << QStringList();
}

void TestVirusConfig::findsByPeriod()
{
    QFETCH(QDateTime, from);
    QFETCH(QDateTime, to);
    QFETCH(QStringList, names);
    VirusConfig config;
    for (int i = 1; i <= 3; ++i) {
        QVERIFY(config.addVirusReport(numbered(i)));
    }
    QVERIFY(config.addVirusReport(reportOf(QStringLiteral("-"), QDateTime())));
    QVector<VirusReport> reports;
    QVERIFY(config.getVirusReports(from, to, reports));
    QStringList found;
    for (const VirusReport& report : qAsConst(reports)) {
        found.append(report.getFileName());
    }
    QCOMPARE(found, names);
    QVERIFY(config.getLastVirusReports(from, to, reports));
    QStringList turned;
    for (const VirusReport& report : qAsConst(reports)) {
        turned.prepend(report.getFileName());
    }
    QCOMPARE(turned, names);
    QCOMPARE(config.getVirusReportCount(from, to), static_cast<qint64>(names.size()));
}

void TestVirusConfig::readsInPieces()
{
    VirusConfig config;
    for (int i = 0; i < 10; ++i) {
        QVERIFY(config.addVirusReport(numbered(i)));
    }
    QStringList names;
    QVector<VirusReport> reports;
    qint64 lastId = 0;
    do {
        QVERIFY(config.getVirusReports({}, {}, reports, lastId, 3));
        QVERIFY(reports.size() <= 3);
        for (const VirusReport& report : qAsConst(reports)) {
            names.append(report.getFileName());
            lastId = report.getId();
        }
    } while (!reports.isEmpty());
    QCOMPARE(names, storedNames(config));
    QCOMPARE(names.size(), 10);
    QVERIFY(config.getVirusReports({}, {}, reports, 0, 0));
    QVERIFY(reports.isEmpty());
    QVERIFY2(config.getVirusReports({}, {}, reports, 0, -1) && reports.isEmpty(), "no limit by mistake");
}

void TestVirusConfig::readsInPiecesFromTheEnd()
{
    VirusConfig config;
    for (int i = 0; i < 10; ++i) {
        QVERIFY(config.addVirusReport(numbered(i)));
    }
    QStringList names;
    QVector<VirusReport> reports;
    QVERIFY(config.getLastVirusReports({}, {}, reports));
    QCOMPARE(reports.size(), 10);
    qint64 firstId = std::numeric_limits<qint64>::max();
    do {
        QVERIFY(config.getLastVirusReports({}, {}, reports, firstId, 3));
        QVERIFY(reports.size() <= 3);
        for (const VirusReport& report : qAsConst(reports)) {
            names.prepend(report.getFileName());
            firstId = report.getId();
        }
    } while (!reports.isEmpty());
    QCOMPARE(names, storedNames(config));
    QVERIFY(config.getLastVirusReports({}, {}, reports, 4, -1) && reports.isEmpty());
}

void TestVirusConfig::removesOlderRecords()
{
    VirusConfig config;
    for (int i = 1; i <= 4; ++i) {
        QVERIFY(config.addVirusReport(numbered(i)));
    }
    QVERIFY(config.addVirusReport(reportOf(QStringLiteral("-"), QDateTime())));
    QCOMPARE(config.removeVirusReports(QDateTime()), -1LL);
    QCOMPARE(config.removeVirusReports(second(3)), 2LL);
    QCOMPARE(config.removeVirusReports(second(3)), 0LL);
    QCOMPARE(storedNames(config),
             QStringList({QStringLiteral("3"), QStringLiteral("4"), QStringLiteral("-")}));
}

void TestVirusConfig::removesManyInSteps()
{
    VirusConfig config;
    QVERIFY(config.addVirusReport(numbered(1)));
    QVERIFY(RawDatabase(path()).run(QStringLiteral(
        "INSERT INTO virus_report(detected_at, file_name, file_path, virus_name, clean_status, "
        "module_name, module_version) WITH RECURSIVE n(i) AS (SELECT 2 UNION ALL SELECT i + 1 "
        "FROM n WHERE i < 2500) SELECT i * 1000, i, i, 'v', 0, 'm', 'v' FROM n")));
    QCOMPARE(config.getVirusReportCount({}, {}), 2500LL);
    QCOMPARE(config.removeVirusReports(second(2001)), 2000LL);
    QCOMPARE(config.getVirusReportCount({}, {}), 500LL);
}

void TestVirusConfig::recordsSurviveASuddenEnd()
{
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--add"), m_directory->path(), QStringLiteral("1"), QStringLiteral("3")});
    QVERIFY(other.waitForFinished());
    QCOMPARE(other.exitStatus(), QProcess::CrashExit);
    QCOMPARE(storedNames(VirusConfig()),
             QStringList({QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")}));
}

void TestVirusConfig::twoProcessesStoreAtOnce()
{
    constexpr int count = 100;
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--add"), m_directory->path(),
                                                          QString::number(count), QString::number(count)});
    VirusConfig config;
    for (int i = 0; i < count; ++i) {
        // On a busy disk some have to wait for their turn.
        config.addVirusReport(numbered(i));
    }
    QVERIFY(other.waitForFinished(60000));
    QCOMPARE(other.exitStatus(), QProcess::CrashExit);
    QTRY_COMPARE_WITH_TIMEOUT(storedNames(config).size(), 2 * count, 60000);
    const QStringList names = storedNames(config);
    int lastOwn = -1;
    int lastOther = count - 1;
    for (const QString& name : names) {
        int& last = name.toInt() < count ? lastOwn : lastOther;
        QCOMPARE(name.toInt(), last + 1);
        last = name.toInt();
    }
}

void TestVirusConfig::keepsRecordsInOrderWhileLocked()
{
    VirusConfig config;
    QVERIFY(config.addVirusReport(numbered(1)));
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        QVERIFY(!config.addVirusReport(numbered(2)));
        QVERIFY(!config.addVirusReport(numbered(3)));
        QCOMPARE(storedNames(config), QStringList({QStringLiteral("1")}));
    }
    QVERIFY(config.addVirusReport(numbered(4)));
    QCOMPARE(storedNames(config), QStringList({QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3"),
                                               QStringLiteral("4")}));
}

void TestVirusConfig::storesPendingRecordsByItself()
{
    VirusConfig config;
    QVERIFY(config.addVirusReport(numbered(1)));
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        QVERIFY(!config.addVirusReport(numbered(2)));
    }
    QTRY_COMPARE(storedNames(config), QStringList({QStringLiteral("1"), QStringLiteral("2")}));
}

void TestVirusConfig::storesPendingRecordsWhenTheApplicationGoes()
{
    // A change of the directory closes the store in the same way.
    VirusConfig config;
    QVERIFY(config.addVirusReport(numbered(1)));
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        QVERIFY(!config.addVirusReport(numbered(2)));
    }
    TvCore::setDirectory(m_directory->path());
    QCOMPARE(storedNames(config), QStringList({QStringLiteral("1"), QStringLiteral("2")}));
}

void TestVirusConfig::storesPendingRecordsOnAnotherThread()
{
    VirusConfig config;
    QVERIFY(config.addVirusReport(numbered(1)));
    const CapturedLog log;
    const auto storeKept = [] {
        return std::async(std::launch::async, [] { return VirusConfig().storeKeptReports(); }).get();
    };
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        QVERIFY(!config.addVirusReport(numbered(2)));
        QVERIFY(!storeKept());
        QCOMPARE(CapturedLog::messages().filter(QStringLiteral("were not stored")).size(), 1);
    }
    QVERIFY(storeKept());
    QVERIFY(storeKept());
    QCOMPARE(storedNames(config), QStringList({QStringLiteral("1"), QStringLiteral("2")}));
    // Qt's word for what only one thread may do.
    QVERIFY(CapturedLog::messages().filter(QStringLiteral("another thread")).isEmpty());
}

void TestVirusConfig::boundsWhatIsPending()
{
    VirusConfig config;
    QVERIFY(config.addVirusReport(numbered(0)));
    const CapturedLog log;
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        for (int i = 1; i <= maxPending + 10; ++i) {
            QVERIFY(!config.addVirusReport(numbered(i)));
        }
        const QStringList full = CapturedLog::messages().filter(QStringLiteral("further ones are lost"));
        QCOMPARE(full.size(), 1);
    }
    // So many take their time; others get their turn in between.
    const auto count = [&config] {
        return config.getVirusReportCount(QDateTime(), QDateTime());
    };
    QVERIFY(!config.addVirusReport(numbered(100000)));
    QVERIFY(count() > 1);
    QVERIFY(count() < maxPending);
    QTRY_COMPARE_WITH_TIMEOUT(count(), maxPending + 2, 60000);
    const QStringList names = storedNames(config);
    QCOMPARE(names.at(maxPending), QString::number(maxPending));
    QCOMPARE(names.constLast(), QStringLiteral("100000"));
    QVERIFY(config.addVirusReport(numbered(100001)));
}

void TestVirusConfig::boundsTheNamesThatArePending()
{
    VirusConfig config;
    QVERIFY(config.addVirusReport(numbered(0)));
    VirusReport report;
    report.setFilePath(QString(1024 * 1024, QLatin1Char('x')));
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        const CapturedLog log;
        for (int i = 0; i < 20; ++i) {
            QVERIFY(!config.addVirusReport(report));
        }
        QCOMPARE(CapturedLog::messages().filter(QStringLiteral("further ones are lost")).size(), 1);
    }
    QVERIFY(config.addVirusReport(numbered(1)));
    QCOMPARE(config.getVirusReportCount(QDateTime(), QDateTime()), 18);
    // What is stored takes no room any more.
    RawDatabase other(path());
    QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
    QVERIFY(!config.addVirusReport(report));
    QVERIFY(other.run(QStringLiteral("ROLLBACK")));
    QVERIFY(config.addVirusReport(numbered(2)));
    QCOMPARE(config.getVirusReportCount(QDateTime(), QDateTime()), 20);
}

void TestVirusConfig::doesNotDelayEachCallOfALongLock()
{
    VirusConfig config;
    QVERIFY(config.addVirusReport(numbered(0)));
    RawDatabase other(path());
    QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!config.addVirusReport(numbered(1)));
    const qint64 first = timer.elapsed();
    QVERIFY2(first >= 50, "it does not wait for a short transaction of another process");
    QVERIFY2(first <= maxDelayMs, qPrintable(QString::number(first)));
    timer.start();
    for (int i = 0; i < 100; ++i) {
        QVERIFY(!config.addVirusReport(numbered(2)));
    }
    QVERIFY2(timer.elapsed() <= maxDelayMs, qPrintable(QString::number(timer.elapsed())));
}

void TestVirusConfig::cannotReadIsNotEmpty()
{
    QVERIFY(QDir().mkdir(path()));
    VirusConfig config;
    QVector<VirusReport> reports = {numbered(1)};
    QVERIFY(!config.getVirusReports({}, {}, reports));
    QVERIFY(reports.isEmpty());
    reports = {numbered(1)};
    QVERIFY(!config.getLastVirusReports({}, {}, reports));
    QVERIFY(reports.isEmpty());
    QCOMPARE(config.getVirusReportCount({}, {}), -1LL);
    QCOMPARE(config.removeVirusReports(second(1)), -1LL);
}

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc == 5 && qstrcmp(argv[1], "--add") == 0) {
        return addInAnotherProcess(QString::fromLocal8Bit(argv[2]), QByteArray(argv[3]).toInt(),
                                   QByteArray(argv[4]).toInt());
    }
    TestVirusConfig test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_virusconfig.moc"
