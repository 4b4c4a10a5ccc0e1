#include "platform/tvcore/iocscanconfig.h"

#include "capturedlog.h"
#include "platform/tvcore/tvcore.h"
#include "rawdatabase.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace
{
constexpr IOCScanConfig::HASH_TYPE allTypes[] = {IOCScanConfig::MD5, IOCScanConfig::SHA1,
                                                 IOCScanConfig::SHA256};

IOCScanSettings settingsOf(bool enable, int action)
{
    IOCScanSettings settings;
    settings.setEnable(enable);
    settings.setAction(action);
    return settings;
}

bool isEqual(const IOCScanSettings& a, const IOCScanSettings& b)
{
    return a.getEnable() == b.getEnable() && a.getAction() == b.getAction();
}

/// Texts of 64 characters, enough of them for several rows of the store when `count` is some thousands.
QStringList numbered(const QString& name, int count)
{
    QStringList hashes;
    for (int i = 0; i < count; ++i) {
        hashes.append(QStringLiteral("%1-%2").arg(name).arg(i, 63 - name.size(), 10, QLatin1Char('0')));
    }
    return hashes;
}

/// The list that stands for number `n` in the test with two processes: its size and first text tell whether
/// it is whole.
QStringList wholeList(int n)
{
    return numbered(QString::number(n), 3000);
}

constexpr int roundCount = 30;

/// The other process: writes as a tool does.
int writeInAnotherProcess(const QString& directory)
{
    TvCore::setDirectory(directory);
    IOCScanConfig config;
    for (int i = 1; i <= roundCount; ++i) {
        if (!config.setScanSettings(settingsOf(true, i)) ||
            !config.setHashList(IOCScanConfig::SHA256, wholeList(i))) {
            return 1;
        }
    }
    return 0;
}

/// Of this process, in KB; -1 when it cannot be told.
int memory(const char* kind)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QFile::ReadOnly)) {
        return -1;
    }
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(kind)) {
            return line.simplified().split(' ').value(1).toInt();
        }
    }
    return -1;
}

constexpr int longListSize = 200000;

/// The other process: adds as an import does, and says how much memory it needed at most.
int addInAnotherProcess(const QString& directory, const QString& name)
{
    TvCore::setDirectory(directory);
    constexpr int count = 20000;
    if (IOCScanConfig().addHashes(IOCScanConfig::SHA256, numbered(name, count)) != count) {
        return 1;
    }
    std::printf("%d\n", memory("VmHWM:"));
    return 0;
}

/// The other process: looks into a long list as the service does, and says how much memory it needs for that.
int lookInAnotherProcess(const QString& directory, const QString& hash)
{
    TvCore::setDirectory(directory);
    const IOCScanConfig config;
    // All but the list itself is there already.
    QStringList piece;
    if (!config.getHashes(IOCScanConfig::SHA256, piece, 0, 1)) {
        return 1;
    }
    const int before = memory("VmRSS:");
    const HashIndex index = config.getHashIndex(IOCScanConfig::SHA256);
    std::printf("%d\n", memory("VmRSS:") - before);
    return index.contains(hash) ? 0 : 1;
}

/// What a byte takes, with those in which the thread sanitizer keeps who used it.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define WATCHES_THREADS
#endif
#endif
#ifdef WATCHES_THREADS
constexpr int bytesPerByte = 5;
#else
constexpr int bytesPerByte = 1;
#endif

/// Kilobytes; -1 when it failed.
int memoryOfAnotherProcess(const QString& work, const QString& directory, const QString& argument)
{
    QProcess other;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // A sanitizer would count what was freed, too.
    environment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("quarantine_size_mb=1"));
    other.setProcessEnvironment(environment);
    other.start(QCoreApplication::applicationFilePath(), {work, directory, argument});
    if (!other.waitForFinished(-1) || other.exitCode() != 0) {
        return -1;
    }
    bool isNumber = false;
    const int kilobytes = other.readAllStandardOutput().simplified().toInt(&isNumber);
    return isNumber ? kilobytes : -1;
}
} // namespace

class TestIOCScanConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void numbersTheTypes();
    void emptyStoreHasDefaults();
    void keepsTheSettings_data();
    void keepsTheSettings();
    void settingsLeaveOthersAlone();
    void changesTheStoredSettings();
    void keepsTheOrder();
    void holdsAMillionHashes();
    void keepsAnyText_data();
    void keepsAnyText();
    void keepsListsApart();
    void keepsEachTextOnce();
    void replacesTheWholeList();
    void keepsAListMadeEmpty();
    void appends();
    void appendingOneAtATimeMakesNoRowForEach();
    void removes();
    void removingAllMakesItEmpty();
    void addsToALongListInLittleMemory();
    void looksIntoALongListInLittleMemory();
    void changesWhatIsInTheStore();
    void doesWhatASimpleListDoes();
    void listsInPieces_data();
    void listsInPieces();
    void refusesOtherTypes_data();
    void refusesOtherTypes();
    void seesWhatAnotherProcessWroteOnTheNextCall();
    void readersSeeWholeListsWhileAnotherProcessWrites();
    void readsWhileAnotherHoldsTheWriteLock();
    void answersWhatItReadLastFromADamagedStore();
    void answersDefaultsWhenNothingWasEverRead();
    void answersWhatItWroteLast();
    void answersWhatItLookedIntoLast();
    void aDamagedChunkIsNotReadAsAShorterList();
    void failedWritesChangeNothing();
    void doesNotLeaveALongLogBehind();

private:
    QString path() const
    {
        return m_directory->filePath(QStringLiteral("tvcore.db"));
    }
    /// Forgets what was read, so that the next answer comes from the file.
    void startAnew() const
    {
        TvCore::setDirectory(m_directory->path());
    }
    QVariant inStore(const QString& sql) const
    {
        return RawDatabase(path()).value(sql);
    }

    std::unique_ptr<QTemporaryDir> m_directory;
};

void TestIOCScanConfig::init()
{
    TvCore::setDirectory(QStringLiteral("/nonexistent"));
    m_directory = std::make_unique<QTemporaryDir>();
    startAnew();
}

void TestIOCScanConfig::numbersTheTypes()
{
    QCOMPARE(int(IOCScanConfig::MD5), 0);
    QCOMPARE(int(IOCScanConfig::SHA1), 1);
    QCOMPARE(int(IOCScanConfig::SHA256), 2);
}

void TestIOCScanConfig::emptyStoreHasDefaults()
{
    const IOCScanConfig config;
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(false, 0)));
    for (const IOCScanConfig::HASH_TYPE type : allTypes) {
        QVERIFY(config.getHashList(type).isEmpty());
        QCOMPARE(config.getHashCount(type), 0);
    }
}

void TestIOCScanConfig::keepsTheSettings_data()
{
    QTest::addColumn<bool>("enable");
    QTest::addColumn<int>("action");
    QTest::newRow("rename") << true << 1;
    QTest::newRow("delete") << true << 2;
    QTest::newRow("off") << false << 2;
    QTest::newRow("an unknown action") << true << 7;
    QTest::newRow("a negative one") << true << -2147483647;
}

void TestIOCScanConfig::keepsTheSettings()
{
    QFETCH(bool, enable);
    QFETCH(int, action);
    IOCScanConfig config;
    QVERIFY(config.setScanSettings(settingsOf(enable, action)));
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(enable, action)));
    startAnew();
    QVERIFY(isEqual(IOCScanConfig().getScanSettings(), settingsOf(enable, action)));
}

void TestIOCScanConfig::settingsLeaveOthersAlone()
{
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::MD5, {QStringLiteral("a")}));
    QVERIFY(config.setScanSettings(settingsOf(true, 1)));
    QVERIFY(config.setScanSettings(settingsOf(true, 2)));
    startAnew();
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), QStringList({QStringLiteral("a")}));
    QCOMPARE(inStore(QStringLiteral("SELECT count(*) FROM setting")).toInt(), 2);
}

void TestIOCScanConfig::changesTheStoredSettings()
{
    IOCScanConfig config;
    // Nobody ever set them.
    QVERIFY(config.changeScanSettings([](IOCScanSettings& settings) { settings.setEnable(true); }));
    startAnew();
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(true, 0)));
    startAnew();
    QVERIFY(config.changeScanSettings([](IOCScanSettings& settings) { settings.setAction(2); }));
    startAnew();
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(true, 2)));
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        QVERIFY(!config.changeScanSettings([](IOCScanSettings& settings) { settings.setEnable(false); }));
    }
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(true, 2)));
}

void TestIOCScanConfig::keepsTheOrder()
{
    QStringList hashes = numbered(QStringLiteral("h"), 5000);
    std::reverse(hashes.begin(), hashes.end());
    hashes.swapItemsAt(17, 4321);
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::SHA256, hashes));
    startAnew();
    QCOMPARE(config.getHashList(IOCScanConfig::SHA256), hashes);
    QVERIFY2(inStore(QStringLiteral("SELECT count(*) FROM ioc_hash_chunk")).toInt() > 1,
             "the list has to be long enough for several rows");
}

void TestIOCScanConfig::keepsAnyText_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << QString();
    QTest::newRow("upper case") << QStringLiteral("44D88612FEA8A8F36DE82E1278ABB02F");
    QTest::newRow("blanks") << QStringLiteral("  a  ");
    QTest::newRow("newline") << QStringLiteral("a\nb\r\n");
    QTest::newRow("quote") << QStringLiteral("'; DROP TABLE setting; --");
    QTest::newRow("percent") << QStringLiteral("%1 %s");
    QTest::newRow("NUL") << QStringLiteral("a") + QChar(0) + QStringLiteral("b");
    QTest::newRow("Latin-1") << QString::fromUtf8("\xC3\xA9");
    QTest::newRow("beyond the basic plane") << QString::fromUtf8("\xF0\x9F\x98\x80");
    QTest::newRow("leading U+FEFF") << QString(QChar(0xFEFF)) + QStringLiteral("name");
    QTest::newRow("lone surrogate") << QStringLiteral("a") + QChar(0xDCFF) + QChar(0xD800);
    QTest::newRow("longer than a row of the store") << QString(200000, QLatin1Char('f'));
}

void TestIOCScanConfig::keepsAnyText()
{
    QFETCH(QString, text);
    const QStringList hashes = {QStringLiteral("before"), text, QStringLiteral("after")};
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::MD5, hashes));
    QCOMPARE(config.addHashes(IOCScanConfig::SHA1, hashes), 3);
    startAnew();
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), hashes);
    QCOMPARE(config.getHashList(IOCScanConfig::SHA1), hashes);
    const HashIndex index = config.getHashIndex(IOCScanConfig::MD5);
    QVERIFY(index.contains(text));
    QVERIFY(!index.contains(text + QLatin1Char(' ')));
    QCOMPARE(config.addHashes(IOCScanConfig::MD5, {text}), 0);
    QCOMPARE(config.removeHashes(IOCScanConfig::MD5, {text}), 1);
    // It is of the list as it was.
    QVERIFY(index.contains(text));
    startAnew();
    QVERIFY(!config.getHashIndex(IOCScanConfig::MD5).contains(text));
    QVERIFY(config.getHashIndex(IOCScanConfig::SHA1).contains(text));
    QCOMPARE(config.getHashList(IOCScanConfig::MD5),
             QStringList({QStringLiteral("before"), QStringLiteral("after")}));
}

void TestIOCScanConfig::keepsListsApart()
{
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::SHA1, {QStringLiteral("same"), QStringLiteral("sha1")}));
    QVERIFY(config.setHashList(IOCScanConfig::SHA256, {QStringLiteral("same"), QStringLiteral("sha256")}));
    QVERIFY(config.setHashList(IOCScanConfig::MD5, {QStringLiteral("same"), QStringLiteral("md5")}));
    QCOMPARE(config.addHashes(IOCScanConfig::MD5, {QStringLiteral("added")}), 1);
    QCOMPARE(config.removeHashes(IOCScanConfig::SHA1, {QStringLiteral("same")}), 1);
    QVERIFY(config.clearHashList(IOCScanConfig::SHA256));
    startAnew();
    QCOMPARE(config.getHashList(IOCScanConfig::MD5),
             QStringList({QStringLiteral("same"), QStringLiteral("md5"), QStringLiteral("added")}));
    QCOMPARE(config.getHashList(IOCScanConfig::SHA1), QStringList({QStringLiteral("sha1")}));
    QVERIFY(config.getHashList(IOCScanConfig::SHA256).isEmpty());
}

void TestIOCScanConfig::keepsEachTextOnce()
{
    const QString a = QStringLiteral("a");
    const QString b = QStringLiteral("b");
    const QString upperA = QStringLiteral("A");
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::MD5, {b, a, b, upperA, a}));
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), QStringList({b, a, upperA}));
    startAnew();
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), QStringList({b, a, upperA}));
    QCOMPARE(config.getHashCount(IOCScanConfig::MD5), 3);
}

void TestIOCScanConfig::replacesTheWholeList()
{
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::MD5, numbered(QStringLiteral("old"), 5000)));
    QVERIFY(config.setHashList(IOCScanConfig::MD5, numbered(QStringLiteral("new"), 10)));
    QCOMPARE(config.getHashCount(IOCScanConfig::MD5), 10);
    startAnew();
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), numbered(QStringLiteral("new"), 10));
}

void TestIOCScanConfig::keepsAListMadeEmpty()
{
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::MD5, {QStringLiteral("a")}));
    QVERIFY(!config.getHashList(IOCScanConfig::MD5).isEmpty());
    // By another process: the list that was read must not stand in for the empty one.
    QVERIFY(RawDatabase(path()).run(QStringLiteral("DELETE FROM ioc_hash_chunk")));
    QVERIFY(config.getHashList(IOCScanConfig::MD5).isEmpty());
    QCOMPARE(config.getHashCount(IOCScanConfig::MD5), 0);
}

void TestIOCScanConfig::appends()
{
    const QStringList first = numbered(QStringLiteral("first"), 3000);
    const QStringList second = numbered(QStringLiteral("second"), 3000);
    IOCScanConfig config;
    QCOMPARE(config.addHashes(IOCScanConfig::SHA1, first), 3000);
    QCOMPARE(config.addHashes(IOCScanConfig::SHA1, {}), 0);
    QCOMPARE(config.addHashes(IOCScanConfig::SHA1, first), 0);
    QCOMPARE(config.getHashList(IOCScanConfig::SHA1), first);
    QCOMPARE(config.addHashes(IOCScanConfig::SHA1, QStringList({second.at(0)}) + first.mid(50, 10) + second),
             3000);
    QCOMPARE(config.getHashList(IOCScanConfig::SHA1), first + second);
    startAnew();
    QCOMPARE(config.getHashList(IOCScanConfig::SHA1), first + second);
    QCOMPARE(config.getHashCount(IOCScanConfig::SHA1), 6000);
}

void TestIOCScanConfig::appendingOneAtATimeMakesNoRowForEach()
{
    const QStringList hashes = numbered(QStringLiteral("h"), 50);
    IOCScanConfig config;
    for (const QString& hash : hashes) {
        QCOMPARE(config.addHashes(IOCScanConfig::SHA1, {hash}), 1);
        // Rows of another list in between.
        QCOMPARE(config.addHashes(IOCScanConfig::MD5, {hash}), 1);
    }
    startAnew();
    QCOMPARE(config.getHashList(IOCScanConfig::SHA1), hashes);
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), hashes);
    QCOMPARE(inStore(QStringLiteral("SELECT count(*) FROM ioc_hash_chunk")).toInt(), 2);
}

void TestIOCScanConfig::removes()
{
    const QStringList hashes = numbered(QStringLiteral("h"), 5000);
    QStringList unwanted = {QStringLiteral("is not there")};
    QStringList left;
    for (int i = 0; i < hashes.size(); ++i) {
        // Some here and there, and whole rows of the store.
        const bool isUnwanted = i % 100 == 3 || (i > 900 && i < 3100);
        (isUnwanted ? unwanted : left).append(hashes.at(i));
    }
    IOCScanConfig config;
    QCOMPARE(config.removeHashes(IOCScanConfig::SHA256, hashes), 0);
    QVERIFY(config.setHashList(IOCScanConfig::SHA256, hashes));
    QCOMPARE(config.removeHashes(IOCScanConfig::SHA256, {}), 0);
    QCOMPARE(config.removeHashes(IOCScanConfig::SHA256, {hashes.at(0).toUpper()}), 0);
    QCOMPARE(config.removeHashes(IOCScanConfig::SHA256, unwanted + unwanted), unwanted.size() - 1);
    QCOMPARE(config.getHashList(IOCScanConfig::SHA256), left);
    startAnew();
    QCOMPARE(config.getHashList(IOCScanConfig::SHA256), left);
    QCOMPARE(config.getHashCount(IOCScanConfig::SHA256), left.size());
    QCOMPARE(config.removeHashes(IOCScanConfig::SHA256, unwanted), 0);
}

void TestIOCScanConfig::removingAllMakesItEmpty()
{
    const QStringList hashes = numbered(QStringLiteral("h"), 3000);
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::SHA256, hashes));
    QCOMPARE(config.removeHashes(IOCScanConfig::SHA256, hashes), 3000);
    QVERIFY(config.getHashList(IOCScanConfig::SHA256).isEmpty());
    QCOMPARE(inStore(QStringLiteral("SELECT count(*) FROM ioc_hash_chunk")).toInt(), 0);
    QCOMPARE(config.addHashes(IOCScanConfig::SHA256, {hashes.at(7)}), 1);
    QCOMPARE(config.getHashList(IOCScanConfig::SHA256), QStringList({hashes.at(7)}));
}

void TestIOCScanConfig::addsToALongListInLittleMemory()
{
    QTemporaryDir other;
    const int toAnEmptyOne =
        memoryOfAnotherProcess(QStringLiteral("--add"), other.path(), QStringLiteral("first"));
    QVERIFY(toAnEmptyOne > 0);
    // As texts in memory some 60 MB.
    QVERIFY(IOCScanConfig().setHashList(IOCScanConfig::SHA256, numbered(QStringLiteral("h"), 300000)));
    const int toALongOne =
        memoryOfAnotherProcess(QStringLiteral("--add"), m_directory->path(), QStringLiteral("second"));
    QVERIFY2(toALongOne > 0 && toALongOne < toAnEmptyOne + 20000,
             qPrintable(QStringLiteral("%1 KB instead of %2").arg(toALongOne).arg(toAnEmptyOne)));
    QCOMPARE(IOCScanConfig().getHashCount(IOCScanConfig::SHA256), 320000);
}

void TestIOCScanConfig::looksIntoALongListInLittleMemory()
{
    const QStringList hashes = numbered(QStringLiteral("h"), longListSize);
    QVERIFY(IOCScanConfig().setHashList(IOCScanConfig::SHA256, hashes));
    const int kilobytes =
        memoryOfAnotherProcess(QStringLiteral("--look"), m_directory->path(), hashes.constLast());
    QVERIFY2(kilobytes > 0, "the other process failed");
    const double bytes = kilobytes * 1024.0 / longListSize;
    qInfo("%.0f bytes for each hash of 64 characters", bytes);
    // As texts they took 250.
    QVERIFY(bytes < 130 * bytesPerByte);
}

void TestIOCScanConfig::changesWhatIsInTheStore()
{
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::MD5, {QStringLiteral("a"), QStringLiteral("b")}));
    QCOMPARE(config.getHashList(IOCScanConfig::MD5).size(), 2);
    // By another process. What was read here before must not come back.
    QVERIFY(RawDatabase(path()).run(QStringLiteral("DELETE FROM ioc_hash_chunk")));
    QCOMPARE(config.addHashes(IOCScanConfig::MD5, {QStringLiteral("b")}), 1);
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), QStringList({QStringLiteral("b")}));
}

void TestIOCScanConfig::doesWhatASimpleListDoes()
{
    // Texts of such a length that a row of the store holds some twenty of them.
    QStringList pool;
    for (int i = 0; i < 200; ++i) {
        pool.append(QString::number(i) + QString(3000, QLatin1Char('x')));
    }
    QRandomGenerator random(11);
    QStringList model[3];
    IOCScanConfig config;
    for (int round = 0; round < 150; ++round) {
        const IOCScanConfig::HASH_TYPE type = allTypes[random.bounded(3)];
        QStringList& list = model[type];
        QStringList hashes;
        for (int i = random.bounded(40); i > 0; --i) {
            hashes.append(pool.at(random.bounded(pool.size())));
        }
        int expected = 0;
        if (random.bounded(2) == 0) {
            for (const QString& hash : qAsConst(hashes)) {
                if (!list.contains(hash)) {
                    list.append(hash);
                    ++expected;
                }
            }
            QCOMPARE(config.addHashes(type, hashes), expected);
        } else {
            for (const QString& hash : qAsConst(hashes)) {
                expected += list.removeAll(hash);
            }
            QCOMPARE(config.removeHashes(type, hashes), expected);
        }
        QCOMPARE(config.getHashList(type), list);
        QCOMPARE(config.getHashCount(type), list.size());
        const HashIndex index = config.getHashIndex(type);
        QVERIFY(std::all_of(pool.cbegin(), pool.cend(), [&index, &list](const QString& hash) {
            return index.contains(hash) == list.contains(hash);
        }));
        const int from = random.bounded(100);
        const int limit = random.bounded(100);
        QStringList piece;
        QVERIFY(config.getHashes(type, piece, from, limit));
        QCOMPARE(piece, list.mid(from, limit));
    }
}

void TestIOCScanConfig::listsInPieces_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("limit");
    QTest::newRow("the first") << 0 << 1;
    QTest::newRow("the first thousand") << 0 << 1000;
    QTest::newRow("across rows of the store") << 900 << 1500;
    QTest::newRow("in the middle of a row") << 1500 << 3;
    QTest::newRow("the last") << 4999 << 1;
    QTest::newRow("beyond the end") << 4990 << 1000;
    QTest::newRow("behind the end") << 5000 << 10;
    QTest::newRow("far behind the end") << 2147483647 << 2147483647;
    QTest::newRow("all") << 0 << 2147483647;
    QTest::newRow("nothing") << 100 << 0;
}

void TestIOCScanConfig::listsInPieces()
{
    QFETCH(int, from);
    QFETCH(int, limit);
    const QStringList hashes = numbered(QStringLiteral("h"), 5000);
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::MD5, {QStringLiteral("other list")}));
    QVERIFY(config.setHashList(IOCScanConfig::SHA256, hashes));
    QStringList piece = {QStringLiteral("old")};
    QVERIFY(config.getHashes(IOCScanConfig::SHA256, piece, from, limit));
    QStringList expected;
    for (int i = from; i < hashes.size() && expected.size() < limit; ++i) {
        expected.append(hashes.at(i));
    }
    QCOMPARE(piece, expected);
}

void TestIOCScanConfig::refusesOtherTypes_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("below") << -1;
    QTest::newRow("above") << 3;
}

void TestIOCScanConfig::refusesOtherTypes()
{
    QFETCH(int, number);
    const auto type = static_cast<IOCScanConfig::HASH_TYPE>(number);
    IOCScanConfig config;
    QVERIFY(!config.setHashList(type, {QStringLiteral("a")}));
    QVERIFY(!config.clearHashList(type));
    QCOMPARE(config.addHashes(type, {QStringLiteral("a")}), -1);
    QCOMPARE(config.removeHashes(type, {QStringLiteral("a")}), -1);
    QVERIFY(config.getHashList(type).isEmpty());
    QVERIFY(!config.getHashIndex(type).contains(QStringLiteral("a")));
    QCOMPARE(config.getHashCount(type), 0);
}

void TestIOCScanConfig::seesWhatAnotherProcessWroteOnTheNextCall()
{
    IOCScanConfig config;
    QVERIFY(config.setScanSettings(settingsOf(true, 0)));
    RawDatabase other(path());
    for (int action = 0; action < 10; ++action) {
        QVERIFY(
            other.run(QStringLiteral("UPDATE setting SET value = %1 WHERE name = 'ioc.action'").arg(action)));
        QCOMPARE(config.getScanSettings().getAction(), action);
    }
    QVERIFY(other.run(QStringLiteral("UPDATE setting SET value = 0 WHERE name = 'ioc.enable'")));
    QVERIFY(!config.getScanSettings().getEnable());
}

void TestIOCScanConfig::readersSeeWholeListsWhileAnotherProcessWrites()
{
    const IOCScanConfig config;
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--write"), m_directory->path()});
    int lastAction = 0;
    QSet<int> seen;
    while (!other.waitForFinished(1)) {
        const int action = config.getScanSettings().getAction();
        QVERIFY2(action >= lastAction, "an older value came back");
        lastAction = action;
        const QStringList hashes = config.getHashList(IOCScanConfig::SHA256);
        if (!hashes.isEmpty()) {
            const int number = hashes.constFirst().section(QLatin1Char('-'), 0, 0).toInt();
            QCOMPARE(hashes, wholeList(number));
            seen.insert(number);
        }
    }
    QCOMPARE(other.exitStatus(), QProcess::NormalExit);
    QCOMPARE(other.exitCode(), 0);
    QVERIFY(seen.size() > 1);
    QCOMPARE(config.getHashList(IOCScanConfig::SHA256), wholeList(roundCount));
}

void TestIOCScanConfig::readsWhileAnotherHoldsTheWriteLock()
{
    const CapturedLog log;
    IOCScanConfig config;
    QVERIFY(config.setScanSettings(settingsOf(true, 1)));
    QVERIFY(config.setHashList(IOCScanConfig::MD5, {QStringLiteral("a")}));
    startAnew();
    // A tool in the middle of a long write.
    RawDatabase other(path());
    QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
    QVERIFY(other.run(QStringLiteral("DELETE FROM ioc_hash_chunk")));
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(true, 1)));
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), QStringList({QStringLiteral("a")}));
    QCOMPARE(config.getHashCount(IOCScanConfig::MD5), 1);
    QCOMPARE(CapturedLog::messages(), QStringList());
    QVERIFY(other.run(QStringLiteral("COMMIT")));
    QVERIFY(config.getHashList(IOCScanConfig::MD5).isEmpty());
}

void TestIOCScanConfig::answersWhatItReadLastFromADamagedStore()
{
    IOCScanConfig config;
    QVERIFY(config.setScanSettings(settingsOf(true, 2)));
    QVERIFY(config.setHashList(IOCScanConfig::MD5, {QStringLiteral("a")}));
    QFile garbage(m_directory->filePath(QStringLiteral("garbage")));
    QVERIFY(garbage.open(QFile::WriteOnly));
    garbage.write(QByteArray(10000, 'x'));
    garbage.close();
    QVERIFY(QFile::remove(path()));
    QVERIFY(garbage.rename(path()));
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(true, 2)));
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), QStringList({QStringLiteral("a")}));
    QCOMPARE(QDir(m_directory->path()).entryList({QStringLiteral("tvcore.db.corrupt-*")}).size(), 1);
    // Started anew, it takes new values.
    QVERIFY(config.setScanSettings(settingsOf(false, 1)));
    QVERIFY(config.clearHashList(IOCScanConfig::MD5));
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(false, 1)));
    QVERIFY(config.getHashList(IOCScanConfig::MD5).isEmpty());
}

void TestIOCScanConfig::answersDefaultsWhenNothingWasEverRead()
{
    // A directory in its place stops root as well.
    QVERIFY(QDir().mkdir(path()));
    const CapturedLog log;
    IOCScanConfig config;
    for (int i = 0; i < 10; ++i) {
        QVERIFY(isEqual(config.getScanSettings(), settingsOf(false, 0)));
        QVERIFY(config.getHashList(IOCScanConfig::SHA1).isEmpty());
    }
    QCOMPARE(CapturedLog::messages().size(), 1);
    QCOMPARE(config.getHashCount(IOCScanConfig::SHA1), -1);
    QStringList piece = {QStringLiteral("old")};
    QVERIFY(!config.getHashes(IOCScanConfig::SHA1, piece));
    QVERIFY(piece.isEmpty());
    QVERIFY(!config.setScanSettings(settingsOf(true, 1)));
    QVERIFY(!config.setHashList(IOCScanConfig::SHA1, {QStringLiteral("a")}));
    QCOMPARE(config.addHashes(IOCScanConfig::SHA1, {QStringLiteral("a")}), -1);
    QCOMPARE(config.removeHashes(IOCScanConfig::SHA1, {QStringLiteral("a")}), -1);
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(false, 0)));
    QVERIFY(config.getHashList(IOCScanConfig::SHA1).isEmpty());
}

void TestIOCScanConfig::answersWhatItWroteLast()
{
    const QString a = QStringLiteral("a");
    const QString b = QStringLiteral("b");
    IOCScanConfig config;
    QVERIFY(config.setScanSettings(settingsOf(true, 2)));
    QVERIFY(config.setHashList(IOCScanConfig::MD5, {a, b}));
    QVERIFY(config.setHashList(IOCScanConfig::SHA1, {a}));
    QCOMPARE(config.addHashes(IOCScanConfig::SHA1, {b}), 1);
    QVERIFY(config.setHashList(IOCScanConfig::SHA256, {a, b}));
    QCOMPARE(config.removeHashes(IOCScanConfig::SHA256, {b}), 1);
    QVERIFY(QDir(m_directory->path()).removeRecursively());
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(true, 2)));
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), QStringList({a, b}));
    QCOMPARE(config.getHashList(IOCScanConfig::SHA1), QStringList({a, b}));
    QCOMPARE(config.getHashList(IOCScanConfig::SHA256), QStringList({a}));
    QVERIFY(config.getHashIndex(IOCScanConfig::SHA1).contains(b));
    QVERIFY(!config.getHashIndex(IOCScanConfig::SHA256).contains(b));
}

void TestIOCScanConfig::answersWhatItLookedIntoLast()
{
    const QString a = QStringLiteral("a");
    QVERIFY(IOCScanConfig().setHashList(IOCScanConfig::MD5, {a}));
    startAnew();
    const IOCScanConfig config;
    QVERIFY(config.getHashIndex(IOCScanConfig::MD5).contains(a));
    QVERIFY(QDir(m_directory->path()).removeRecursively());
    QVERIFY(config.getHashIndex(IOCScanConfig::MD5).contains(a));
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), QStringList({a}));
    startAnew();
    QVERIFY(!config.getHashIndex(IOCScanConfig::MD5).contains(a));
}

void TestIOCScanConfig::aDamagedChunkIsNotReadAsAShorterList()
{
    const QStringList hashes = numbered(QStringLiteral("h"), 3000);
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::MD5, hashes));
    QVERIFY(config.setHashList(IOCScanConfig::SHA1, {QStringLiteral("sound")}));
    QVERIFY(config.setScanSettings(settingsOf(true, 1)));
    const CapturedLog log;
    QVERIFY(RawDatabase(path()).run(QStringLiteral("UPDATE ioc_hash_chunk SET hashes = substr(hashes, 1, "
                                                   "100) WHERE id = (SELECT min(id) FROM ioc_hash_chunk)")));
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), hashes);
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), hashes);
    QVERIFY(config.getHashIndex(IOCScanConfig::MD5).contains(hashes.constFirst()));
    QVERIFY(config.getHashIndex(IOCScanConfig::MD5).contains(hashes.constLast()));
    QCOMPARE(CapturedLog::messages().size(), 1);
    QVERIFY2(CapturedLog::messages().constFirst().contains(QStringLiteral("a list of hashes is damaged")),
             qPrintable(CapturedLog::messages().constFirst()));
    QCOMPARE(config.addHashes(IOCScanConfig::MD5, {QStringLiteral("new")}), -1);
    QCOMPARE(config.removeHashes(IOCScanConfig::MD5, hashes), -1);
    QStringList piece;
    QVERIFY(!config.getHashes(IOCScanConfig::MD5, piece));
    // The rest of the store is sound, and the list can be written anew.
    QCOMPARE(config.getHashList(IOCScanConfig::SHA1), QStringList({QStringLiteral("sound")}));
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(true, 1)));
    QVERIFY(config.setHashList(IOCScanConfig::MD5, {QStringLiteral("new")}));
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), QStringList({QStringLiteral("new")}));
}

void TestIOCScanConfig::failedWritesChangeNothing()
{
    const QStringList hashes = numbered(QStringLiteral("h"), 3000);
    IOCScanConfig config;
    QVERIFY(config.setHashList(IOCScanConfig::MD5, hashes));
    QVERIFY(config.setScanSettings(settingsOf(true, 1)));
    // They fail in the middle.
    RawDatabase other(path());
    QVERIFY(other.run(QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON ioc_hash_chunk "
                                     "WHEN (SELECT count(*) FROM ioc_hash_chunk) > 0 "
                                     "BEGIN SELECT RAISE(ABORT, 'no'); END")));
    QVERIFY(other.run(QStringLiteral("CREATE TRIGGER refuse_update BEFORE UPDATE ON ioc_hash_chunk "
                                     "WHEN old.id > (SELECT min(id) FROM ioc_hash_chunk) "
                                     "BEGIN SELECT RAISE(ABORT, 'no'); END")));
    QVERIFY(other.run(QStringLiteral("CREATE TRIGGER refuse_setting BEFORE UPDATE ON setting "
                                     "WHEN new.name = 'ioc.action' BEGIN SELECT RAISE(ABORT, 'no'); END")));
    QVERIFY(!config.setHashList(IOCScanConfig::MD5, numbered(QStringLiteral("new"), 3000)));
    QCOMPARE(config.addHashes(IOCScanConfig::MD5, {QStringLiteral("new")}), -1);
    QCOMPARE(config.removeHashes(IOCScanConfig::MD5, {hashes.constFirst(), hashes.constLast()}), -1);
    QVERIFY(!config.setScanSettings(settingsOf(false, 2)));
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), hashes);
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(true, 1)));
    startAnew();
    QCOMPARE(config.getHashList(IOCScanConfig::MD5), hashes);
    QVERIFY(isEqual(config.getScanSettings(), settingsOf(true, 1)));
}

void TestIOCScanConfig::doesNotLeaveALongLogBehind()
{
    IOCScanConfig config;
    // Some 7 MB.
    QVERIFY(config.setHashList(IOCScanConfig::SHA256, numbered(QStringLiteral("h"), 100000)));
    QVERIFY(config.setScanSettings(settingsOf(true, 1)));
    QVERIFY2(QFile(path() + QStringLiteral("-wal")).size() <= 4LL * 1024 * 1024,
             "a service that keeps the store open would keep the log on the disk");
}

void TestIOCScanConfig::holdsAMillionHashes()
{
    QStringList hashes;
    for (int i = 0; i < 1000000; ++i) {
        hashes.append(QString::number(i, 16).rightJustified(64, QLatin1Char('0')));
    }
    IOCScanConfig config;
    QElapsedTimer timer;
    timer.start();
    QVERIFY(config.setHashList(IOCScanConfig::SHA256, hashes));
    const qint64 writing = timer.restart();
    const QStringList loaded = config.getHashList(IOCScanConfig::SHA256);
    const qint64 loading = timer.restart();
    QVERIFY(loaded == hashes);
    const HashIndex index = config.getHashIndex(IOCScanConfig::SHA256);
    const qint64 indexing = timer.elapsed();
    QVERIFY(std::all_of(hashes.cbegin(), hashes.cend(),
                        [&index](const QString& hash) { return index.contains(hash); }));
    QVERIFY(!index.contains(QString(64, QLatin1Char('f'))));
    qInfo("a million hashes: written in %lld ms, loaded in %lld ms, to look into in %lld ms", writing,
          loading, indexing);
    // Many times what a quiet machine needs, for one that counts each line; one by one it would take minutes.
    QVERIFY(writing < 100000);
    QVERIFY(loading < 20000);
    QVERIFY(indexing < 20000);
}

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--write") == 0) {
        return writeInAnotherProcess(QString::fromLocal8Bit(argv[2]));
    }
    if (argc == 4 && qstrcmp(argv[1], "--add") == 0) {
        return addInAnotherProcess(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]));
    }
    if (argc == 4 && qstrcmp(argv[1], "--look") == 0) {
        return lookInAnotherProcess(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]));
    }
    TestIOCScanConfig test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_iocscanconfig.moc"
