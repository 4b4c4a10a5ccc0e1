#include "tvctl/quarantine/quarantineorigins.h"

#include "common/filename.h"
#include "platform/tvcore/tvcore.h"
#include "platform/tvcore/virusconfig.h"
#include "tvctl/quarantine/quarantinename.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

#include <ctime>
#include <memory>

namespace
{
constexpr qint64 noon = 1752573600; // 2025-07-15 10:00:00 UTC

QByteArray digestOf(const QByteArray& path)
{
    return QCryptographicHash::hash(path, QCryptographicHash::Md5).toHex();
}

QDateTime moment(qint64 milliseconds)
{
    return QDateTime::fromMSecsSinceEpoch(milliseconds);
}

/// The copy of `path` whose name tells the clock `stamp`.
QuarantineEntry copyOf(const QByteArray& path, const QByteArray& stamp)
{
    QuarantineEntry entry;
    entry.name = stamp + '_' + digestOf(path) + ".tvq";
    entry.pathDigest = digestOf(path);
    const auto name = QuarantineName::parse(entry.name);
    entry.time = name ? moment(name->moments().constFirst() * 1000) : QDateTime();
    return entry;
}

QByteArray stampOf(qint64 seconds)
{
    return moment(seconds * 1000).toUTC().toString(QStringLiteral("yyyy-MM-dd_hh-mm-ss")).toLatin1();
}

VirusReport recordOf(const QString& path, const QString& virusName, qint64 milliseconds, int status = 0)
{
    VirusReport report;
    report.setFilePath(path);
    report.setVirusName(virusName);
    report.setCleanStatus(status);
    report.setDateTime(milliseconds < 0 ? QDateTime() : moment(milliseconds));
    return report;
}

/// Two paths of the same MD5: the well-known pair of 128 bytes that differ in six.
QByteArray collision(bool second)
{
    QByteArray bytes =
        QByteArray::fromHex("d131dd02c5e6eec4693d9a0698aff95c2fcab58712467eab4004583eb8fb7f89"
                            "55ad340609f4b30283e488832571415a085125e8f7cdc99fd91dbdf280373c5b"
                            "d8823e3156348f5bae6dacd436c919c6dd53e2b487da03fd02396306d248cda0"
                            "e99f33420f577ee8ce54b67080a80d1ec69821bcb6a8839396f9652b6ff72a70");
    if (second) {
        for (const int place : {19, 45, 59, 83, 109, 123}) {
            bytes[place] = static_cast<char>(static_cast<uchar>(bytes.at(place)) ^ 0x80U);
        }
    }
    return bytes;
}
} // namespace

class TestQuarantineOrigins : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void findsTheRecordOfTheDetection_data();
    void findsTheRecordOfTheDetection();
    void tellsCopiesOfOnePathApart();
    void tellsTheHourShownTwiceApart_data();
    void tellsTheHourShownTwiceApart();
    void knowsThePathWithoutTheDetection();
    void knowsPathsThatAreNoUtf8_data();
    void knowsPathsThatAreNoUtf8();
    void isNotDeceivedByMadeUpPaths_data();
    void isNotDeceivedByMadeUpPaths();
    void takesCandidates();
    void readsRecordsInPieces_data();
    void readsRecordsInPieces();
    void tellsWhenRecordsCannotBeRead();
    void keepsUpWithManyCopiesOfOnePath();

private:
    std::unique_ptr<QTemporaryDir> m_store;
};

void TestQuarantineOrigins::initTestCase()
{
    qputenv("TZ", "UTC0");
    ::tzset();
}

void TestQuarantineOrigins::init()
{
    m_store = std::make_unique<QTemporaryDir>();
    TvCore::setDirectory(m_store->path());
}

void TestQuarantineOrigins::findsTheRecordOfTheDetection_data()
{
    QTest::addColumn<qint64>("after");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("isFound");
    QTest::newRow("at once") << qint64(0) << 0 << true;
    QTest::newRow("within the second") << qint64(999) << 0 << true;
    QTest::newRow("minutes later") << qint64(14 * 60 * 1000) << 0 << true;
    QTest::newRow("at the limit") << qint64(15 * 60 * 1000) << 0 << true;
    QTest::newRow("past the limit") << qint64(15 * 60 * 1000 + 1) << 0 << false;
    QTest::newRow("before the copy") << qint64(-1) << 0 << false;
    QTest::newRow("file could not be removed") << qint64(500) << 1 << true;
    QTest::newRow("only reported") << qint64(500) << -1 << false;
    QTest::newRow("allowed by the user") << qint64(500) << -2 << false;
}

void TestQuarantineOrigins::findsTheRecordOfTheDetection()
{
    QFETCH(qint64, after);
    QFETCH(int, status);
    QFETCH(bool, isFound);
    QVector<QuarantineEntry> entries = {copyOf("/home/u/a", "2025-07-15_10-00-00")};
    QVERIFY(VirusConfig().addVirusReport(recordOf(QStringLiteral("/home/u/other"), QStringLiteral("No"), 0)));
    QVERIFY(VirusConfig().addVirusReport(
        recordOf(QStringLiteral("/home/u/a"), QStringLiteral("Virus"), noon * 1000 + after, status)));
    QuarantineOrigins origins(entries);
    QVERIFY(origins.readRecords());
    origins.identify(entries);
    const QuarantineEntry& entry = entries.constFirst();
    // The MD5 tells the path whatever the time is.
    QCOMPARE(entry.originalPath, QByteArray("/home/u/a"));
    QCOMPARE(entry.virusName, isFound ? QStringLiteral("Virus") : QString());
    QCOMPARE(entry.recordId, isFound ? qint64(2) : qint64(0));
    QCOMPARE(entry.time, moment(noon * 1000));
}

void TestQuarantineOrigins::tellsCopiesOfOnePathApart()
{
    QVector<QuarantineEntry> entries = {
        copyOf("/home/u/a", "2025-07-15_10-00-00"), copyOf("/home/u/a", "2025-07-15_10-00-05"),
        copyOf("/home/u/a", "2025-07-15_18-30-00"), copyOf("/home/u/a", "2025-07-16_10-00-00")};
    QuarantineOrigins origins(entries);
    // In no order: the clock may have been put back.
    origins.addRecord(
        recordOf(QStringLiteral("/home/u/a"), QStringLiteral("Evening"), (noon + 8 * 3600 + 1803) * 1000));
    origins.addRecord(recordOf(QStringLiteral("/home/u/a"), QStringLiteral("First"), noon * 1000 + 900));
    origins.addRecord(recordOf(QStringLiteral("/home/u/a"), QStringLiteral("Second"), (noon + 7) * 1000));
    origins.identify(entries);
    QCOMPARE(entries.at(0).virusName, QStringLiteral("First"));
    QCOMPARE(entries.at(1).virusName, QStringLiteral("Second"));
    QCOMPARE(entries.at(2).virusName, QStringLiteral("Evening"));
    QCOMPARE(entries.at(3).virusName, QString());
    for (const QuarantineEntry& entry : qAsConst(entries)) {
        QCOMPARE(entry.originalPath, QByteArray("/home/u/a"));
    }
}

void TestQuarantineOrigins::tellsTheHourShownTwiceApart_data()
{
    QTest::addColumn<qint64>("recordedAt");
    QTest::addColumn<qint64>("made");
    QTest::newRow("summer time") << qint64(1761438603) << qint64(1761438600);
    QTest::newRow("winter time") << qint64(1761442203) << qint64(1761442200);
    QTest::newRow("no record") << qint64(1761450000) << qint64(1761438600);
}

void TestQuarantineOrigins::tellsTheHourShownTwiceApart()
{
    QFETCH(qint64, recordedAt);
    QFETCH(qint64, made);
    qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    ::tzset();
    QVector<QuarantineEntry> entries = {copyOf("/home/u/a", "2025-10-26_02-30-00")};
    QuarantineOrigins origins(entries);
    origins.addRecord(recordOf(QStringLiteral("/home/u/a"), QStringLiteral("Virus"), recordedAt * 1000));
    origins.identify(entries);
    const qint64 found = entries.constFirst().time.toSecsSinceEpoch();
    initTestCase();
    QCOMPARE(found, made);
    QCOMPARE(entries.constFirst().virusName.isEmpty(), recordedAt == 1761450000);
}

void TestQuarantineOrigins::knowsThePathWithoutTheDetection()
{
    QVector<QuarantineEntry> entries = {copyOf("/home/u/a", "2025-07-15_10-00-00"),
                                        copyOf("/home/u/b", "2025-07-15_10-00-00"),
                                        copyOf("/home/u/c", "2025-07-15_10-00-00")};
    QuarantineOrigins origins(entries);
    origins.addRecord(recordOf(QStringLiteral("/home/u/a"), QStringLiteral("Years ago"), 5));
    origins.addRecord(recordOf(QStringLiteral("/home/u/b"), QStringLiteral("Timeless"), -1));
    origins.identify(entries);
    QCOMPARE(entries.at(0).originalPath, QByteArray("/home/u/a"));
    QCOMPARE(entries.at(0).virusName, QString());
    QCOMPARE(entries.at(1).originalPath, QByteArray("/home/u/b"));
    QCOMPARE(entries.at(1).recordId, qint64(0));
    QCOMPARE(entries.at(2).originalPath, QByteArray());
}

void TestQuarantineOrigins::knowsPathsThatAreNoUtf8_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("byte at the end") << QByteArray("/home/u/a\xFF");
    QTest::newRow("bytes between characters") << QByteArray("/home/\xE9t\xE9/\xC3\xA9\x80");
    QTest::newRow("text that looks like one") << QByteArray("/home/u/a\\xff");
    QTest::newRow("mark in front") << QByteArray("/\xEF\xBB\xBFhome/a");
    QTest::newRow("character beyond 16 bits") << QByteArray("/home/\xF0\x9F\x98\x80\xFE");
}

void TestQuarantineOrigins::knowsPathsThatAreNoUtf8()
{
    QFETCH(QByteArray, path);
    QVector<QuarantineEntry> entries = {copyOf(path, "2025-07-15_10-00-00")};
    // As the service stores it.
    QVERIFY(VirusConfig().addVirusReport(
        recordOf(FileName::toDisplay(FileName::toText(path)), QStringLiteral("Virus"), noon * 1000)));
    QuarantineOrigins origins(entries);
    QVERIFY(origins.readRecords());
    origins.identify(entries);
    QCOMPARE(entries.constFirst().originalPath, path);
    QCOMPARE(entries.constFirst().virusName, QStringLiteral("Virus"));
}

void TestQuarantineOrigins::isNotDeceivedByMadeUpPaths_data()
{
    QTest::addColumn<qint64>("secondAfter");
    QTest::addColumn<bool>("isKnown");
    QTest::newRow("its record is there") << qint64(1) << true;
    QTest::newRow("its record is gone") << qint64(100000) << false;
}

void TestQuarantineOrigins::isNotDeceivedByMadeUpPaths()
{
    QFETCH(qint64, secondAfter);
    QFETCH(bool, isKnown);
    QCOMPARE(digestOf(collision(false)), digestOf(collision(true)));
    QVERIFY(collision(false) != collision(true));
    QVector<QuarantineEntry> entries = {copyOf(collision(true), "2025-07-15_10-00-00")};
    QuarantineOrigins origins(entries);
    origins.addRecord(recordOf(FileName::toText(collision(false)), QStringLiteral("A"), (noon - 60) * 1000));
    origins.addRecord(
        recordOf(FileName::toText(collision(true)), QStringLiteral("B"), (noon + secondAfter) * 1000));
    origins.identify(entries);
    QCOMPARE(entries.constFirst().originalPath, isKnown ? collision(true) : QByteArray());
    // Then the user decides.
    origins.addCandidate(collision(false));
    origins.identify(entries);
    QCOMPARE(entries.constFirst().originalPath, collision(isKnown));
}

void TestQuarantineOrigins::takesCandidates()
{
    QVector<QuarantineEntry> entries = {copyOf("/home/u/a", "2025-07-15_10-00-00"),
                                        copyOf("/home/u/b", "2025-07-15_10-00-00")};
    QuarantineOrigins origins(entries);
    origins.addCandidate("/home/u/b");
    origins.addCandidate("/home/u/");
    origins.addCandidate("");
    origins.identify(entries);
    QCOMPARE(entries.at(0).originalPath, QByteArray());
    QCOMPARE(entries.at(1).originalPath, QByteArray("/home/u/b"));
}

void TestQuarantineOrigins::readsRecordsInPieces_data()
{
    QTest::addColumn<int>("records");
    QTest::newRow("none") << 0;
    QTest::newRow("less than a piece") << 2;
    QTest::newRow("a whole piece") << 3;
    QTest::newRow("pieces") << 9;
    QTest::newRow("pieces and a part") << 10;
}

void TestQuarantineOrigins::readsRecordsInPieces()
{
    QFETCH(int, records);
    QVector<QuarantineEntry> entries;
    for (int i = 0; i < records; ++i) {
        const QString path = QStringLiteral("/home/u/%1").arg(i);
        entries.append(copyOf(path.toUtf8(), "2025-07-15_10-00-00"));
        QVERIFY(VirusConfig().addVirusReport(recordOf(path, QString::number(i), noon * 1000)));
    }
    QuarantineOrigins origins(entries);
    QVERIFY(origins.readRecords(3));
    origins.identify(entries);
    for (int i = 0; i < records; ++i) {
        QCOMPARE(entries.at(i).virusName, QString::number(i));
        QCOMPARE(entries.at(i).recordId, qint64(i + 1));
    }
}

void TestQuarantineOrigins::tellsWhenRecordsCannotBeRead()
{
    TvCore::setDirectory(QStringLiteral("/nonexistent"));
    QuarantineOrigins origins({});
    QVERIFY(!origins.readRecords());
}

void TestQuarantineOrigins::keepsUpWithManyCopiesOfOnePath()
{
    constexpr int count = 100000;
    QVector<QuarantineEntry> entries;
    for (int i = 0; i < count; ++i) {
        entries.append(copyOf("/home/u/a", stampOf(noon + i)));
    }
    QElapsedTimer timer;
    timer.start();
    QuarantineOrigins origins(entries);
    for (int i = 0; i < count; ++i) {
        origins.addRecord(
            recordOf(QStringLiteral("/home/u/a"), QString::number(i % 7), (noon + i) * 1000 + 500));
    }
    origins.identify(entries);
    // Each with each would take minutes.
    QVERIFY2(timer.elapsed() < 20000, QByteArray::number(timer.elapsed()).constData());
    for (int i = 0; i < count; ++i) {
        QCOMPARE(entries.at(i).virusName, QString::number(i % 7));
    }
}

QTEST_GUILESS_MAIN(TestQuarantineOrigins)
#include "tst_quarantineorigins.moc"
