#include "platform/tvcore/fileiocinfo.h"

#include <QTest>

#include <limits>

class TestFileIOCInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isEmptyWhenNew();
    void keepsEachValueApart();
};

void TestFileIOCInfo::isEmptyWhenNew()
{
    const FileIOCInfo info;
    QVERIFY(info.getFilePath().isNull());
    QCOMPARE(info.getFileSize(), 0LL);
    QVERIFY(!info.getFileCreateDate().isValid());
    QVERIFY(!info.getFileModDate().isValid());
    QVERIFY(info.getFileMD5().isNull());
    QVERIFY(info.getFileSHA1().isNull());
    QVERIFY(info.getFileSHA256().isNull());
    QVERIFY(info.getFileSign().isNull());
}

void TestFileIOCInfo::keepsEachValueApart()
{
    const QDateTime created = QDateTime::fromMSecsSinceEpoch(1709643600123);
    const QDateTime modified = QDateTime::fromMSecsSinceEpoch(1709643600124);
    constexpr long long size = std::numeric_limits<long long>::max();
    FileIOCInfo info;
    info.setFilePath(QStringLiteral("/path"));
    info.setFileSize(size);
    info.setFileCreateDate(created);
    info.setFileModDate(modified);
    info.setFileMD5(QStringLiteral("md5"));
    info.setFileSHA1(QStringLiteral("sha1"));
    info.setFileSHA256(QStringLiteral("sha256"));
    info.setFileSign(QStringLiteral("-"));
    QCOMPARE(info.getFilePath(), QStringLiteral("/path"));
    QCOMPARE(info.getFileSize(), size);
    QCOMPARE(info.getFileCreateDate(), created);
    QCOMPARE(info.getFileModDate(), modified);
    QCOMPARE(info.getFileMD5(), QStringLiteral("md5"));
    QCOMPARE(info.getFileSHA1(), QStringLiteral("sha1"));
    QCOMPARE(info.getFileSHA256(), QStringLiteral("sha256"));
    QCOMPARE(info.getFileSign(), QStringLiteral("-"));
}

QTEST_APPLESS_MAIN(TestFileIOCInfo)
#include "tst_fileiocinfo.moc"
