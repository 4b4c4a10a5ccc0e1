#include "tvctl/sweep/sweeptime.h"

#include <QDateTime>
#include <QTest>

class TestSweepTime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void knowsNow();
    void tellsSinceWhen_data();
    void tellsSinceWhen();
};

namespace
{
constexpr qint64 unknown = -1;
constexpr qint64 margin = 2000;
} // namespace

void TestSweepTime::knowsNow()
{
    const SweepTime now = SweepTime::now();
    QVERIFY(qAbs(now.msecsSinceEpoch - QDateTime::currentMSecsSinceEpoch()) < 60000);
    QVERIFY(now.msecsSinceBoot > 0);
    QCOMPARE(now.bootId.size(), 36);
    QCOMPARE(SweepTime::now().bootId, now.bootId);
}

void TestSweepTime::tellsSinceWhen_data()
{
    QTest::addColumn<qint64>("lastTime");
    QTest::addColumn<qint64>("lastBoot");
    QTest::addColumn<QByteArray>("lastBootId");
    QTest::addColumn<qint64>("nowTime");
    QTest::addColumn<qint64>("nowBoot");
    QTest::addColumn<qint64>("expected");
    const QByteArray same = "now";
    QTest::newRow("usual") << qint64(100000) << qint64(5000) << same << qint64(200000) << qint64(105000)
                           << qint64(100000);
    QTest::newRow("clock set ahead") << qint64(100000) << qint64(5000) << same << qint64(900000)
                                     << qint64(105000) << qint64(100000);
    QTest::newRow("clock set back") << qint64(100000) << qint64(5000) << same << qint64(150000)
                                    << qint64(105000) << qint64(50000);
    QTest::newRow("clock set back far")
        << qint64(500000) << qint64(5000) << same << qint64(150000) << qint64(105000) << qint64(50000);
    QTest::newRow("started anew") << qint64(100000) << qint64(5000) << QByteArray("before") << qint64(200000)
                                  << qint64(1000) << qint64(100000);
    QTest::newRow("started anew, clock set back")
        << qint64(100000) << qint64(5000) << QByteArray("before") << qint64(90000) << qint64(1000) << unknown;
    QTest::newRow("no start known") << qint64(100000) << qint64(5000) << QByteArray() << qint64(90000)
                                    << qint64(6000) << unknown;
}

void TestSweepTime::tellsSinceWhen()
{
    QFETCH(qint64, lastTime);
    QFETCH(qint64, lastBoot);
    QFETCH(QByteArray, lastBootId);
    QFETCH(qint64, nowTime);
    QFETCH(qint64, nowBoot);
    QFETCH(qint64, expected);
    const auto since = changedSince({lastTime, lastBoot, lastBootId}, {nowTime, nowBoot, "now"});
    QCOMPARE(since ? *since + margin : unknown, expected);
    if (lastBootId.isEmpty()) {
        // Two moments of which nobody knows the start are not of the same one.
        QVERIFY(!changedSince({lastTime, lastBoot, {}}, {nowTime, nowBoot, {}}));
    }
}

QTEST_GUILESS_MAIN(TestSweepTime)
#include "tst_sweeptime.moc"
