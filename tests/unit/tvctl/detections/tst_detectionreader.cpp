#include "tvctl/detections/detectionreader.h"

#include "reportstorefixture.h"
#include "tvctl/console/toolerror.h"

#include <QtTest>

class TestDetectionReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsAllInPieces();
    void readsAPeriod();
    void findsTheNewest();
    void throwsWhenItCannotRead();
};

void TestDetectionReader::readsAllInPieces()
{
    constexpr int count = 1100;
    const ReportStoreFixture fixture;
    ReportStoreFixture::add(1, count);
    DetectionReader reader(fixture.installation(), {});
    QCOMPARE(reader.count(), static_cast<qint64>(count));
    int next = 1;
    QVector<VirusReport> page = reader.next();
    while (!page.isEmpty()) {
        QVERIFY(page.size() <= 1000);
        for (const VirusReport& report : qAsConst(page)) {
            QCOMPARE(report.getVirusName(), QString::number(next));
            ++next;
        }
        page = reader.next();
    }
    QCOMPARE(next, count + 1);
}

void TestDetectionReader::readsAPeriod()
{
    const ReportStoreFixture fixture;
    ReportStoreFixture::add(1, 9);
    DetectionReader reader(fixture.installation(), ReportStoreFixture::second(3),
                           ReportStoreFixture::second(6));
    QCOMPARE(reader.count(), 3LL);
    QCOMPARE(ReportStoreFixture::names(reader.next()), QStringLiteral("3 4 5").split(QLatin1Char(' ')));
    QVERIFY(reader.next().isEmpty());
}

void TestDetectionReader::findsTheNewest()
{
    const ReportStoreFixture fixture;
    // The wanted ones lie further apart than a page.
    VirusConfig config;
    QVERIFY(config.addVirusReport(ReportStoreFixture::report(1, QStringLiteral("/wanted/1"))));
    ReportStoreFixture::add(2, 1100);
    QVERIFY(config.addVirusReport(ReportStoreFixture::report(1101, QStringLiteral("/wanted/2"))));
    const DetectionReader reader(fixture.installation(), {});
    QCOMPARE(ReportStoreFixture::names(reader.newest(3)),
             QStringLiteral("1099 1100 1101").split(QLatin1Char(' ')));
    DetectionFilter filter;
    filter.setPath(QStringLiteral("/wanted"));
    QCOMPARE(ReportStoreFixture::names(reader.newest(5, filter)),
             QStringLiteral("1 1101").split(QLatin1Char(' ')));
    QCOMPARE(ReportStoreFixture::names(reader.newest(1, filter)),
             QStringLiteral("1101").split(QLatin1Char(' ')));
    const DetectionReader later(fixture.installation(), ReportStoreFixture::second(1101));
    QCOMPARE(ReportStoreFixture::names(later.newest(5)), QStringLiteral("1101").split(QLatin1Char(' ')));
}

void TestDetectionReader::throwsWhenItCannotRead()
{
    const ReportStoreFixture fixture;
    QVERIFY(QDir().mkdir(fixture.storePath()));
    DetectionReader reader(fixture.installation(), {});
    QVERIFY_EXCEPTION_THROWN(reader.next(), ToolError);
    QVERIFY_EXCEPTION_THROWN(reader.newest(1), ToolError);
    QVERIFY_EXCEPTION_THROWN(reader.count(), ToolError);
}

QTEST_GUILESS_MAIN(TestDetectionReader)
#include "tst_detectionreader.moc"
