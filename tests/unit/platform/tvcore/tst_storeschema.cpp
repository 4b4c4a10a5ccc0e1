#include "platform/tvcore/storeschema.h"

#include "capturedlog.h"
#include "rawdatabase.h"
#include "storefixture.h"

#include <QCoreApplication>
#include <QTest>

#include <sys/stat.h>

class TestStoreSchema : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void libraryFilesAreMarked_data();
    void libraryFilesAreMarked();
    void newFileIsReadyForUse();
    void migratesForwardAndKeepsData();
    void migratesWhenNobodyElseWrites();
    void failedMigrationChangesNothing();
    void refusesANewerSchema();
    void refusesAForeignFile_data();
    void refusesAForeignFile();
    void takesAnEmptyFile();
    void opensARefusedFileOnceItIsReplaced();

private:
    /// Both directions are refused, the file stays byte by byte, and `reason` is said once for each.
    static void checkRefused(StoreFixture& fixture, const QString& reason);
};

void TestStoreSchema::libraryFilesAreMarked_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<int>("applicationId");
    QTest::addColumn<bool>("isSettings");
    QTest::newRow("settings") << QStringLiteral("tvcore.db") << 0x54567374 << true;
    QTest::newRow("reports") << QStringLiteral("reports.db") << 0x54567270 << false;
}

void TestStoreSchema::libraryFilesAreMarked()
{
    QFETCH(QString, fileName);
    QFETCH(int, applicationId);
    QFETCH(bool, isSettings);
    const QTemporaryDir directory;
    const StoreSchema schema = isSettings ? StoreSchema::settings() : StoreSchema::reports();
    {
        Store store(schema);
        store.setDirectory(directory.path());
        QVariant synchronous;
        QVERIFY(store.read([&synchronous](StoreConnection& connection) {
            return connection.executeOnce(QStringLiteral("PRAGMA synchronous"), &synchronous);
        }));
        QCOMPARE(synchronous.toInt(), 2);
    }
    RawDatabase file(directory.filePath(fileName));
    QCOMPARE(file.value(QStringLiteral("PRAGMA application_id")).toInt(), applicationId);
    QCOMPARE(file.value(QStringLiteral("PRAGMA user_version")).toInt(), schema.version());
    QCOMPARE(file.value(QStringLiteral("PRAGMA journal_mode")).toString(), QStringLiteral("wal"));
}

void TestStoreSchema::newFileIsReadyForUse()
{
    StoreFixture fixture;
    StoreSchema disposable = StoreFixture::firstVersion();
    disposable.durable = false;
    fixture.start(disposable);
    QCOMPARE(fixture.count(), 0);
    struct stat information = {};
    for (const char* suffix : {"", "-wal", "-shm"}) {
        const QByteArray name = fixture.path().toUtf8() + suffix;
        QCOMPARE(::stat(name.constData(), &information), 0);
        QCOMPARE(information.st_mode & 07777, mode_t(0600));
    }
    QVariant synchronous;
    QVERIFY(fixture.store().read([&synchronous](StoreConnection& connection) {
        return connection.executeOnce(QStringLiteral("PRAGMA synchronous"), &synchronous);
    }));
    QVERIFY2(synchronous.toInt() < 2, "nobody waits for the disk for the sake of what may be lost");
}

void TestStoreSchema::migratesForwardAndKeepsData()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1) && fixture.add(2));
    fixture.start(StoreFixture::secondVersion());
    QCOMPARE(fixture.count(), 2);
    RawDatabase file(fixture.path());
    QCOMPARE(file.value(QStringLiteral("PRAGMA user_version")).toInt(), 2);
    QCOMPARE(file.value(QStringLiteral("SELECT note FROM number")).toString(), QStringLiteral("old"));
    QVERIFY(fixture.add(3));
    QCOMPARE(fixture.count(), 3);
}

void TestStoreSchema::migratesWhenNobodyElseWrites()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    fixture.start(StoreFixture::secondVersion());
    {
        RawDatabase other(fixture.path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        QCOMPARE(fixture.count(), -1);
    }
    QTRY_COMPARE(fixture.count(), 1);
    QVERIFY(fixture.setAside().isEmpty());
    QCOMPARE(RawDatabase(fixture.path()).value(QStringLiteral("PRAGMA user_version")).toInt(), 2);
}

void TestStoreSchema::failedMigrationChangesNothing()
{
    StoreFixture fixture;
    QVERIFY(fixture.add(1));
    StoreSchema broken = StoreFixture::secondVersion();
    broken.migrations.append(QStringList{QStringLiteral("ALTER TABLE missing ADD COLUMN x")});
    {
        const CapturedLog log;
        fixture.start(broken);
        QCOMPARE(fixture.count(), -1);
        QCOMPARE(CapturedLog::messages().filter(QStringLiteral("no such table")).size(), 1);
    }
    fixture.start(StoreFixture::firstVersion());
    QCOMPARE(fixture.count(), 1);
    QVERIFY(fixture.setAside().isEmpty());
}

void TestStoreSchema::refusesANewerSchema()
{
    StoreFixture fixture;
    fixture.start(StoreFixture::secondVersion());
    QVERIFY(fixture.add(1));
    fixture.start(StoreFixture::firstVersion());
    checkRefused(fixture, QStringLiteral("newer release (schema version 2, known up to 1)"));
    fixture.start(StoreFixture::secondVersion());
    QCOMPARE(fixture.count(), 1);
}

void TestStoreSchema::refusesAForeignFile_data()
{
    QTest::addColumn<QStringList>("statements");
    const QString table = QStringLiteral("CREATE TABLE number(value)");
    QTest::newRow("unmarked") << QStringList{table};
    QTest::newRow("unmarked, write-ahead log")
        << QStringList{QStringLiteral("PRAGMA journal_mode=WAL"), table};
    QTest::newRow("another program's mark") << QStringList{QStringLiteral("PRAGMA application_id=1234"),
                                                           table, QStringLiteral("PRAGMA user_version=1")};
    QTest::newRow("marked, without tables") << QStringList{QStringLiteral("PRAGMA application_id=1234")};
    QTest::newRow("unmarked, with a version, without tables")
        << QStringList{QStringLiteral("PRAGMA user_version=1")};
    QTest::newRow("our mark, version 0")
        << QStringList{QStringLiteral("PRAGMA application_id=0x54455354"), table};
    QTest::newRow("our mark, a version below 0") << QStringList{
        QStringLiteral("PRAGMA application_id=0x54455354"), table, QStringLiteral("PRAGMA user_version=-5")};
}

void TestStoreSchema::refusesAForeignFile()
{
    QFETCH(QStringList, statements);
    StoreFixture fixture;
    {
        RawDatabase foreign(fixture.path());
        for (const QString& statement : qAsConst(statements)) {
            QVERIFY2(foreign.run(statement), qPrintable(statement));
        }
    }
    checkRefused(fixture, QStringLiteral("belongs to another program"));
}

void TestStoreSchema::checkRefused(StoreFixture& fixture, const QString& reason)
{
    fixture.store().close();
    const QByteArray before = fixture.content();
    QVERIFY(!before.isEmpty());
    const CapturedLog log;
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(fixture.count(), -1);
        QVERIFY(!fixture.add(1));
    }
    fixture.store().close();
    QVERIFY(fixture.content() == before);
    QCOMPARE(QDir(fixture.directory()).entryList(QDir::Files), QStringList({QStringLiteral("test.db")}));
    QCOMPARE(CapturedLog::messages().size(), 2);
    QVERIFY2(CapturedLog::messages().constFirst().contains(reason),
             qPrintable(CapturedLog::messages().constFirst()));
}

void TestStoreSchema::takesAnEmptyFile()
{
    StoreFixture fixture;
    fixture.setContent(QByteArray());
    QVERIFY(QFile::exists(fixture.path()));
    QVERIFY(fixture.add(1));
    QCOMPARE(fixture.count(), 1);
    QVERIFY(fixture.setAside().isEmpty());
}

void TestStoreSchema::opensARefusedFileOnceItIsReplaced()
{
    StoreFixture fixture;
    QVERIFY(RawDatabase(fixture.path()).run(QStringLiteral("CREATE TABLE number(value)")));
    QCOMPARE(fixture.count(), -1);
    QVERIFY(QFile::remove(fixture.path()));
    QCOMPARE(fixture.count(), 0);
}

QTEST_GUILESS_MAIN(TestStoreSchema)
#include "tst_storeschema.moc"
