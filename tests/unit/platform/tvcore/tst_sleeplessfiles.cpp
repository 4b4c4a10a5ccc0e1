#include "platform/tvcore/sleeplessfiles.h"

#include <QElapsedTimer>
#include <QTest>

#include <sqlite3.h>

class TestSleeplessFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void doesNotSleep();
    void isNotTheDefault();
};

void TestSleeplessFiles::doesNotSleep()
{
    sqlite3_vfs* const files = sqlite3_vfs_find(SleeplessFiles::name().latin1());
    QVERIFY(files != nullptr);
    constexpr int microseconds = 20 * 1000 * 1000;
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(files->xSleep(files, microseconds), microseconds);
    QVERIFY(timer.elapsed() < microseconds / 1000);
}

void TestSleeplessFiles::isNotTheDefault()
{
    QVERIFY(sqlite3_vfs_find(nullptr) != sqlite3_vfs_find(SleeplessFiles::name().latin1()));
}

QTEST_GUILESS_MAIN(TestSleeplessFiles)
#include "tst_sleeplessfiles.moc"
