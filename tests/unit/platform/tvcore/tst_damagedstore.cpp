#include "platform/tvcore/store.h"

#include "capturedlog.h"
#include "platform/tvcore/directorylock.h"
#include "rawdatabase.h"
#include "storefixture.h"

#include <QCoreApplication>
#include <QTest>

namespace
{
constexpr int pageSize = StoreFixture::pageSize;
} // namespace

/// What a store does when the content of its file is damaged.
class TestDamagedStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsAnew_data();
    void startsAnew();
    void startsAnewInTheMiddleOfWork();
    void keepsTheLogOfTheDamagedFile();
    void leavesANewFileOfAnotherProcessAlone();
    void isNotSetAsideWhileTheDirectoryIsLocked();
    void setsAsideAgainAndAgainUnderOtherNames();
    void givesUpOnADiskThatDamagesEverything();
};

void TestDamagedStore::startsAnew_data()
{
    QTest::addColumn<QByteArray>("content");
    StoreFixture fixture;
    for (int i = 0; i < 5000; ++i) {
        if (i % 1000 == 0) {
            QVERIFY(fixture.add(i));
        }
    }
    QVERIFY(fixture.store().write(
        [](StoreConnection& connection) {
            return connection.execute(
                QStringLiteral("INSERT INTO number WITH RECURSIVE n(i) AS (SELECT 1 UNION "
                               "ALL SELECT i + 1 FROM n WHERE i < 5000) "
                               "SELECT i FROM n"));
        },
        Store::Patience::Long));
    fixture.store().close();
    const QByteArray sound = fixture.content();
    QVERIFY(sound.size() > 4 * pageSize);
    QTest::newRow("text") << QByteArray("This is no database.\n");
    QTest::newRow("garbage") << QByteArray(3 * pageSize, '\xA5');
    QTest::newRow("zeros") << QByteArray(pageSize, '\0');
    QTest::newRow("truncated in a page") << sound.left(sound.size() - 100);
    QTest::newRow("truncated to half") << sound.left(sound.size() / 2);
    QTest::newRow("truncated in the header") << sound.left(50);
    QTest::newRow("first page flipped") << StoreFixture::withFlippedPage(sound, 0);
    QTest::newRow("second page flipped") << StoreFixture::withFlippedPage(sound, 1);
    QTest::newRow("last page flipped") << StoreFixture::withFlippedPage(sound, sound.size() / pageSize - 1);
    QTest::newRow("header, then garbage") << sound.left(100) + QByteArray(sound.size() - 100, '\x11');
}

void TestDamagedStore::startsAnew()
{
    QFETCH(QByteArray, content);
    StoreFixture fixture;
    fixture.setContent(content);
    const CapturedLog log;
    QCOMPARE(fixture.count(), 0);
    QVERIFY(fixture.add(1));
    QCOMPARE(fixture.count(), 1);
    QCOMPARE(fixture.setAside().size(), 1);
    QFile aside(QDir(fixture.directory()).filePath(fixture.setAside().constFirst()));
    QVERIFY(aside.open(QFile::ReadOnly));
    QVERIFY(aside.readAll() == content);
    QCOMPARE(CapturedLog::messages().size(), 1);
    QVERIFY2(CapturedLog::messages().constFirst().contains(QStringLiteral("is damaged")),
             qPrintable(CapturedLog::messages().constFirst()));
}

void TestDamagedStore::startsAnewInTheMiddleOfWork()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(0));
    QVERIFY(fixture.addMany());
    fixture.store().close();
    const QByteArray sound = fixture.content();
    QVERIFY(sound.size() > 5 * 1024 * 1024);
    fixture.setContent(StoreFixture::withFlippedPage(sound, sound.size() / pageSize / 2));
    const auto firstNumber = [&fixture] {
        int number = -1;
        fixture.store().read([&number](StoreConnection& connection) {
            return connection.select(
                QStringLiteral("SELECT value FROM number WHERE rowid = 1"), {},
                [&number](const StoreRow& row) { number = static_cast<int>(row.integer(0)); });
        });
        return number;
    };
    QCOMPARE(firstNumber(), 0);
    QVERIFY2(fixture.setAside().isEmpty(), "what does not meet the damage goes on");
    // Met by the same connection.
    QCOMPARE(fixture.count(), 0);
    QCOMPARE(fixture.setAside().size(), 1);
    QVERIFY(fixture.add(1));
    QCOMPARE(fixture.count(), 1);
}

void TestDamagedStore::keepsTheLogOfTheDamagedFile()
{
    StoreFixture fixture;
    QByteArray damaged;
    QByteArray log;
    {
        StoreFixture other;
        QVERIFY(other.add(1));
        damaged = other.content();
        QFile logFile(other.path() + QStringLiteral("-wal"));
        QVERIFY(logFile.open(QFile::ReadOnly));
        log = logFile.readAll();
    }
    QVERIFY(log.size() > 32);
    // A log that is sound, but the pages in it make no database: its content replaces the first page.
    for (int i = 32 + 24; i < log.size(); ++i) {
        log[i] = static_cast<char>(~log.at(i));
    }
    fixture.setContent(QByteArray(pageSize, '\x5A'));
    QFile logFile(fixture.path() + QStringLiteral("-wal"));
    QVERIFY(logFile.open(QFile::WriteOnly));
    logFile.write(log);
    logFile.close();
    QCOMPARE(fixture.count(), 0);
    QCOMPARE(fixture.setAside().size(), 1);
    QFile aside(QDir(fixture.directory()).filePath(fixture.setAside().constFirst() + QStringLiteral("-wal")));
    QVERIFY(aside.open(QFile::ReadOnly));
    QVERIFY(aside.readAll() == log);
}

void TestDamagedStore::leavesANewFileOfAnotherProcessAlone()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(0));
    // While this connection meets damage, another process has already set the file aside and started anew.
    const QString other = fixture.path() + QStringLiteral(".new");
    bool isReplaced = false;
    int attempts = 0;
    const bool isRead = fixture.store().read([&](StoreConnection& connection) {
        ++attempts;
        if (!isReplaced) {
            isReplaced = true;
            StoreFixture fresh;
            if (!fresh.add(1) || !fresh.add(2)) {
                return true;
            }
            fresh.store().close();
            QFile::copy(fresh.path(), other);
            QFile::rename(fixture.path(), fixture.path() + QStringLiteral(".aside"));
            QFile::rename(other, fixture.path());
            // Any statement that SQLite answers with "malformed" stands for the damage.
            return connection.executeOnce(QStringLiteral("PRAGMA writable_schema=ON")) &&
                   connection.executeOnce(QStringLiteral(
                       "INSERT INTO sqlite_master VALUES('table', 'x', 'x', 2, 'CREATE GARBAGE')")) &&
                   connection.executeOnce(QStringLiteral("PRAGMA writable_schema=RESET")) &&
                   connection.executeOnce(QStringLiteral("SELECT * FROM sqlite_master"));
        }
        return true;
    });
    QVERIFY(isRead);
    QCOMPARE(attempts, 2);
    QCOMPARE(fixture.count(), 2);
    QVERIFY(fixture.setAside().isEmpty());
}

void TestDamagedStore::isNotSetAsideWhileTheDirectoryIsLocked()
{
    StoreFixture fixture;
    QVERIFY(fixture.addMany());
    fixture.store().close();
    const QByteArray sound = fixture.content();
    fixture.setContent(StoreFixture::withFlippedPage(sound, sound.size() / pageSize / 2));
    // Opened while nobody has the lock; the damage is met when another process has it.
    QVERIFY(fixture.store().read([](StoreConnection&) { return true; }));
    {
        const DirectoryLock other(fixture.directory());
        QCOMPARE(fixture.count(), -1);
        QVERIFY(fixture.setAside().isEmpty());
    }
    QTRY_COMPARE(fixture.count(), 0);
    QCOMPARE(fixture.setAside().size(), 1);
}

void TestDamagedStore::setsAsideAgainAndAgainUnderOtherNames()
{
    StoreFixture fixture;
    for (int i = 1; i <= 3; ++i) {
        fixture.store().close();
        fixture.setContent(QByteArray(1000, static_cast<char>('0' + i)));
        QCOMPARE(fixture.count(), 0);
        QCOMPARE(fixture.setAside().size(), i);
    }
}

void TestDamagedStore::givesUpOnADiskThatDamagesEverything()
{
    StoreFixture fixture;
    const QByteArray garbage(1000, 'x');
    for (int i = 0; i < 30; ++i) {
        fixture.store().close();
        fixture.setContent(garbage);
        fixture.count();
    }
    QCOMPARE(fixture.count(), -1);
    QCOMPARE(fixture.setAside().size(), 10);
    QVERIFY(fixture.content() == garbage);
}

QTEST_GUILESS_MAIN(TestDamagedStore)
#include "tst_damagedstore.moc"
