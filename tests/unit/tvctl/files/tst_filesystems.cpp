#include "tvctl/files/filesystems.h"

#include <QTest>

#include <linux/magic.h>
#include <sys/statfs.h>

class TestFileSystems : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void knowsTheKernelsOwn();
    void knowsWhoKeepsChangeTimes_data();
    void knowsWhoKeepsChangeTimes();
};

void TestFileSystems::knowsTheKernelsOwn()
{
    for (const char* path : {"/proc", "/sys"}) {
        struct statfs about = {};
        QCOMPARE(::statfs(path, &about), 0);
        QVERIFY2(FileSystems::isPseudo(about.f_type), path);
        QVERIFY2(!FileSystems::keepsChangeTimes(about.f_type), path);
    }
    QVERIFY(!FileSystems::isPseudo(TMPFS_MAGIC));
    QVERIFY(!FileSystems::isPseudo(FUSE_SUPER_MAGIC));
    QVERIFY(!FileSystems::isPseudo(0));
}

void TestFileSystems::knowsWhoKeepsChangeTimes_data()
{
    QTest::addColumn<qint64>("type");
    QTest::addColumn<bool>("isKept");
    QTest::newRow("ext4") << qint64(EXT4_SUPER_MAGIC) << true;
    QTest::newRow("xfs") << qint64(XFS_SUPER_MAGIC) << true;
    QTest::newRow("btrfs") << qint64(BTRFS_SUPER_MAGIC) << true;
    QTest::newRow("tmpfs") << qint64(TMPFS_MAGIC) << false;
    QTest::newRow("ramfs") << qint64(RAMFS_MAGIC) << false;
    QTest::newRow("overlay") << qint64(OVERLAYFS_SUPER_MAGIC) << false;
    QTest::newRow("FAT") << qint64(MSDOS_SUPER_MAGIC) << false;
    QTest::newRow("exFAT") << qint64(EXFAT_SUPER_MAGIC) << false;
    QTest::newRow("FUSE") << qint64(FUSE_SUPER_MAGIC) << false;
    QTest::newRow("NFS") << qint64(NFS_SUPER_MAGIC) << false;
    QTest::newRow("unknown") << qint64(0) << false;
}

void TestFileSystems::knowsWhoKeepsChangeTimes()
{
    QFETCH(qint64, type);
    QTEST(FileSystems::keepsChangeTimes(type), "isKept");
}

QTEST_GUILESS_MAIN(TestFileSystems)
#include "tst_filesystems.moc"
