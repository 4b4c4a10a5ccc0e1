#include "ioc/iocreportmanager.h"

#include "common/common.h"
#include "ioc/iocreportline.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QLocale>
#include <QTest>

#include <cerrno>
#include <new>

#include <unistd.h>

class TestIocReportManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void isOneInstance();
    void appendsARecordACall();
    void opensTheFileForEachRecord();
    void reportsADirectoryThatCannotBeMade();
    void reportsAFileThatCannotBeOpened();
    void answersOneAlsoWhenNothingCouldBeWritten();
    void keepsThePointerAfterRelease();
};

namespace
{
QString fileOf(const QDateTime& moment)
{
    return Common::getReportsPath() + QLatin1Char('/') + iocReportFileName(moment);
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

int add(const char* path)
{
    return IOCReportManager::getInstance()->addFileInReport(QString::fromUtf8(path), QStringLiteral("abc"),
                                                            QStringLiteral("ID"), 4);
}
} // namespace

void TestIocReportManager::init()
{
    const QString directory = Common::getReportsPath();
    QDir(directory).removeRecursively();
    QFile::remove(directory);
}

void TestIocReportManager::isOneInstance()
{
    QCOMPARE(IOCReportManager::getInstance(), IOCReportManager::getInstance());
}

void TestIocReportManager::appendsARecordACall()
{
    // The day may change in between; then the test is to be made again.
    QDateTime before;
    QDateTime after;
    do {
        init();
        before = QDateTime::currentDateTime();
        QCOMPARE(add("/home/u/a"), 1);
        QCOMPARE(add("/home/u/\u00F6\u4E2D"), 1);
        after = QDateTime::currentDateTime();
    } while (before.date() != after.date());

    const QList<QByteArray> lines = contentOf(fileOf(before)).split('\n');
    QCOMPARE(lines.size(), 3);
    QVERIFY(lines.at(2).isEmpty());
    for (const QByteArray& line : {lines.at(0), lines.at(1)}) {
        QCOMPARE(line.count(','), 10);
        const QDateTime stamp = QLocale::c().toDateTime(QString::fromLatin1(line.left(19)),
                                                        QStringLiteral("dd-MM-yyyy hh:mm:ss"));
        QVERIFY(stamp.isValid());
        QVERIFY(stamp.addSecs(1) > before && stamp <= after);
    }
    QCOMPARE(lines.at(0).mid(19), QByteArray(",/home/u/a,ID,4,abc,NA,NA,NA,NA,NA,NA"));
    QCOMPARE(lines.at(1).mid(19), QByteArray(",/home/u/\xF6?,ID,4,abc,NA,NA,NA,NA,NA,NA"));
}

void TestIocReportManager::opensTheFileForEachRecord()
{
    QDateTime before;
    QDateTime after;
    do {
        init();
        before = QDateTime::currentDateTime();
        QCOMPARE(add("/a"), 1);
        QVERIFY(QFile::rename(fileOf(before), fileOf(before) + QStringLiteral(".old")));
        QCOMPARE(add("/b"), 1);
        after = QDateTime::currentDateTime();
    } while (before.date() != after.date());
    QCOMPARE(contentOf(fileOf(before) + QStringLiteral(".old")).count("/a,"), 1);
    QCOMPARE(contentOf(fileOf(before)).count('\n'), 1);
    QCOMPARE(contentOf(fileOf(before)).count("/b,"), 1);
}

void TestIocReportManager::reportsADirectoryThatCannotBeMade()
{
    const QString directory = Common::getReportsPath();
    QVERIFY(QDir(directory).removeRecursively());
    QFile inItsPlace(directory);
    QVERIFY(inItsPlace.open(QIODevice::WriteOnly));
    inItsPlace.close();
    errno = 0;
    QCOMPARE(add("/a"), 0);
    QCOMPARE(errno, ENOTDIR);
    QCOMPARE(contentOf(directory), QByteArray());
    QFile::remove(directory);
}

void TestIocReportManager::reportsAFileThatCannotBeOpened()
{
    const QDateTime now = QDateTime::currentDateTime();
    // Both days that the call may fall on.
    for (const QDateTime& moment : {now, now.addDays(1)}) {
        QVERIFY(QDir().mkdir(fileOf(moment)));
    }
    errno = 0;
    QCOMPARE(add("/a"), 0);
    QCOMPARE(errno, EISDIR);
}

void TestIocReportManager::answersOneAlsoWhenNothingCouldBeWritten()
{
    const QDateTime now = QDateTime::currentDateTime();
    for (const QDateTime& moment : {now, now.addDays(1)}) {
        QVERIFY(QFile::link(QStringLiteral("/dev/full"), fileOf(moment)));
    }
    QCOMPARE(add("/a"), 1);
}

void TestIocReportManager::keepsThePointerAfterRelease()
{
    IOCReportManager* const released = IOCReportManager::getInstance();
    IOCReportManager::releaseInstance();
    // Takes the place that has become free, so that a new manager would lie elsewhere.
    void* const taken = ::operator new(sizeof(IOCReportManager));
    QVERIFY(IOCReportManager::getInstance() == released);
    ::operator delete(taken);
}

QTEST_GUILESS_MAIN(TestIocReportManager)
#include "tst_iocreportmanager.moc"
