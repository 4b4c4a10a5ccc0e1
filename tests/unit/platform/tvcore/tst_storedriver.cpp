#include "platform/tvcore/storeopener.h"

#include "capturedlog.h"
#include "storefixture.h"

#include <QCoreApplication>
#include <QTest>

/// A store on a machine without the package that has Qt's driver; a driver that was found once stays.
class TestStoreDriver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsThatItIsMissing();
};

void TestStoreDriver::tellsThatItIsMissing()
{
    StoreFixture fixture;
    const QStringList places = QCoreApplication::libraryPaths();
    {
        const CapturedLog log;
        QCoreApplication::setLibraryPaths({});
        QCOMPARE(fixture.count(), -1);
        QCOMPARE(CapturedLog::messages().size(), 1);
        QVERIFY(CapturedLog::messages().constFirst().contains(QStringLiteral("driver is not installed")));
        QVERIFY(!QFile::exists(fixture.path()));
    }
    QCoreApplication::setLibraryPaths(places);
    QTRY_COMPARE(fixture.count(), 0);
}

QTEST_GUILESS_MAIN(TestStoreDriver)
#include "tst_storedriver.moc"
