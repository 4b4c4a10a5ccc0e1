#include "tvctl/health/processstat.h"

#include <QTest>

class TestProcessStat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void reads_data();
    void reads();
    void refuses_data();
    void refuses();
};

namespace
{
const QByteArray rest =
    QByteArrayLiteral(" T 1 27 27 0 -1 4194560 1234 0 3 0 10 5 0 0 20 0 3 0 987654 1000 200 18\n");
}

void TestProcessStat::reads_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("plain") << QByteArray("tvfilemon");
    QTest::newRow("blank") << QByteArray("a b");
    QTest::newRow("forged") << QByteArray("x) R 1 2 3 (y");
    QTest::newRow("empty") << QByteArray();
}

void TestProcessStat::reads()
{
    QFETCH(const QByteArray, name);
    const auto stat = parseProcessStat("27 (" + name + ")" + rest);
    QVERIFY(stat);
    QCOMPARE(stat->name, name);
    QCOMPARE(stat->state, 'T');
    QCOMPARE(stat->startTicks, 987654ULL);
}

void TestProcessStat::refuses_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("no name") << "27 tvfilemon" + rest;
    QTest::newRow("turned round") << "27 )tvfilemon(" + rest;
    QTest::newRow("cut off") << QByteArray("27 (tvfilemon) T 1 27");
    QTest::newRow("no number") << "27 (tvfilemon)" + QByteArray(rest).replace("987654", "x");
}

void TestProcessStat::refuses()
{
    QFETCH(const QByteArray, text);
    QVERIFY(!parseProcessStat(text));
}

QTEST_GUILESS_MAIN(TestProcessStat)
#include "tst_processstat.moc"
