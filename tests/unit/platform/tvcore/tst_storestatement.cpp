#include "platform/tvcore/storestatement.h"

#include <QTest>

#include <limits>

#include <sqlite3.h>

class TestStoreStatement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void keepsWholeNumbers_data();
    void keepsWholeNumbers();
    void keepsBytes_data();
    void keepsBytes();
    void bindsTextAsText();
    void tellsNullFromEmpty();
    void runsAgainWithOtherValues();
    void callsForEachRow();
    void cannotPrepareWhatIsNoStatement();
    void failsInTheMiddleAndRunsAgain();
    void refusesMoreValuesThanItTakes();
    void isDoneWhenItReturns();

private:
    sqlite3* m_database = nullptr;
};

namespace
{
/// The bytes in the first column of the last row.
QByteArray bytesFrom(StoreStatement& statement, const QVariantList& values)
{
    QByteArray found;
    const bool isRun = statement.run(values, [&found](const StoreRow& row) { found = row.bytes(0); });
    return isRun ? found : QByteArrayLiteral("failed");
}
} // namespace

void TestStoreStatement::init()
{
    QCOMPARE(sqlite3_open(":memory:", &m_database), SQLITE_OK);
}

void TestStoreStatement::cleanup()
{
    // Refused while a statement is left.
    QCOMPARE(sqlite3_close(m_database), SQLITE_OK);
}

void TestStoreStatement::keepsWholeNumbers_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::newRow("0") << QVariant(0);
    QTest::newRow("-1") << QVariant(-1);
    QTest::newRow("largest") << QVariant(std::numeric_limits<qint64>::max());
    QTest::newRow("smallest") << QVariant(std::numeric_limits<qint64>::min());
}

void TestStoreStatement::keepsWholeNumbers()
{
    QFETCH(QVariant, value);
    StoreStatement statement(m_database, QStringLiteral("SELECT ?, typeof(?1)"));
    QVERIFY(statement.isPrepared());
    QVERIFY(statement.run({value}, [&value](const StoreRow& row) {
        QCOMPARE(row.integer(0), value.toLongLong());
        QVERIFY(!row.isNull(0));
        QCOMPARE(row.bytes(1), QByteArrayLiteral("integer"));
    }));
}

void TestStoreStatement::keepsBytes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("some") << QByteArray("name");
    QTest::newRow("zeros") << QByteArray("a\0b\0", 4);
    QTest::newRow("no UTF-8") << QByteArray("\xff\xfe\x80");
    QTest::newRow("many") << QByteArray(200000, 'x');
}

void TestStoreStatement::keepsBytes()
{
    QFETCH(QByteArray, bytes);
    StoreStatement asBlob(m_database, QStringLiteral("SELECT ?"));
    QCOMPARE(bytesFrom(asBlob, {bytes}), bytes);
    StoreStatement asText(m_database, QStringLiteral("SELECT CAST(CAST(? AS TEXT) AS BLOB)"));
    QCOMPARE(bytesFrom(asText, {bytes}), bytes);
}

void TestStoreStatement::bindsTextAsText()
{
    StoreStatement statement(m_database, QStringLiteral("SELECT ?, typeof(?1)"));
    const QString text = QString::fromUtf8("scan.\xC3\xA9");
    QVERIFY(statement.run({text}, [&text](const StoreRow& row) {
        QCOMPARE(row.bytes(0), text.toUtf8());
        QCOMPARE(row.bytes(1), QByteArrayLiteral("text"));
    }));
}

void TestStoreStatement::tellsNullFromEmpty()
{
    StoreStatement statement(m_database, QStringLiteral("SELECT ?, ?, ?"));
    const QVariantList values = {QVariant(QVariant::ByteArray), QByteArrayLiteral(""),
                                 QVariant(QVariant::LongLong)};
    QVERIFY(statement.run(values, [](const StoreRow& row) {
        QVERIFY(row.isNull(0));
        QVERIFY(!row.isNull(1));
        QCOMPARE(row.bytes(1), QByteArray());
        QVERIFY(row.isNull(2));
        QCOMPARE(row.integer(2), 0LL);
    }));
}

void TestStoreStatement::runsAgainWithOtherValues()
{
    StoreStatement statement(m_database, QStringLiteral("SELECT ?"));
    for (const char* value : {"a", "", "longer than before", "b"}) {
        QCOMPARE(bytesFrom(statement, {QByteArray(value)}), QByteArray(value));
    }
}

void TestStoreStatement::callsForEachRow()
{
    StoreStatement statement(m_database, QStringLiteral("VALUES(1), (2), (3)"));
    QVector<qint64> numbers;
    QVERIFY(statement.run({}, [&numbers](const StoreRow& row) { numbers.append(row.integer(0)); }));
    QCOMPARE(numbers, QVector<qint64>({1, 2, 3}));
    QVERIFY(statement.run({}, nullptr));
}

void TestStoreStatement::cannotPrepareWhatIsNoStatement()
{
    QVERIFY(!StoreStatement(m_database, QStringLiteral("SELEKT 1")).isPrepared());
    QCOMPARE(sqlite3_errcode(m_database), SQLITE_ERROR);
}

void TestStoreStatement::failsInTheMiddleAndRunsAgain()
{
    // The second row has no result.
    StoreStatement statement(m_database, QStringLiteral("SELECT abs(column1) FROM (VALUES(1), (?), (3))"));
    int rows = 0;
    const auto count = [&rows](const StoreRow&) {
        ++rows;
    };
    QVERIFY(!statement.run({std::numeric_limits<qint64>::min()}, count));
    QCOMPARE(rows, 1);
    QCOMPARE(sqlite3_errcode(m_database), SQLITE_ERROR);
    QCOMPARE(sqlite3_errmsg(m_database), "integer overflow");
    QVERIFY(statement.run({2}, count));
    QCOMPARE(rows, 4);
}

void TestStoreStatement::refusesMoreValuesThanItTakes()
{
    StoreStatement statement(m_database, QStringLiteral("SELECT ?"));
    QVERIFY(!statement.run({1, 2}, nullptr));
}

void TestStoreStatement::isDoneWhenItReturns()
{
    StoreStatement create(m_database, QStringLiteral("CREATE TABLE t(x)"));
    QVERIFY(create.run({}, nullptr));
    StoreStatement select(m_database, QStringLiteral("SELECT 1 UNION SELECT x FROM t"));
    QVERIFY(select.run({}, nullptr));
    StoreStatement failing(m_database, QStringLiteral("SELECT abs(?) FROM (VALUES(1))"));
    QVERIFY(!failing.run({std::numeric_limits<qint64>::min()}, nullptr));
    // Refused while a statement runs.
    QCOMPARE(sqlite3_exec(m_database, "DROP TABLE t", nullptr, nullptr, nullptr), SQLITE_OK);
    QCOMPARE(sqlite3_stmt_busy(sqlite3_next_stmt(m_database, nullptr)), 0);
}

QTEST_APPLESS_MAIN(TestStoreStatement)
#include "tst_storestatement.moc"
