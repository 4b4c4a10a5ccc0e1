#include "tvctl/detections/detectionfilter.h"

#include "common/filename.h"

#include <QtTest>

class TestDetectionFilter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void byVirus_data();
    void byVirus();
    void byPath_data();
    void byPath();
    void byBoth();
};

void TestDetectionFilter::byVirus_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<bool>("isMatch");
    QTest::newRow("none") << "" << true;
    QTest::newRow("part") << "test" << true;
    QTest::newRow("whole") << "Win.Test/EICAR_HDB-1" << true;
    QTest::newRow("no part") << "macro" << false;
    QTest::newRow("a full stop is one") << "WinxTest" << false;
    QTest::newRow("glob") << "win.*" << true;
    QTest::newRow("glob over a slash") << "*eicar*" << true;
    QTest::newRow("glob is of the whole") << "test*" << false;
    QTest::newRow("one character") << "win?test/eicar_hdb-?" << true;
    QTest::newRow("a set") << "[vw]in*" << true;
    QTest::newRow("another set") << "[ab]in*" << false;
    QTest::newRow("a backslash is one") << "\\win*" << false;
}

void TestDetectionFilter::byVirus()
{
    QFETCH(QString, pattern);
    VirusReport report;
    report.setVirusName(QStringLiteral("Win.Test/EICAR_HDB-1"));
    DetectionFilter filter;
    filter.setVirus(pattern);
    QTEST(filter.matches(report), "isMatch");
}

void TestDetectionFilter::byPath_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("wanted");
    QTest::addColumn<bool>("isMatch");
    const QByteArray path = "/home/u/a/file";
    QTest::newRow("none") << path << QByteArray() << true;
    QTest::newRow("the file") << path << path << true;
    QTest::newRow("its directory") << path << QByteArray("/home/u/a") << true;
    QTest::newRow("far above") << path << QByteArray("/home") << true;
    QTest::newRow("the root") << path << QByteArray("/") << true;
    QTest::newRow("half a name") << path << QByteArray("/home/u/a/fi") << false;
    QTest::newRow("below it") << path << path + "/x" << false;
    QTest::newRow("case counts") << path << QByteArray("/home/U") << false;
    QTest::newRow("no UTF-8") << QByteArray("/h/\xff/x") << QByteArray("/h/\xff") << true;
    QTest::newRow("other bytes") << QByteArray("/h/\xff/x") << QByteArray("/h/\xfe") << false;
}

void TestDetectionFilter::byPath()
{
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, wanted);
    VirusReport report;
    report.setFilePath(FileName::toText(path));
    DetectionFilter filter;
    filter.setPath(FileName::toText(wanted));
    QTEST(filter.matches(report), "isMatch");
}

void TestDetectionFilter::byBoth()
{
    VirusReport report;
    report.setVirusName(QStringLiteral("A"));
    report.setFilePath(QStringLiteral("/x"));
    DetectionFilter filter;
    filter.setVirus(QStringLiteral("a"));
    filter.setPath(QStringLiteral("/y"));
    QVERIFY(!filter.matches(report));
    filter.setPath(QStringLiteral("/x"));
    QVERIFY(filter.matches(report));
    filter.setVirus(QStringLiteral("b"));
    QVERIFY(!filter.matches(report));
}

QTEST_GUILESS_MAIN(TestDetectionFilter)
#include "tst_detectionfilter.moc"
