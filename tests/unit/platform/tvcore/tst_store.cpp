#include "platform/tvcore/store.h"

#include "capturedlog.h"
#include "platform/tvcore/directorylock.h"
#include "rawdatabase.h"
#include "storefixture.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTest>
#include <QThread>

#include <memory>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace
{
/// What the library waits, and as much again for a machine that is busy with other tests.
constexpr qint64 maxDelayMs = 400;
} // namespace

/// How a store gets along with others that use, lock, replace and remove its file.
class TestStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void opensLate();
    void opensOneConnection();
    void waitsForAShortTransaction();
    void doesNotWaitLong_data();
    void doesNotWaitLong();
    void readsWhileAnotherWrites();
    void leavesOthersAGapBetweenTransactions();
    void holdsNothingThatItDidNotRead();
    void isNotSetAsideWhileLocked();
    void rollsBackWhatFails();
    void startsAgainWhenRemoved();
    void followsAReplacedFile();
    void followsAReplacedFileWhenTheDirectoryIsFree();
    void waitsForAMissingDirectory();
    void refusesALink();
    void saysOnceThatItIsLocked();
    void opensAtTheSameTimeAsOthers();
};

void TestStore::opensLate()
{
    StoreFixture fixture;
    QVERIFY(QDir(fixture.directory()).isEmpty());
    QCOMPARE(fixture.count(), 0);
    QVERIFY(QFile::exists(fixture.path()));
}

void TestStore::opensOneConnection()
{
    const int before = QSqlDatabase::connectionNames().size();
    {
        StoreFixture fixture;
        for (int i = 0; i < 10; ++i) {
            QVERIFY(fixture.add(i));
            QCOMPARE(fixture.count(), i + 1);
        }
        QCOMPARE(QSqlDatabase::connectionNames().size(), before + 1);
    }
    QCOMPARE(QSqlDatabase::connectionNames().size(), before);
}

void TestStore::waitsForAShortTransaction()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    // Qt's connections belong to one thread, so the other one makes its own.
    const QString path = fixture.path();
    QAtomicInt isLocked = 0;
    std::unique_ptr<QThread> other(QThread::create([&path, &isLocked] {
        RawDatabase database(path);
        isLocked = database.run(QStringLiteral("BEGIN IMMEDIATE")) ? 1 : -1;
        QThread::msleep(50);
        database.run(QStringLiteral("COMMIT"));
    }));
    other->start();
    QTRY_COMPARE(isLocked.loadAcquire(), 1);
    QVERIFY(fixture.add(2));
    QVERIFY(other->wait());
    QCOMPARE(fixture.count(), 2);
}

void TestStore::doesNotWaitLong_data()
{
    QTest::addColumn<QString>("lock");
    QTest::newRow("writer") << QStringLiteral("writer");
    QTest::newRow("exclusive user") << QStringLiteral("exclusive");
    QTest::newRow("directory") << QStringLiteral("directory");
}

void TestStore::doesNotWaitLong()
{
    QFETCH(QString, lock);
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    fixture.store().close();
    std::unique_ptr<RawDatabase> other;
    int directory = -1;
    if (lock == QLatin1String("directory")) {
        directory = ::open(fixture.directory().toUtf8().constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        QCOMPARE(::flock(directory, LOCK_EX), 0);
    } else {
        other = std::make_unique<RawDatabase>(fixture.path());
        QVERIFY(lock == QLatin1String("writer") ? other->run(QStringLiteral("BEGIN IMMEDIATE"))
                                                : other->lockOut());
    }
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!fixture.add(2));
    QVERIFY2(timer.elapsed() >= 50 && timer.elapsed() <= maxDelayMs,
             qPrintable(QString::number(timer.elapsed())));
    // It stays locked: nobody waits for every single call.
    timer.start();
    for (int i = 0; i < 50; ++i) {
        QVERIFY(!fixture.add(2));
    }
    QVERIFY2(timer.elapsed() <= maxDelayMs, qPrintable(QString::number(timer.elapsed())));
    // But the first call after the lock has gone works.
    other.reset();
    ::close(directory);
    QVERIFY(fixture.add(2));
    QCOMPARE(fixture.count(), 2);
}

void TestStore::readsWhileAnotherWrites()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    RawDatabase other(fixture.path());
    QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
    QVERIFY(other.run(QStringLiteral("INSERT INTO number VALUES(2)")));
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(fixture.count(), 1);
    QVERIFY2(timer.elapsed() < 50, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(other.run(QStringLiteral("COMMIT")));
    QCOMPARE(fixture.count(), 2);
}

void TestStore::leavesOthersAGapBetweenTransactions()
{
    // Without the disk, a transaction takes a small part of a millisecond.
    StoreSchema disposable = StoreFixture::firstVersion();
    disposable.durable = false;
    StoreFixture fixture;
    fixture.start(disposable);
    const auto add = [&fixture] {
        return fixture.store().write(
            [](StoreConnection& connection) {
                return connection.execute(QStringLiteral("INSERT INTO number(value) VALUES(1)"));
            },
            Store::Patience::Long);
    };
    QVERIFY(add());
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < 20; ++i) {
        QVERIFY(add());
    }
    QVERIFY2(timer.elapsed() >= 20 * 3LL, qPrintable(QString::number(timer.elapsed())));
}

void TestStore::holdsNothingThatItDidNotRead()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1) && fixture.add(2));
    QVERIFY(fixture.store().read([](StoreConnection& connection) {
        return connection.execute(QStringLiteral("SELECT value FROM number"));
    }));
    // The log can only be emptied when nobody still looks at it.
    RawDatabase other(fixture.path());
    QVERIFY(other.run(QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)")));
    QCOMPARE(QFileInfo(fixture.path() + QStringLiteral("-wal")).size(), 0LL);
}

void TestStore::isNotSetAsideWhileLocked()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    fixture.store().close();
    {
        RawDatabase other(fixture.path());
        QVERIFY(other.lockOut());
        QCOMPARE(fixture.count(), -1);
        QVERIFY(!fixture.add(2));
    }
    QVERIFY(fixture.setAside().isEmpty());
    QCOMPARE(fixture.count(), 1);
}

void TestStore::rollsBackWhatFails()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    QVERIFY(!fixture.store().write([](StoreConnection& connection) {
        return connection.execute(QStringLiteral("INSERT INTO number(value) VALUES(?)"), {2}) &&
               connection.execute(QStringLiteral("INSERT INTO number(value) VALUES(NULL)"));
    }));
    QCOMPARE(fixture.count(), 1);
    QVERIFY(fixture.add(2));
    QCOMPARE(fixture.count(), 2);
}

void TestStore::startsAgainWhenRemoved()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    QVERIFY(QFile::remove(fixture.path()));
    QCOMPARE(fixture.count(), 0);
    QVERIFY(fixture.add(2));
    // The old connection's farewell must not take the new file's log away.
    fixture.start(StoreFixture::firstVersion());
    QCOMPARE(fixture.count(), 1);
}

void TestStore::followsAReplacedFile()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    StoreFixture other;
    for (int i = 0; i < 5; ++i) {
        QVERIFY(other.add(i));
    }
    other.store().close();
    const QString copy = fixture.path() + QStringLiteral(".new");
    QVERIFY(QFile::copy(other.path(), copy));
    QVERIFY(QFile::remove(fixture.path()));
    QVERIFY(QFile::rename(copy, fixture.path()));
    // The log of the removed file lies there still and does not belong to the new one.
    QCOMPARE(fixture.count(), 5);
    QVERIFY(fixture.add(6));
    QCOMPARE(fixture.count(), 6);
    QVERIFY(fixture.setAside().isEmpty());
}

void TestStore::followsAReplacedFileWhenTheDirectoryIsFree()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    StoreFixture other;
    QVERIFY(other.add(1) && other.add(2));
    other.store().close();
    {
        const DirectoryLock lock(fixture.directory());
        const QString copy = fixture.path() + QStringLiteral(".new");
        QVERIFY(QFile::copy(other.path(), copy));
        QVERIFY(QFile::remove(fixture.path()));
        QVERIFY(QFile::rename(copy, fixture.path()));
        QCOMPARE(fixture.count(), -1);
    }
    QTRY_COMPARE(fixture.count(), 2);
}

void TestStore::waitsForAMissingDirectory()
{
    const QTemporaryDir directory;
    const QString missing = directory.filePath(QStringLiteral("settings"));
    Store store(StoreFixture::firstVersion());
    store.setDirectory(missing);
    const auto isReadable = [&store] {
        return store.read([](StoreConnection& connection) {
            return connection.execute(QStringLiteral("SELECT value FROM number"));
        });
    };
    const CapturedLog log;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < 100; ++i) {
        QVERIFY(!isReadable());
    }
    QVERIFY2(timer.elapsed() <= maxDelayMs, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(CapturedLog::messages().size(), 1);
    QVERIFY(!QFile::exists(missing));
    QVERIFY(QDir().mkdir(missing));
    QTRY_VERIFY(isReadable());
}

void TestStore::refusesALink()
{
    StoreFixture fixture;
    StoreFixture other;
    QVERIFY(other.add(1));
    QVERIFY(QFile::link(other.path(), fixture.path()));
    QCOMPARE(fixture.count(), -1);
    QVERIFY(!fixture.add(2));
    QCOMPARE(other.count(), 1);
    QVERIFY(QFileInfo(fixture.path()).isSymLink());
}

void TestStore::saysOnceThatItIsLocked()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    const CapturedLog log;
    {
        RawDatabase other(fixture.path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        for (int i = 0; i < 20; ++i) {
            QVERIFY(!fixture.add(2));
            QCOMPARE(fixture.count(), 1);
        }
        QCOMPARE(CapturedLog::messages().size(), 1);
        QVERIFY(CapturedLog::messages().constFirst().contains(QStringLiteral("cannot be written")));
    }
    QVERIFY(fixture.add(2));
    QVERIFY(fixture.add(3));
    QCOMPARE(CapturedLog::messages().size(), 2);
    QVERIFY(CapturedLog::messages().constLast().contains(QStringLiteral("can be written again")));
}

void TestStore::opensAtTheSameTimeAsOthers()
{
    constexpr int threadCount = 4;
    constexpr int perThread = 25;
    const QTemporaryDir directory;
    QAtomicInt failures = 0;
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back(QThread::create([&directory, &failures] {
            // A store for each: what other processes would have.
            Store store(StoreFixture::secondVersion());
            store.setDirectory(directory.path());
            for (int number = 0; number < perThread; ++number) {
                const bool isStored = store.write(
                    [number](StoreConnection& connection) {
                        return connection.execute(QStringLiteral("INSERT INTO number(value) VALUES(?)"),
                                                  {number});
                    },
                    Store::Patience::Long);
                failures.fetchAndAddRelaxed(isStored ? 0 : 1);
            }
        }));
        threads.back()->start();
    }
    for (const auto& thread : threads) {
        QVERIFY(thread->wait());
    }
    QCOMPARE(failures.loadAcquire(), 0);
    RawDatabase file(directory.filePath(QStringLiteral("test.db")));
    QCOMPARE(file.value(QStringLiteral("SELECT count(*) FROM number")).toInt(), threadCount * perThread);
    QCOMPARE(QDir(directory.path()).entryList({QStringLiteral("*corrupt*")}).size(), 0);
}

QTEST_GUILESS_MAIN(TestStore)
#include "tst_store.moc"
