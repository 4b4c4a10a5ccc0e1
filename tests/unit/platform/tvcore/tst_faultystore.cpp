#include "platform/tvcore/store.h"

#include "capturedlog.h"
#include "faultyfiles.h"
#include "rawdatabase.h"
#include "storefixture.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTest>

using FaultyFiles::Fault;

/// What a store does when its file cannot be used although nothing is known to be wrong with its content.
class TestFaultyStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void isNotSetAside_data();
    void isNotSetAside();
    void isNotSetAsideForALongValue();
    void isNotSetAsideWhileItIsOpen();
    void worksAgainWhenTheFaultGoes_data();
    void worksAgainWhenTheFaultGoes();
    void readsFromAReadOnlyFileSystem();
    void doesNotReadAroundALog();
    void doesNotStartAStoreOnAReadOnlyFileSystem();
    void takesNoDamageForGrantedOnAReadOnlyFileSystem();
    void putsOffWhatCannotBeRead();
};

void TestFaultyStore::cleanup()
{
    FaultyFiles::inject(Fault::None, "");
}

void TestFaultyStore::isNotSetAside_data()
{
    QTest::addColumn<int>("fault");
    QTest::newRow("unreadable") << static_cast<int>(Fault::Unreadable);
    QTest::newRow("read error") << static_cast<int>(Fault::ReadError);
    QTest::newRow("late read error") << static_cast<int>(Fault::LateReadError);
}

void TestFaultyStore::isNotSetAside()
{
    QFETCH(int, fault);
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    fixture.store().close();
    const QByteArray before = fixture.content();
    {
        const CapturedLog log;
        FaultyFiles::inject(static_cast<Fault>(fault), "/test.db");
        QCOMPARE(fixture.count(), -1);
        QCOMPARE(fixture.count(), -1);
        QVERIFY(!fixture.add(2));
        QCOMPARE(CapturedLog::messages().size(), 2);
        QVERIFY(CapturedLog::messages().constFirst().contains(QStringLiteral("cannot be read")));
        QVERIFY(CapturedLog::messages().constLast().contains(QStringLiteral("cannot be written")));
    }
    FaultyFiles::inject(Fault::None, "");
    QVERIFY(fixture.setAside().isEmpty());
    QVERIFY(fixture.content() == before);
}

void TestFaultyStore::isNotSetAsideForALongValue()
{
    StoreFixture fixture;
    QVERIFY(fixture.store().write([](StoreConnection& connection) {
        return connection.execute(QStringLiteral("INSERT INTO number(value) VALUES(zeroblob(65536))"));
    }));
    fixture.store().close();
    FaultyFiles::inject(Fault::LaterReadError, "/test.db");
    QCOMPARE(fixture.count(), -1);
    FaultyFiles::inject(Fault::None, "");
    QVERIFY(fixture.setAside().isEmpty());
    QTRY_COMPARE(fixture.count(), 1);
}

void TestFaultyStore::isNotSetAsideWhileItIsOpen()
{
    StoreFixture fixture;
    // More than SQLite keeps in memory.
    QVERIFY(fixture.addMany());
    QCOMPARE(fixture.count(), int(StoreFixture::many));
    FaultyFiles::inject(Fault::LateReadError, "/test.db");
    QCOMPARE(fixture.count(), -1);
    FaultyFiles::inject(Fault::None, "");
    QVERIFY(fixture.setAside().isEmpty());
    QTRY_COMPARE(fixture.count(), int(StoreFixture::many));
}

void TestFaultyStore::worksAgainWhenTheFaultGoes_data()
{
    isNotSetAside_data();
    QTest::newRow("read-only") << static_cast<int>(Fault::ReadOnly);
}

void TestFaultyStore::worksAgainWhenTheFaultGoes()
{
    QFETCH(int, fault);
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    fixture.store().close();
    FaultyFiles::inject(static_cast<Fault>(fault), "/test.db");
    QVERIFY(!fixture.add(2));
    FaultyFiles::inject(Fault::None, "");
    QTRY_COMPARE(fixture.count(), 1);
    QVERIFY(fixture.add(2));
    QCOMPARE(fixture.count(), 2);
}

void TestFaultyStore::readsFromAReadOnlyFileSystem()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    fixture.store().close();
    const QByteArray before = fixture.content();
    FaultyFiles::inject(Fault::ReadOnly, "/test.db");
    QCOMPARE(fixture.count(), 1);
    QVERIFY(!fixture.add(2));
    QCOMPARE(fixture.count(), 1);
    QVERIFY(fixture.content() == before);
    QVERIFY(fixture.setAside().isEmpty());
    // Writable again, with a new value from another process: seen on the next call.
    FaultyFiles::inject(Fault::None, "");
    RawDatabase other(fixture.path());
    QVERIFY(other.run(QStringLiteral("INSERT INTO number VALUES(2)")));
    QCOMPARE(fixture.count(), 2);
    QVERIFY(fixture.add(3));
    QCOMPARE(fixture.count(), 3);
}

void TestFaultyStore::doesNotReadAroundALog()
{
    // What the log holds is newer than what is in the database.
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    fixture.store().close();
    QVERIFY(fixture.add(2));
    const QByteArray database = fixture.content();
    QFile log(fixture.path() + QStringLiteral("-wal"));
    QVERIFY(log.open(QFile::ReadOnly));
    const QByteArray logged = log.readAll();
    log.close();
    fixture.store().close();
    fixture.setContent(database);
    QVERIFY(log.open(QFile::WriteOnly));
    log.write(logged);
    log.close();
    FaultyFiles::inject(Fault::ReadOnly, "/test.db");
    QCOMPARE(fixture.count(), -1);
    FaultyFiles::inject(Fault::None, "");
    QTRY_COMPARE(fixture.count(), 2);
}

void TestFaultyStore::doesNotStartAStoreOnAReadOnlyFileSystem()
{
    StoreFixture fixture;
    fixture.setContent(QByteArray());
    FaultyFiles::inject(Fault::ReadOnly, "/test.db");
    QCOMPARE(fixture.count(), -1);
    QVERIFY(!fixture.add(1));
}

/// It is read without locks there, so what looks damaged may be written by another machine.
void TestFaultyStore::takesNoDamageForGrantedOnAReadOnlyFileSystem()
{
    StoreFixture fixture;
    QVERIFY(fixture.addMany());
    fixture.store().close();
    const QByteArray sound = fixture.content();
    fixture.setContent(StoreFixture::withFlippedPage(sound, sound.size() / StoreFixture::pageSize / 2));
    FaultyFiles::inject(Fault::ReadOnly, "/test.db");
    QCOMPARE(fixture.count(), -1);
    QVERIFY(fixture.setAside().isEmpty());
    FaultyFiles::inject(Fault::None, "");
    fixture.setContent(sound);
    FaultyFiles::inject(Fault::ReadOnly, "/test.db");
    QTRY_COMPARE(fixture.count(), int(StoreFixture::many));
}

void TestFaultyStore::putsOffWhatCannotBeRead()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    fixture.store().close();
    QCOMPARE(fixture.count(), 1);
    const CapturedLog log;
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!fixture.store().read([](StoreConnection& connection) {
        return connection.execute(QStringLiteral("SELECT value FROM no_table"));
    }));
    QTRY_COMPARE(fixture.count(), 1);
    QVERIFY2(timer.elapsed() >= 500, "a file that fails was opened over and over");
    QCOMPARE(CapturedLog::messages().size(), 2);
    QVERIFY(CapturedLog::messages().constFirst().contains(QStringLiteral("cannot be read: no such table")));
    QVERIFY(CapturedLog::messages().constLast().contains(QStringLiteral("can be read again")));
}

QTEST_GUILESS_MAIN(TestFaultyStore)
#include "tst_faultystore.moc"
