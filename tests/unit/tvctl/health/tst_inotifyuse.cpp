#include "tvctl/health/inotifyuse.h"

#include "common/uniquefd.h"

#include <QTemporaryDir>
#include <QTest>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

class TestInotifyUse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsTheKernelsLines();
    void leavesOtherLinesAlone_data();
    void leavesOtherLinesAlone();
    void comparesDevices();
    void seesOwnWatches();
    void tellsWhatItCannotSee();
    void readsTheLimits();
};

void TestInotifyUse::readsTheKernelsLines()
{
    WatchedSet watched;
    parseInotifyInfo("pos:\t0\nflags:\t00\nmnt_id:\t15\nino:\t1057\n"
                     "inotify wd:2 ino:1f sdev:800003 mask:fca ignored_mask:0 fhandle-bytes:8 f_handle:00\n"
                     "inotify wd:1 ino:2 sdev:1b mask:fca ignored_mask:0\n",
                     watched);
    QCOMPARE(watched.size(), 2);
    QVERIFY(watched.contains(makedev(8, 3), 0x1f));
    QVERIFY(watched.contains(makedev(0, 0x1b), 2));
    QVERIFY(!watched.contains(makedev(8, 3), 2));
}

void TestInotifyUse::leavesOtherLinesAlone_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("no watch") << QByteArray("fanotify wd:1 ino:2 sdev:1b");
    QTest::newRow("no inode") << QByteArray("inotify wd:1 ino: sdev:1b");
    QTest::newRow("no number") << QByteArray("inotify wd:1 ino:x sdev:1b");
    QTest::newRow("no device") << QByteArray("inotify wd:1 ino:2");
}

void TestInotifyUse::leavesOtherLinesAlone()
{
    QFETCH(const QByteArray, text);
    WatchedSet watched;
    parseInotifyInfo(text, watched);
    QVERIFY(watched.isEmpty());
}

void TestInotifyUse::comparesDevices()
{
    WatchedSet watched;
    watched.add(0x1b, 2);
    QVERIFY(!watched.contains(makedev(0, 0x1b), 3));
    // A device that the kernel does not know by this number: the inode alone.
    QVERIFY(watched.contains(makedev(0, 0x2c), 2));
    QVERIFY(!watched.contains(makedev(0, 0x2c), 3));
}

void TestInotifyUse::seesOwnWatches()
{
    const QTemporaryDir directory;
    const QByteArray path = directory.path().toUtf8();
    const UniqueFd queue(::inotify_init1(IN_CLOEXEC));
    QVERIFY(queue.isValid());
    struct stat status = {};
    QCOMPARE(::stat(path.constData(), &status), 0);
    const auto before = inotifyUseOf(::getpid());
    QVERIFY(before);
    QCOMPARE(before->instances, 1);
    QCOMPARE(before->watched.size(), 0);
    QVERIFY(::inotify_add_watch(queue.get(), path.constData(), IN_CREATE) >= 0);
    const auto use = inotifyUseOf(::getpid());
    QVERIFY(use);
    QCOMPARE(use->watched.size(), 1);
    QVERIFY(use->watched.contains(status.st_dev, status.st_ino));
}

void TestInotifyUse::tellsWhatItCannotSee()
{
    // No process ever has this number.
    QVERIFY(!inotifyUseOf(0));
}

void TestInotifyUse::readsTheLimits()
{
    const InotifyLimits limits = InotifyLimits::read();
    QVERIFY(limits.watches > 0);
    QVERIFY(limits.instances > 0);
    QVERIFY(limits.queuedEvents > 0);
}

QTEST_GUILESS_MAIN(TestInotifyUse)
#include "tst_inotifyuse.moc"
