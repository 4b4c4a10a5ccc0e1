#include "tvctl/detections/detectionid.h"

#include "reportstorefixture.h"

#include <QtTest>

class TestDetectionId : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parses_data();
    void parses();
    void knowsItsRecord();
};

void TestDetectionId::parses_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isId");
    QTest::addColumn<qint64>("number");
    QTest::newRow("number") << "17" << true << 17LL;
    QTest::newRow("number and time") << "17-1795262400000" << true << 17LL;
    QTest::newRow("a time before 1970") << "17--5" << true << 17LL;
    QTest::newRow("nothing") << "0" << true << 0LL;
    QTest::newRow("empty") << "" << false << 0LL;
    QTest::newRow("negative") << "-17" << false << 0LL;
    QTest::newRow("no time") << "17-" << false << 0LL;
    QTest::newRow("text") << "17-x" << false << 0LL;
    QTest::newRow("line end") << "17\n" << false << 0LL;
    QTest::newRow("too large") << "9223372036854775808" << false << 0LL;
    QTest::newRow("a digit of another script") << QString(QChar(0x0661)) << false << 0LL;
}

void TestDetectionId::parses()
{
    QFETCH(QString, text);
    QFETCH(bool, isId);
    QFETCH(qint64, number);
    const auto id = DetectionId::parse(text);
    QCOMPARE(id.has_value(), isId);
    if (isId) {
        QCOMPARE(id->number(), number);
        QCOMPARE(id->text(), text);
    }
}

void TestDetectionId::knowsItsRecord()
{
    const ReportStoreFixture fixture;
    ReportStoreFixture::add(1, 2);
    VirusReport undated = ReportStoreFixture::report(3);
    undated.setDateTime({});
    QVERIFY(VirusConfig().addVirusReport(undated));
    QVector<VirusReport> reports;
    QVERIFY(VirusConfig().getVirusReports({}, {}, reports));
    QCOMPARE(reports.size(), 3);

    const DetectionId id(reports.at(1));
    QCOMPARE(id.text(), QStringLiteral("2-1790000002000"));
    QVERIFY(id.isOf(reports.at(1)));
    QVERIFY(!id.isOf(reports.at(0)));
    QVERIFY(DetectionId::parse(id.text())->isOf(reports.at(1)));
    QVERIFY(DetectionId::parse(QStringLiteral("2"))->isOf(reports.at(1)));
    QVERIFY2(!DetectionId::parse(QStringLiteral("2-1790000002001"))->isOf(reports.at(1)), "another store's");
    QCOMPARE(DetectionId(reports.at(2)).text(), QStringLiteral("3-0"));
}

QTEST_GUILESS_MAIN(TestDetectionId)
#include "tst_detectionid.moc"
