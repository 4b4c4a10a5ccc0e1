#include "platform/tvcore/virusreport.h"

#include <QTest>

class TestVirusReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isEmptyWhenNew();
    void keepsEachValueApart();
};

void TestVirusReport::isEmptyWhenNew()
{
    const VirusReport report;
    QCOMPARE(report.getId(), 0LL);
    QVERIFY(report.getFileName().isEmpty());
    QVERIFY(report.getFilePath().isEmpty());
    QVERIFY(report.getVirusName().isEmpty());
    QCOMPARE(report.getCleanStatus(), 0);
    QVERIFY(report.getModuleName().isEmpty());
    QVERIFY(report.getModuleVersion().isEmpty());
    QVERIFY(!report.getDateTime().isValid());
}

void TestVirusReport::keepsEachValueApart()
{
    const QDateTime time = QDateTime::fromMSecsSinceEpoch(1709643600123);
    VirusReport report;
    report.setFileName(QStringLiteral("name"));
    report.setFilePath(QStringLiteral("/path/name"));
    report.setVirusName(QStringLiteral("virus"));
    report.setCleanStatus(-2);
    report.setModuleName(QStringLiteral("module"));
    report.setModuleVersion(QStringLiteral("version"));
    report.setDateTime(time);
    QCOMPARE(report.getFileName(), QStringLiteral("name"));
    QCOMPARE(report.getFilePath(), QStringLiteral("/path/name"));
    QCOMPARE(report.getVirusName(), QStringLiteral("virus"));
    QCOMPARE(report.getCleanStatus(), -2);
    QCOMPARE(report.getModuleName(), QStringLiteral("module"));
    QCOMPARE(report.getModuleVersion(), QStringLiteral("version"));
    QCOMPARE(report.getDateTime(), time);
}

QTEST_GUILESS_MAIN(TestVirusReport)
#include "tst_virusreport.moc"
