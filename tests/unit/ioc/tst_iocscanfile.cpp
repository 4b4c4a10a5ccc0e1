#include "ioc/iocscanfile.h"

#include "fakeiocstore.h"
#include "logger/clogger.h"
#include "support/logreader.h"
#include "unit/digest/fakefiles.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

class TestIocScanFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void isOneInstanceUntilReleased();
    void readsTheThreeLists();
    void hashesAFile_data();
    void hashesAFile();
    void hasNoHashOfWhatCannotBeRead();
    void matches_data();
    void matches();
    void findsNothingBeforeListsAreLoaded();
    void findsWhatIsListedFirstLastAndAmongMany();
    void keepsTheLettersCase();
    void matchesAnEmptyHashWithAnEmptyEntry();
    void addsARecordOfANewFile();
    void usesTheRecordOfAnUnchangedFile();
    void knowsAFileOfAnyTime_data();
    void knowsAFileOfAnyTime();
    void usesTheRecordOfAFileThatCannotBeHeld();
    void hashesAgain_data();
    void hashesAgain();
    void keepsTheHashesOfAReplacementThatLooksTheSame();
    void looksUpThePathAsItComes_data();
    void looksUpThePathAsItComes();
    void keepsTheRecordOfAMissingFile();
    void keepsTheRecordOfAnUnreadableFile();
    void keepsNothingOfAPassingFailure();
    void leavesAnOldRecordAloneOnAPassingFailure();
    void saysThatSavingFailedAndGoesOn_data();
    void saysThatSavingFailedAndGoesOn();
    void acceptsNamesBeyondAscii();
    void isLoadingWhileItReadsTheLists();
    void looksThroughAMillionHashesAtOnce();

private:
    QString makeFile(const char* name, const QByteArray& content) const;
    void setModified(const QString& path, const QDateTime& when) const;

    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<LogReader> m_log;
};

namespace
{
const QByteArray content("some content\n");

QString hashOf(QCryptographicHash::Algorithm algorithm, const QByteArray& data = content)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, algorithm).toHex());
}

QString md5()
{
    return hashOf(QCryptographicHash::Md5);
}
QString sha1()
{
    return hashOf(QCryptographicHash::Sha1);
}
QString sha256()
{
    return hashOf(QCryptographicHash::Sha256);
}

IOCScanFile* scanner()
{
    return IOCScanFile::getInstance();
}

int scan(const QString& path)
{
    QString hash;
    return scanner()->scanFile(path, hash);
}
} // namespace

void TestIocScanFile::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

void TestIocScanFile::init()
{
    FakeFiles::reset();
    FakeIocStore::reset();
    IOCScanFile::releaseInstance();
    m_directory = std::make_unique<QTemporaryDir>();
    LOGGER::CLogger::getInstance()->Info("next", "%s", QTest::currentTestFunction());
    m_log = std::make_unique<LogReader>();
}

void TestIocScanFile::cleanup()
{
    FakeFiles::reset();
}

QString TestIocScanFile::makeFile(const char* name, const QByteArray& data) const
{
    QString path = m_directory->path() + QLatin1Char('/') + QString::fromUtf8(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size()) {
        qFatal("cannot write %s", name);
    }
    return path;
}

void TestIocScanFile::setModified(const QString& path, const QDateTime& when) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite) || !file.setFileTime(when, QFileDevice::FileModificationTime)) {
        qFatal("cannot set a time");
    }
}

void TestIocScanFile::isOneInstanceUntilReleased()
{
    QCOMPARE(IOCScanFile::getInstance(), IOCScanFile::getInstance());
    scanner()->loadDatabases();
    QVERIFY(scanner()->isDBLoaded());
    IOCScanFile::releaseInstance();
    QVERIFY(!scanner()->isDBLoaded());
    IOCScanFile::releaseInstance();
    IOCScanFile::releaseInstance();
}

void TestIocScanFile::readsTheThreeLists()
{
    QVERIFY(!scanner()->isDBLoaded());
    QVERIFY(!scanner()->isDBLoading());
    QVERIFY(scanner()->loadDatabases());
    QCOMPARE(FakeIocStore::listsRead, QList<int>({0, 1, 2}));
    QVERIFY(scanner()->isDBLoaded());
    QVERIFY(!scanner()->isDBLoading());
    QVERIFY(scanner()->reloadDatabases());
    QCOMPARE(FakeIocStore::listsRead, QList<int>({0, 1, 2, 0, 1, 2}));
    QVERIFY(scanner()->isDBLoaded());
    QVERIFY(!scanner()->isDBLoading());
}

void TestIocScanFile::hashesAFile_data()
{
    QTest::addColumn<int>("algorithm");
    QTest::newRow("MD5") << static_cast<int>(QCryptographicHash::Md5);
    QTest::newRow("SHA-1") << static_cast<int>(QCryptographicHash::Sha1);
    QTest::newRow("SHA-256") << static_cast<int>(QCryptographicHash::Sha256);
    QTest::newRow("SHA-512") << static_cast<int>(QCryptographicHash::Sha512);
}

void TestIocScanFile::hashesAFile()
{
    QFETCH(int, algorithm);
    const auto method = static_cast<QCryptographicHash::Algorithm>(algorithm);
    const QString path = makeFile("a", content);
    QCOMPARE(scanner()->getHashOfFile(path, method), hashOf(method));
    QCOMPARE(scanner()->getHashOfFile(makeFile("a", "other"), method), hashOf(method, "other"));
}

void TestIocScanFile::hasNoHashOfWhatCannotBeRead()
{
    const QString fifo = m_directory->path() + QStringLiteral("/fifo");
    QCOMPARE(::mkfifo(fifo.toUtf8().constData(), 0600), 0);
    for (const QString& path : {fifo, m_directory->path(), QStringLiteral("/dev/zero"),
                                QStringLiteral("/nonexistent"), QString()}) {
        QCOMPARE(scanner()->getHashOfFile(path, QCryptographicHash::Md5), QString());
    }
}

void TestIocScanFile::matches_data()
{
    QTest::addColumn<bool>("inMd5");
    QTest::addColumn<bool>("inSha1");
    QTest::addColumn<bool>("inSha256");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("hash");
    QTest::newRow("none") << false << false << false << 0 << QStringLiteral("before");
    QTest::newRow("MD5") << true << false << false << 1 << md5();
    QTest::newRow("SHA-1") << false << true << false << 2 << sha1();
    QTest::newRow("SHA-256") << false << false << true << 3 << sha256();
    QTest::newRow("MD5 and SHA-1") << true << true << false << 1 << md5();
    QTest::newRow("MD5 and SHA-256") << true << false << true << 1 << md5();
    QTest::newRow("SHA-1 and SHA-256") << false << true << true << 2 << sha1();
    QTest::newRow("all") << true << true << true << 1 << md5();
}

void TestIocScanFile::matches()
{
    QFETCH(bool, inMd5);
    QFETCH(bool, inSha1);
    QFETCH(bool, inSha256);
    // Each list also holds the hashes of the other kinds, which count for nothing there.
    FakeIocStore::lists[0] = QStringList({sha1(), sha256()}) + (inMd5 ? QStringList(md5()) : QStringList());
    FakeIocStore::lists[1] = QStringList({md5(), sha256()}) + (inSha1 ? QStringList(sha1()) : QStringList());
    FakeIocStore::lists[2] =
        QStringList({md5(), sha1()}) + (inSha256 ? QStringList(sha256()) : QStringList());
    scanner()->loadDatabases();
    const QString path = makeFile("a", content);
    // Fresh, and from the cache.
    for (int round = 0; round < 2; ++round) {
        QString hash = QStringLiteral("before");
        QTEST(scanner()->scanFile(path, hash), "result");
        QTEST(hash, "hash");
    }
    QVERIFY(m_log->takeNew().isEmpty());
}

void TestIocScanFile::findsNothingBeforeListsAreLoaded()
{
    FakeIocStore::lists[0] = QStringList(md5());
    const QString path = makeFile("a", content);
    QCOMPARE(scan(path), 0);
    QCOMPARE(FakeIocStore::records.value(path).getFileMD5(), md5());
    scanner()->loadDatabases();
    QCOMPARE(scan(path), 1);
    FakeIocStore::lists[0].clear();
    QCOMPARE(scan(path), 1);
    scanner()->reloadDatabases();
    QCOMPARE(scan(path), 0);
}

void TestIocScanFile::findsWhatIsListedFirstLastAndAmongMany()
{
    QStringList many;
    for (int i = 0; i < 1000; ++i) {
        many.append(QString::number(i));
    }
    const QString path = makeFile("a", content);
    for (const int position : {0, 500, 1000}) {
        FakeIocStore::lists[2] = many;
        FakeIocStore::lists[2].insert(position, sha256());
        scanner()->reloadDatabases();
        QCOMPARE(scan(path), 3);
    }
    // A text twice in a list is nothing special.
    FakeIocStore::lists[2] = QStringList({sha256(), sha256()});
    scanner()->reloadDatabases();
    QCOMPARE(scan(path), 3);
}

void TestIocScanFile::keepsTheLettersCase()
{
    FakeIocStore::lists[0] =
        QStringList({md5().toUpper(), QLatin1Char(' ') + md5(), md5() + QLatin1Char('\n')});
    FakeIocStore::lists[1] = QStringList(sha1().toUpper());
    FakeIocStore::lists[2] = QStringList(sha256().toUpper());
    scanner()->loadDatabases();
    QCOMPARE(scan(makeFile("a", content)), 0);
}

void TestIocScanFile::matchesAnEmptyHashWithAnEmptyEntry()
{
    FakeIocStore::lists[1] = QStringList(QStringLiteral(""));
    scanner()->loadDatabases();
    QString hash = QStringLiteral("before");
    const QString missing = m_directory->path() + QStringLiteral("/missing");
    QCOMPARE(scanner()->scanFile(missing, hash), 2);
    QCOMPARE(hash, QString());
    QCOMPARE(scan(makeFile("a", content)), 0);
}

void TestIocScanFile::addsARecordOfANewFile()
{
    const QString path = makeFile("a", content);
    scan(path);
    QCOMPARE(FakeIocStore::cacheCalls,
             QStringList({QStringLiteral("get ") + path, QStringLiteral("add ") + path}));
    const FileIOCInfo record = FakeIocStore::records.value(path);
    const QFileInfo file(path);
    QCOMPARE(record.getFilePath(), path);
    QCOMPARE(record.getFileSize(), static_cast<long long>(content.size()));
    QCOMPARE(record.getFileCreateDate(), file.birthTime());
    QCOMPARE(record.getFileModDate(), file.lastModified());
    QCOMPARE(record.getFileMD5(), md5());
    QCOMPARE(record.getFileSHA1(), sha1());
    QCOMPARE(record.getFileSHA256(), sha256());
    QCOMPARE(record.getFileSign(), QStringLiteral("-"));
}

void TestIocScanFile::usesTheRecordOfAnUnchangedFile()
{
    const QString path = makeFile("a", content);
    scan(path);
    FileIOCInfo record = FakeIocStore::records.value(path);
    record.setFileSHA1(QStringLiteral("of the record"));
    record.setFileSign(QStringLiteral("somebody"));
    record.setFileCreateDate(QDateTime());
    FakeIocStore::records.insert(path, record);
    FakeIocStore::lists[1] = QStringList(QStringLiteral("of the record"));
    scanner()->loadDatabases();
    FakeIocStore::cacheCalls.clear();
    FakeFiles::reset();

    QCOMPARE(scan(path), 2);
    QCOMPARE(FakeFiles::opened, 0);
    QCOMPARE(FakeIocStore::cacheCalls,
             QStringList({QStringLiteral("get ") + path, QStringLiteral("update ") + path}));
    QCOMPARE(FakeIocStore::records.value(path).getFileSign(), QStringLiteral("-"));
    QVERIFY(!FakeIocStore::records.value(path).getFileCreateDate().isValid());
}

void TestIocScanFile::knowsAFileOfAnyTime_data()
{
    QTest::addColumn<qint64>("milliseconds");
    QTest::newRow("now and then") << qint64(1700000000123);
    QTest::newRow("the first moment") << qint64(0);
    QTest::newRow("a millisecond later") << qint64(1);
    QTest::newRow("before it") << qint64(-1);
    QTest::newRow("long before it") << qint64(-86400500);
    QTest::newRow("after 2038") << qint64(4000000000999);
}

void TestIocScanFile::knowsAFileOfAnyTime()
{
    QFETCH(qint64, milliseconds);
    const QString path = makeFile("a", content);
    // Between two milliseconds, as most are.
    const qint64 below = milliseconds >= 0 ? 0 : 999;
    const struct timespec time = {(milliseconds - below) / 1000,
                                  (milliseconds - (milliseconds - below) / 1000 * 1000) * 1000000 + 4567};
    const struct timespec times[] = {time, time};
    QCOMPARE(::utimensat(AT_FDCWD, path.toUtf8().constData(), times, 0), 0);
    scan(path);
    QCOMPARE(FakeIocStore::records.value(path).getFileModDate(), QFileInfo(path).lastModified());
    FakeFiles::reset();
    scan(path);
    QCOMPARE(FakeFiles::opened, 0);
}

void TestIocScanFile::usesTheRecordOfAFileThatCannotBeHeld()
{
    FakeIocStore::lists[0] = QStringList(md5());
    scanner()->loadDatabases();
    const QString path = makeFile("a", content);
    QCOMPARE(scan(path), 1);
    FakeFiles::lookError = EMFILE;
    QCOMPARE(scan(path), 1);
    QCOMPARE(FakeIocStore::records.value(path).getFileMD5(), md5());
}

void TestIocScanFile::hashesAgain_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("milliseconds");
    QTest::newRow("other time, same content") << content << 1000;
    QTest::newRow("a millisecond later") << content << 1;
    QTest::newRow("earlier") << content << -1;
    QTest::newRow("same time, other size") << content + "x" << 0;
    QTest::newRow("both") << content + "x" << 5;
}

void TestIocScanFile::hashesAgain()
{
    QFETCH(QByteArray, data);
    QFETCH(int, milliseconds);
    const QDateTime first = QDateTime::fromMSecsSinceEpoch(1700000000123);
    const QString path = makeFile("a", content);
    setModified(path, first);
    scan(path);
    FileIOCInfo record = FakeIocStore::records.value(path);
    record.setFileMD5(QStringLiteral("stale"));
    FakeIocStore::records.insert(path, record);

    makeFile("a", data);
    setModified(path, first.addMSecs(milliseconds));
    FakeIocStore::cacheCalls.clear();
    scan(path);
    QCOMPARE(FakeIocStore::cacheCalls,
             QStringList({QStringLiteral("get ") + path, QStringLiteral("update ") + path}));
    record = FakeIocStore::records.value(path);
    QCOMPARE(record.getFileMD5(), hashOf(QCryptographicHash::Md5, data));
    QCOMPARE(record.getFileSHA1(), hashOf(QCryptographicHash::Sha1, data));
    QCOMPARE(record.getFileSHA256(), hashOf(QCryptographicHash::Sha256, data));
    QCOMPARE(record.getFileSize(), static_cast<long long>(data.size()));
    QCOMPARE(record.getFileModDate(), first.addMSecs(milliseconds));
}

void TestIocScanFile::keepsTheHashesOfAReplacementThatLooksTheSame()
{
    const QDateTime when = QDateTime::fromMSecsSinceEpoch(1700000000123);
    const QString path = makeFile("a", content);
    setModified(path, when);
    scan(path);
    QByteArray other = content;
    other[0] = 'X';
    makeFile("a", other);
    setModified(path, when);
    scan(path);
    QCOMPARE(FakeIocStore::records.value(path).getFileMD5(), md5());
}

void TestIocScanFile::looksUpThePathAsItComes_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::newRow("two slashes") << QStringLiteral("/");
    QTest::newRow("a dot") << QStringLiteral("/.");
    QTest::newRow("up and down") << QStringLiteral("/tmp/..");
}

void TestIocScanFile::looksUpThePathAsItComes()
{
    QFETCH(QString, prefix);
    const QString path = makeFile("a", content);
    const QString asked = prefix + path;
    for (int round = 0; round < 2; ++round) {
        FakeIocStore::cacheCalls.clear();
        FakeFiles::reset();
        scan(asked);
        // Stored where it is never found: hashed and added each time.
        QCOMPARE(FakeIocStore::cacheCalls,
                 QStringList({QStringLiteral("get ") + asked, QStringLiteral("add ") + path}));
        QCOMPARE(FakeFiles::opened, 1);
    }
    const QString relative = QDir::current().relativeFilePath(path);
    FakeIocStore::cacheCalls.clear();
    scan(relative);
    QCOMPARE(FakeIocStore::cacheCalls,
             QStringList({QStringLiteral("get ") + relative, QStringLiteral("add ") + path}));
}

void TestIocScanFile::keepsTheRecordOfAMissingFile()
{
    const QString path = m_directory->path() + QStringLiteral("/missing");
    QCOMPARE(scan(path), 0);
    const FileIOCInfo record = FakeIocStore::records.value(path);
    QCOMPARE(record.getFileSize(), 0LL);
    QVERIFY(!record.getFileModDate().isValid());
    QVERIFY(!record.getFileCreateDate().isValid());
    QCOMPARE(record.getFileMD5(), QString());
    QCOMPARE(record.getFileSHA1(), QString());
    QCOMPARE(record.getFileSHA256(), QString());

    // It does not stand in the way when there is a file.
    FakeIocStore::lists[0] = QStringList(md5());
    scanner()->loadDatabases();
    QCOMPARE(scan(makeFile("missing", content)), 1);
}

void TestIocScanFile::keepsTheRecordOfAnUnreadableFile()
{
    FakeIocStore::lists[0] = QStringList(md5());
    scanner()->loadDatabases();
    const QString path = makeFile("a", content);
    FakeFiles::openError = EACCES;
    QCOMPARE(scan(path), 0);
    const FileIOCInfo record = FakeIocStore::records.value(path);
    QCOMPARE(record.getFileMD5(), QString());
    QCOMPARE(record.getFileSize(), static_cast<long long>(content.size()));
    QCOMPARE(record.getFileModDate(), QFileInfo(path).lastModified());
}

void TestIocScanFile::keepsNothingOfAPassingFailure()
{
    FakeIocStore::lists[0] = QStringList(md5());
    scanner()->loadDatabases();
    const QString path = makeFile("a", content);
    FakeFiles::openError = EMFILE;
    QCOMPARE(scan(path), 0);
    QVERIFY(FakeIocStore::records.isEmpty());
    FakeFiles::openError = 0;
    FakeFiles::readError = EIO;
    QCOMPARE(scan(path), 0);
    QVERIFY(FakeIocStore::records.isEmpty());
    FakeFiles::reset();
    QCOMPARE(scan(path), 1);
    QVERIFY(m_log->takeNew().isEmpty());
}

void TestIocScanFile::leavesAnOldRecordAloneOnAPassingFailure()
{
    const QString path = makeFile("a", "old");
    setModified(path, QDateTime::fromMSecsSinceEpoch(1700000000123));
    scan(path);
    makeFile("a", content);
    FakeIocStore::lists[0] = QStringList(md5());
    scanner()->loadDatabases();
    FakeFiles::openError = EMFILE;
    QCOMPARE(scan(path), 0);
    QCOMPARE(FakeIocStore::records.value(path).getFileSize(), 3LL);
    FakeFiles::openError = 0;
    QCOMPARE(scan(path), 1);
}

void TestIocScanFile::saysThatSavingFailedAndGoesOn_data()
{
    QTest::addColumn<bool>("known");
    QTest::newRow("adding") << false;
    QTest::newRow("updating") << true;
}

void TestIocScanFile::saysThatSavingFailedAndGoesOn()
{
    QFETCH(bool, known);
    FakeIocStore::lists[2] = QStringList(sha256());
    scanner()->loadDatabases();
    const QString path = makeFile("a", content);
    if (known) {
        scan(path);
    }
    FakeIocStore::saveError = ENOSPC;
    QCOMPARE(scan(path), 3);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"ERROR", "IOCScanFile::scanFile",
                                                  errorCode(ENOSPC) + "Failed to save file hashes!"}}));
}

void TestIocScanFile::acceptsNamesBeyondAscii()
{
    FakeIocStore::lists[0] = QStringList(md5());
    scanner()->loadDatabases();
    for (const char* name : {"h\u00F6me", "\u4E2D", "with space", "new\nline", "%1%s", "a,b"}) {
        const QString path = makeFile(name, content);
        QCOMPARE(scan(path), 1);
        QCOMPARE(FakeIocStore::records.value(path).getFileSize(), static_cast<long long>(content.size()));
    }
}

void TestIocScanFile::isLoadingWhileItReadsTheLists()
{
    QVector<bool> loading;
    FakeIocStore::onListRead = [&loading] {
        loading.append(scanner()->isDBLoading());
    };
    scanner()->loadDatabases();
    scanner()->reloadDatabases();
    FakeIocStore::onListRead = nullptr;
    QCOMPARE(loading, QVector<bool>(6, true));
    QVERIFY(!scanner()->isDBLoading());
}

void TestIocScanFile::looksThroughAMillionHashesAtOnce()
{
    constexpr int hashes = 1000000;
    for (QStringList& list : FakeIocStore::lists) {
        list.reserve(hashes);
        for (int i = 0; i < hashes; ++i) {
            list.append(QString::number(i).rightJustified(64, QLatin1Char('0')));
        }
    }
    scanner()->loadDatabases();
    const QString path = makeFile("a", content);
    scan(path);
    constexpr int scans = 1000;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < scans; ++i) {
        QCOMPARE(scan(path), 0);
    }
    // Searching the lists one by one takes several milliseconds a scan.
    const double microseconds = static_cast<double>(timer.nsecsElapsed()) / 1000 / scans;
    qInfo("a scan of a cached file against three million hashes: %.1f us", microseconds);
    QVERIFY(microseconds < 1000);
}

QTEST_GUILESS_MAIN(TestIocScanFile)
#include "tst_iocscanfile.moc"
