#include "platform/tvcore/iocdatabaseconfig.h"

#include "capturedlog.h"
#include "common/filename.h"
#include "platform/tvcore/iocscanconfig.h"
#include "platform/tvcore/tvcore.h"
#include "rawdatabase.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <limits>
#include <memory>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{
FileIOCInfo recordOf(const QString& path, int number = 0)
{
    FileIOCInfo info;
    info.setFilePath(path);
    info.setFileSize(1000 + number);
    info.setFileCreateDate(QDateTime::fromMSecsSinceEpoch(1700000000001 + number));
    info.setFileModDate(QDateTime::fromMSecsSinceEpoch(1700000000999 + number));
    info.setFileMD5(QStringLiteral("md5-%1").arg(number));
    info.setFileSHA1(QStringLiteral("sha1-%1").arg(number));
    info.setFileSHA256(QStringLiteral("sha256-%1").arg(number));
    info.setFileSign(QStringLiteral("-"));
    return info;
}

bool isEqual(const QString& a, const QString& b)
{
    return a == b && a.isNull() == b.isNull();
}

bool isEqual(const QDateTime& a, const QDateTime& b)
{
    return a == b && a.isValid() == b.isValid();
}

bool isEqual(const FileIOCInfo& a, const FileIOCInfo& b)
{
    return isEqual(a.getFilePath(), b.getFilePath()) && a.getFileSize() == b.getFileSize() &&
           isEqual(a.getFileCreateDate(), b.getFileCreateDate()) &&
           isEqual(a.getFileModDate(), b.getFileModDate()) && isEqual(a.getFileMD5(), b.getFileMD5()) &&
           isEqual(a.getFileSHA1(), b.getFileSHA1()) && isEqual(a.getFileSHA256(), b.getFileSHA256()) &&
           isEqual(a.getFileSign(), b.getFileSign());
}

/// How often this process has waited for a disk.
int syncCount = 0;

template <typename Function> Function* real(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// Gives `path` the modification time `seconds`.`nanoseconds` since 1970.
bool setModified(const QString& path, qint64 seconds, long nanoseconds)
{
    const struct timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(seconds), nanoseconds}};
    return ::utimensat(AT_FDCWD, FileName::toBytes(path).constData(), times, 0) == 0;
}
} // namespace

// The dynamic linker finds these before the C library's; SQLite comes in with a plug-in, later.
extern "C" __attribute__((visibility("default"))) int fsync(int fd)
{
    ++syncCount;
    return real<int(int)>("fsync")(fd);
}

extern "C" __attribute__((visibility("default"))) int fdatasync(int fd)
{
    ++syncCount;
    return real<int(int)>("fdatasync")(fd);
}

Q_DECLARE_METATYPE(FileIOCInfo)

class TestIOCDatabaseConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void emptyCacheHasNothing();
    void keepsEveryValue();
    void keepsExtremes_data();
    void keepsExtremes();
    void anUnchangedFileHits_data();
    void anUnchangedFileHits();
    void tellsTheTwoHoursOfAClockChangeApart();
    void keepsPathsToTheByte_data();
    void keepsPathsToTheByte();
    void looksUpThePathExactlyAsPassed_data();
    void looksUpThePathExactlyAsPassed();
    void addingReplaces();
    void updatingRewritesWhatIsThere();
    void updatingWhatIsNotThereFails();
    void countsAndClears();
    void leavesTheRecordAloneWhenNothingIsFound();
    void outlivesTheProcess();
    void startsADamagedCacheAnew();
    void failsQuicklyAndOnceWhileItCannotBeUsed();
    void waitsAMomentForALock();
    void neverWaitsForTheDisk();
    void manyWritesInARowTakeNoTime();

private:
    QString path() const
    {
        return m_directory->filePath(QStringLiteral("ioc-cache.db"));
    }
    /// Closes the store, so that the next answer comes from the file.
    void startAnew() const
    {
        TvCore::setDirectory(m_directory->path());
    }

    std::unique_ptr<QTemporaryDir> m_directory;
};

void TestIOCDatabaseConfig::init()
{
    TvCore::setDirectory(QStringLiteral("/nonexistent"));
    m_directory = std::make_unique<QTemporaryDir>();
    startAnew();
}

void TestIOCDatabaseConfig::emptyCacheHasNothing()
{
    IOCDatabaseConfig cache;
    FileIOCInfo info;
    QVERIFY(!cache.getFileIOCInfo(QStringLiteral("/home/u/a"), info));
    QVERIFY(!cache.getFileIOCInfo(QString(), info));
    QCOMPARE(cache.getFileIOCInfoCount(), 0LL);
}

void TestIOCDatabaseConfig::keepsEveryValue()
{
    IOCDatabaseConfig cache;
    FileIOCInfo stored = recordOf(QStringLiteral("/home/u/a"));
    QVERIFY(cache.addFileIOCInfo(stored));
    QVERIFY2(isEqual(stored, recordOf(QStringLiteral("/home/u/a"))), "storing leaves the record as it is");
    startAnew();
    FileIOCInfo info;
    QVERIFY(cache.getFileIOCInfo(QStringLiteral("/home/u/a"), info));
    QVERIFY(isEqual(info, stored));
}

void TestIOCDatabaseConfig::keepsExtremes_data()
{
    QTest::addColumn<FileIOCInfo>("stored");
    const QString path = QStringLiteral("/home/u/a");
    FileIOCInfo nothing;
    nothing.setFilePath(path);
    QTest::newRow("null texts, invalid dates, size 0") << nothing;
    FileIOCInfo empty = recordOf(path);
    empty.setFileMD5(QLatin1String(""));
    empty.setFileSHA1(QLatin1String(""));
    empty.setFileSHA256(QLatin1String(""));
    empty.setFileSign(QLatin1String(""));
    QTest::newRow("empty texts") << empty;
    FileIOCInfo mixed = recordOf(path);
    mixed.setFileMD5(QString());
    mixed.setFileSHA1(QLatin1String(""));
    mixed.setFileSign(QString());
    QTest::newRow("some of each") << mixed;
    FileIOCInfo noCreateDate = recordOf(path);
    noCreateDate.setFileCreateDate(QDateTime());
    QTest::newRow("invalid creation date") << noCreateDate;
    FileIOCInfo noModDate = recordOf(path);
    noModDate.setFileModDate(QDateTime());
    QTest::newRow("invalid modification date") << noModDate;
    FileIOCInfo largest = recordOf(path);
    largest.setFileSize(std::numeric_limits<long long>::max());
    QTest::newRow("largest size") << largest;
    FileIOCInfo smallest = recordOf(path);
    smallest.setFileSize(std::numeric_limits<long long>::min());
    QTest::newRow("smallest size") << smallest;
    FileIOCInfo epoch = recordOf(path);
    epoch.setFileModDate(QDateTime::fromMSecsSinceEpoch(0));
    QTest::newRow("1970") << epoch;
    FileIOCInfo early = recordOf(path);
    early.setFileModDate(QDateTime::fromMSecsSinceEpoch(-1));
    QTest::newRow("before 1970") << early;
    FileIOCInfo late = recordOf(path);
    late.setFileModDate(QDateTime::fromMSecsSinceEpoch(15032385535999));
    QTest::newRow("2446") << late;
    FileIOCInfo utc = recordOf(path);
    utc.setFileModDate(QDateTime::fromMSecsSinceEpoch(1700000000999, Qt::UTC));
    QTest::newRow("in UTC") << utc;
    FileIOCInfo text = recordOf(path);
    text.setFileSign(QString(QChar(0xFEFF)) + QString::fromUtf8("CN=\"a\"\n\xC3\xA9 %1"));
    QTest::newRow("a signer with anything in it") << text;
}

void TestIOCDatabaseConfig::keepsExtremes()
{
    QFETCH(FileIOCInfo, stored);
    IOCDatabaseConfig cache;
    FileIOCInfo ordinary = recordOf(stored.getFilePath());
    FileIOCInfo info;
    QVERIFY(cache.addFileIOCInfo(stored));
    QVERIFY(cache.getFileIOCInfo(stored.getFilePath(), info));
    QVERIFY(isEqual(info, stored));
    QVERIFY(cache.updateFileIOCInfo(ordinary));
    QVERIFY(cache.updateFileIOCInfo(stored));
    QVERIFY(cache.getFileIOCInfo(stored.getFilePath(), info));
    QVERIFY(isEqual(info, stored));
}

void TestIOCDatabaseConfig::anUnchangedFileHits_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<int>("nanoseconds");
    QTest::newRow("whole second") << 1700000000LL << 0;
    QTest::newRow("last nanosecond") << 1700000000LL << 999999999;
    QTest::newRow("less than a millisecond") << 1700000000LL << 999;
    QTest::newRow("a millisecond") << 1700000000LL << 1000000;
    QTest::newRow("epoch") << 0LL << 0;
    QTest::newRow("before it") << -86400LL << 500000000;
    QTest::newRow("beyond 2038") << 4000000000LL << 123456789;
}

void TestIOCDatabaseConfig::anUnchangedFileHits()
{
    QFETCH(qint64, seconds);
    QFETCH(int, nanoseconds);
    const QString name = m_directory->filePath(QStringLiteral("file"));
    QFile file(name);
    QVERIFY(file.open(QFile::WriteOnly) && file.write("abc") == 3);
    file.close();
    QVERIFY(setModified(name, seconds, nanoseconds));
    IOCDatabaseConfig cache;
    {
        const QFileInfo present(name);
        FileIOCInfo info = recordOf(name);
        info.setFileSize(present.size());
        info.setFileCreateDate(present.birthTime());
        info.setFileModDate(present.lastModified());
        QVERIFY(cache.addFileIOCInfo(info));
    }
    startAnew();
    FileIOCInfo info;
    QVERIFY(cache.getFileIOCInfo(name, info));
    const QFileInfo present(name);
    QVERIFY(info.getFileModDate() == present.lastModified());
    QVERIFY(isEqual(info.getFileCreateDate(), present.birthTime()));
    QCOMPARE(info.getFileSize(), present.size());
    // And one millisecond later does not.
    QVERIFY(setModified(name, seconds, (nanoseconds + 1000000) % 1000000000));
    QVERIFY(info.getFileModDate() != QFileInfo(name).lastModified());
}

void TestIOCDatabaseConfig::tellsTheTwoHoursOfAClockChangeApart()
{
    // 2:30 came twice in Berlin that night.
    qputenv("TZ", ":Europe/Berlin");
    tzset();
    const QString name = m_directory->filePath(QStringLiteral("file"));
    QFile file(name);
    QVERIFY(file.open(QFile::WriteOnly));
    file.close();
    IOCDatabaseConfig cache;
    for (const qint64 seconds : {1698539400LL, 1698539400LL + 3600}) {
        QVERIFY(setModified(name, seconds, 1000000));
        FileIOCInfo info = recordOf(name);
        info.setFileModDate(QFileInfo(name).lastModified());
        QCOMPARE(info.getFileModDate().time(), QTime(2, 30, 0, 1));
        QVERIFY(cache.addFileIOCInfo(info));
        QVERIFY(cache.getFileIOCInfo(name, info));
        QVERIFY(info.getFileModDate() == QFileInfo(name).lastModified());
        QCOMPARE(info.getFileModDate().toMSecsSinceEpoch(), seconds * 1000 + 1);
    }
    qunsetenv("TZ");
    tzset();
}

void TestIOCDatabaseConfig::keepsPathsToTheByte_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("empty") << QStringLiteral("");
    QTest::newRow("relative") << QStringLiteral("a");
    QTest::newRow("newline") << QStringLiteral("/home/a\nb");
    QTest::newRow("blanks at the ends") << QStringLiteral(" /home/a \n");
    QTest::newRow("quote") << QStringLiteral("/home/a'; DROP TABLE file_ioc_info; --");
    QTest::newRow("percent") << QStringLiteral("/home/%1 %s %7");
    QTest::newRow("NUL") << QStringLiteral("/home/a") + QChar(0) + QStringLiteral("b");
    QTest::newRow("beyond the basic plane") << QString::fromUtf8("/home/\xF0\x9F\x98\x80");
    QTest::newRow("U+FEFF") << QString(QChar(0xFEFF)) + QStringLiteral("/home/") + QChar(0xFEFF);
    QTest::newRow("byte that is no UTF-8")
        << QStringLiteral("/home/a") + QChar(0xDCFF) + QStringLiteral("bc");
    QTest::newRow("many such bytes") << QStringLiteral("/") + QChar(0xDC80) + QChar(0xDCC3) + QChar(0xDC80);
    QTest::newRow("longest") << QStringLiteral("/") + QString(4095, QChar(0xE9));
}

void TestIOCDatabaseConfig::keepsPathsToTheByte()
{
    QFETCH(QString, path);
    IOCDatabaseConfig cache;
    FileIOCInfo stored = recordOf(path, 1);
    FileIOCInfo other = recordOf(path + QLatin1Char('x'), 2);
    QVERIFY(cache.addFileIOCInfo(other));
    QVERIFY(cache.addFileIOCInfo(stored));
    startAnew();
    FileIOCInfo info;
    QVERIFY(cache.getFileIOCInfo(path, info));
    QVERIFY(isEqual(info, stored));
    QVERIFY(cache.updateFileIOCInfo(stored));
    QCOMPARE(cache.getFileIOCInfoCount(), 2LL);
}

void TestIOCDatabaseConfig::looksUpThePathExactlyAsPassed_data()
{
    QTest::addColumn<QString>("other");
    QTest::newRow("double slash") << QStringLiteral("//home/u/a");
    QTest::newRow("slash at the end") << QStringLiteral("/home/u/a/");
    QTest::newRow("dot") << QStringLiteral("/home/./u/a");
    QTest::newRow("upper case") << QStringLiteral("/home/u/A");
    QTest::newRow("blank") << QStringLiteral("/home/u/a ");
    QTest::newRow("NUL") << QStringLiteral("/home/u/a") + QChar(0);
    QTest::newRow("U+FEFF") << QString(QChar(0xFEFF)) + QStringLiteral("/home/u/a");
}

void TestIOCDatabaseConfig::looksUpThePathExactlyAsPassed()
{
    QFETCH(QString, other);
    IOCDatabaseConfig cache;
    FileIOCInfo stored = recordOf(QStringLiteral("/home/u/a"));
    FileIOCInfo info;
    QVERIFY(cache.addFileIOCInfo(stored));
    QVERIFY(!cache.getFileIOCInfo(other, info));
}

void TestIOCDatabaseConfig::addingReplaces()
{
    IOCDatabaseConfig cache;
    FileIOCInfo first = recordOf(QStringLiteral("/home/u/a"), 1);
    FileIOCInfo second = recordOf(QStringLiteral("/home/u/a"), 2);
    QVERIFY(cache.addFileIOCInfo(first));
    QVERIFY(cache.addFileIOCInfo(second));
    FileIOCInfo info;
    QVERIFY(cache.getFileIOCInfo(QStringLiteral("/home/u/a"), info));
    QVERIFY(isEqual(info, second));
    QCOMPARE(cache.getFileIOCInfoCount(), 1LL);
}

void TestIOCDatabaseConfig::updatingRewritesWhatIsThere()
{
    IOCDatabaseConfig cache;
    FileIOCInfo first = recordOf(QStringLiteral("/home/u/a"), 1);
    FileIOCInfo other = recordOf(QStringLiteral("/home/u/b"), 3);
    FileIOCInfo second = recordOf(QStringLiteral("/home/u/a"), 2);
    QVERIFY(cache.addFileIOCInfo(first));
    QVERIFY(cache.addFileIOCInfo(other));
    QVERIFY(cache.updateFileIOCInfo(second));
    QVERIFY2(cache.updateFileIOCInfo(second), "also when nothing changes");
    FileIOCInfo info;
    QVERIFY(cache.getFileIOCInfo(QStringLiteral("/home/u/a"), info));
    QVERIFY(isEqual(info, second));
    QVERIFY(cache.getFileIOCInfo(QStringLiteral("/home/u/b"), info));
    QVERIFY(isEqual(info, other));
}

void TestIOCDatabaseConfig::updatingWhatIsNotThereFails()
{
    IOCDatabaseConfig cache;
    FileIOCInfo present = recordOf(QStringLiteral("/home/u/a"));
    FileIOCInfo absent = recordOf(QStringLiteral("/home/u/b"));
    QVERIFY(!cache.updateFileIOCInfo(absent));
    QVERIFY(cache.addFileIOCInfo(present));
    QVERIFY(!cache.updateFileIOCInfo(absent));
    FileIOCInfo info;
    QVERIFY(!cache.getFileIOCInfo(QStringLiteral("/home/u/b"), info));
    QCOMPARE(cache.getFileIOCInfoCount(), 1LL);
}

void TestIOCDatabaseConfig::countsAndClears()
{
    IOCDatabaseConfig cache;
    for (int i = 0; i < 100; ++i) {
        FileIOCInfo info = recordOf(QStringLiteral("/home/u/%1").arg(i), i);
        QVERIFY(cache.addFileIOCInfo(info));
    }
    QCOMPARE(cache.getFileIOCInfoCount(), 100LL);
    QVERIFY(cache.clearFileIOCInfo());
    QCOMPARE(cache.getFileIOCInfoCount(), 0LL);
    FileIOCInfo info;
    QVERIFY(!cache.getFileIOCInfo(QStringLiteral("/home/u/7"), info));
}

void TestIOCDatabaseConfig::leavesTheRecordAloneWhenNothingIsFound()
{
    IOCDatabaseConfig cache;
    FileIOCInfo info = recordOf(QStringLiteral("/absolute"), 5);
    QVERIFY(!cache.getFileIOCInfo(QStringLiteral("relative"), info));
    QVERIFY(isEqual(info, recordOf(QStringLiteral("/absolute"), 5)));
}

void TestIOCDatabaseConfig::outlivesTheProcess()
{
    IOCDatabaseConfig cache;
    FileIOCInfo stored = recordOf(QStringLiteral("/home/u/a"));
    QVERIFY(cache.addFileIOCInfo(stored));
    // What another process that starts now finds: nothing is kept in memory only.
    RawDatabase other(path());
    QCOMPARE(other.value(QStringLiteral("SELECT md5 FROM file_ioc_info WHERE path = '/home/u/a'")).toString(),
             QStringLiteral("md5-0"));
    QCOMPARE(other.value(QStringLiteral("SELECT modified_at FROM file_ioc_info")).toLongLong(),
             1700000000999);
}

void TestIOCDatabaseConfig::startsADamagedCacheAnew()
{
    QFile garbage(path());
    QVERIFY(garbage.open(QFile::WriteOnly));
    garbage.write(QByteArray(10000, 'x'));
    garbage.close();
    const CapturedLog log;
    IOCDatabaseConfig cache;
    FileIOCInfo stored = recordOf(QStringLiteral("/home/u/a"));
    FileIOCInfo info;
    QVERIFY(!cache.getFileIOCInfo(QStringLiteral("/home/u/a"), info));
    QVERIFY(cache.addFileIOCInfo(stored));
    QVERIFY(cache.getFileIOCInfo(QStringLiteral("/home/u/a"), info));
    QCOMPARE(QDir(m_directory->path()).entryList({QStringLiteral("ioc-cache.db.corrupt-*")}).size(), 1);
    QCOMPARE(CapturedLog::messages().size(), 1);
}

void TestIOCDatabaseConfig::failsQuicklyAndOnceWhileItCannotBeUsed()
{
    // A directory in its place stops root as well.
    QVERIFY(QDir().mkdir(path()));
    const CapturedLog log;
    IOCDatabaseConfig cache;
    FileIOCInfo info = recordOf(QStringLiteral("/home/u/a"));
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < 20; ++i) {
        QVERIFY(!cache.getFileIOCInfo(QStringLiteral("/home/u/a"), info));
        QVERIFY(!cache.addFileIOCInfo(info));
        QVERIFY(!cache.updateFileIOCInfo(info));
    }
    QVERIFY(timer.elapsed() < 2000);
    QVERIFY(!cache.clearFileIOCInfo());
    QCOMPARE(cache.getFileIOCInfoCount(), -1LL);
    QVERIFY(isEqual(info, recordOf(QStringLiteral("/home/u/a"))));
    // Once for reading, once for writing.
    QCOMPARE(CapturedLog::messages().size(), 2);
    QVERIFY(QDir().rmdir(path()));
    QTRY_VERIFY(cache.addFileIOCInfo(info));
    QVERIFY(cache.getFileIOCInfo(QStringLiteral("/home/u/a"), info));
}

void TestIOCDatabaseConfig::waitsAMomentForALock()
{
    IOCDatabaseConfig cache;
    FileIOCInfo first = recordOf(QStringLiteral("/home/u/a"), 1);
    FileIOCInfo second = recordOf(QStringLiteral("/home/u/a"), 2);
    FileIOCInfo info;
    QVERIFY(cache.addFileIOCInfo(first));
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!cache.updateFileIOCInfo(second));
        QVERIFY(!cache.addFileIOCInfo(second));
        QVERIFY2(timer.elapsed() < 1000, "a scan must not wait long for what only spares work");
        QVERIFY(cache.getFileIOCInfo(QStringLiteral("/home/u/a"), info));
        QVERIFY(isEqual(info, first));
    }
    QVERIFY(cache.updateFileIOCInfo(second));
    QVERIFY(cache.getFileIOCInfo(QStringLiteral("/home/u/a"), info));
    QVERIFY(isEqual(info, second));
}

void TestIOCDatabaseConfig::neverWaitsForTheDisk()
{
    IOCScanConfig settings;
    syncCount = 0;
    QVERIFY(settings.setHashList(IOCScanConfig::MD5, {QStringLiteral("a")}));
    QVERIFY2(syncCount > 0, "the settings are durable, and the test sees it");
    syncCount = 0;
    IOCDatabaseConfig cache;
    for (int i = 0; i < 2000; ++i) {
        FileIOCInfo info = recordOf(QStringLiteral("/home/u/%1").arg(i), i);
        QVERIFY(cache.addFileIOCInfo(info));
    }
    QCOMPARE(syncCount, 0);
}

void TestIOCDatabaseConfig::manyWritesInARowTakeNoTime()
{
    // Each scan of a file that is in the cache writes its record anew.
    IOCDatabaseConfig cache;
    FileIOCInfo info = recordOf(QStringLiteral("/home/u/a"));
    QVERIFY(cache.addFileIOCInfo(info));
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < 1000; ++i) {
        QVERIFY(cache.updateFileIOCInfo(info));
    }
    QVERIFY2(timer.elapsed() < 2000, "a pause of milliseconds between them would take longer");
}

QTEST_GUILESS_MAIN(TestIOCDatabaseConfig)
#include "tst_iocdatabaseconfig.moc"
