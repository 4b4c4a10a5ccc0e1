#include "tvctl/scanner/scannedlinks.h"

#include <QTest>

#include <ctime>

class TestScannedLinks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void remembersFilesWithSeveralNames();
    void forgetsWhatChanged();
    void remembersNothingThatMayStillChange();
    void isBounded();
};

namespace
{
struct stat statusOf(ino_t inode, nlink_t names = 2)
{
    struct stat status = {};
    status.st_dev = 1;
    status.st_ino = inode;
    status.st_nlink = names;
    status.st_ctim = {1000, 5};
    return status;
}
} // namespace

void TestScannedLinks::remembersFilesWithSeveralNames()
{
    ScannedLinks links;
    QVERIFY(!links.find(statusOf(1)));
    links.add(statusOf(1), QString());
    links.add(statusOf(2), QStringLiteral("X"));
    links.add(statusOf(3, 1), QString());
    QCOMPARE(links.find(statusOf(1)), std::make_optional(QString()));
    QCOMPARE(links.find(statusOf(2)), std::make_optional(QStringLiteral("X")));
    QVERIFY(!links.find(statusOf(3)));
    struct stat elsewhere = statusOf(1);
    elsewhere.st_dev = 2;
    QVERIFY(!links.find(elsewhere));
}

void TestScannedLinks::forgetsWhatChanged()
{
    ScannedLinks links;
    links.add(statusOf(1), QString());
    struct stat changed = statusOf(1);
    changed.st_ctim.tv_nsec = 6;
    QVERIFY(!links.find(changed));
    changed.st_ctim = {1001, 5};
    QVERIFY(!links.find(changed));
}

void TestScannedLinks::remembersNothingThatMayStillChange()
{
    ScannedLinks links;
    struct stat fresh = statusOf(1);
    fresh.st_ctim.tv_sec = ::time(nullptr);
    links.add(fresh, QString());
    QVERIFY(!links.find(fresh));
}

void TestScannedLinks::isBounded()
{
    ScannedLinks links;
    for (ino_t inode = 1; inode <= ScannedLinks::most + 1; ++inode) {
        links.add(statusOf(inode), QString());
    }
    QVERIFY(!links.find(statusOf(1)));
    QVERIFY(links.find(statusOf(ScannedLinks::most + 1)));
}

QTEST_GUILESS_MAIN(TestScannedLinks)
#include "tst_scannedlinks.moc"
