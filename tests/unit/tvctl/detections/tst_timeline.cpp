#include "tvctl/detections/timeline.h"

#include <QtTest>

#include <numeric>

class TestTimeline : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void choosesAUnit_data();
    void choosesAUnit();
    void putsEachIntoItsBar();
    void beginsWithTheFirst();
    void leavesOutWhatCannotBeShown_data();
    void leavesOutWhatCannotBeShown();
    void aChangeOfTheClockLosesNothing();

private:
    static QDateTime at(int month, int day, int hour, int minute = 0)
    {
        return QDateTime(QDate(2026, month, day), QTime(hour, minute));
    }
    static qint64 sum(const Timeline::Bar& bar)
    {
        return std::accumulate(bar.counts.cbegin(), bar.counts.cend(), qint64(0));
    }
};

void TestTimeline::initTestCase()
{
    qputenv("TZ", "Europe/Berlin");
}

void TestTimeline::choosesAUnit_data()
{
    QTest::addColumn<int>("days");
    QTest::addColumn<QString>("unit");
    QTest::addColumn<int>("bars");
    QTest::addColumn<QString>("first");
    // Until noon of 21 November 2026, a Saturday.
    QTest::newRow("a day") << 1 << "hour" << 25 << "2026-11-20T12:00";
    QTest::newRow("three days") << 3 << "hour" << 73 << "2026-11-18T12:00";
    QTest::newRow("four days") << 4 << "day" << 5 << "2026-11-17T00:00";
    QTest::newRow("three months") << 92 << "day" << 93 << "2026-08-21T00:00";
    QTest::newRow("more than three months") << 93 << "week" << 14 << "2026-08-17T00:00";
    QTest::newRow("two years") << 730 << "week" << 105 << "2024-11-18T00:00";
    QTest::newRow("three years") << 1096 << "month" << 37 << "2023-11-01T00:00";
    QTest::newRow("eleven years") << 4018 << "year" << 12 << "2015-01-01T00:00";
    QTest::newRow("before all") << 100000 << "year" << 57 << "1970-01-01T00:00";
}

void TestTimeline::choosesAUnit()
{
    QFETCH(int, days);
    const QDateTime now = at(11, 21, 12);
    const Timeline timeline(now);
    Timeline::Unit unit = Timeline::Unit::Hour;
    const QVector<Timeline::Bar> bars = timeline.bars(now.addDays(-days), unit);
    QTEST(timelineUnitWord(unit), "unit");
    QTEST(bars.size(), "bars");
    QTEST(bars.constFirst().start, "first");
}

void TestTimeline::putsEachIntoItsBar()
{
    Timeline timeline(at(11, 21, 12, 30));
    QVERIFY(timeline.add(at(11, 16, 23, 59), 0)); // Before the period.
    QVERIFY(timeline.add(at(11, 17, 0), 0));
    QVERIFY(timeline.add(at(11, 17, 23, 59), 0));
    QVERIFY(timeline.add(at(11, 17, 5), 3));
    QVERIFY(timeline.add(at(11, 18, 0), 2));
    QVERIFY(timeline.add(at(11, 20, 12), 4));
    QVERIFY(timeline.add(at(11, 21, 12, 30), 1));
    Timeline::Unit unit = Timeline::Unit::Hour;
    const QVector<Timeline::Bar> bars = timeline.bars(at(11, 17, 0), unit);
    QCOMPARE(bars.size(), 5);
    const Timeline::Counts expected[] = {
        {2, 0, 0, 1, 0}, {0, 0, 1, 0, 0}, {}, {0, 0, 0, 0, 1}, {0, 1, 0, 0, 0},
    };
    for (int index = 0; index < bars.size(); ++index) {
        QVERIFY2(bars.at(index).counts == expected[index], qPrintable(bars.at(index).start));
    }
}

void TestTimeline::beginsWithTheFirst()
{
    Timeline timeline(at(11, 21, 12));
    Timeline::Unit unit = Timeline::Unit::Year;
    QVector<Timeline::Bar> bars = timeline.bars({}, unit);
    QCOMPARE(bars.size(), 24);
    QCOMPARE(bars.constLast().start, QStringLiteral("2026-11-21T12:00"));
    QVERIFY(timeline.add(at(11, 21, 11), 0));
    QCOMPARE(timeline.bars({}, unit).size(), 24);
    QVERIFY(timeline.add(at(11, 10, 11), 0));
    bars = timeline.bars({}, unit);
    QCOMPARE(bars.size(), 12);
    QCOMPARE(bars.constFirst().start, QStringLiteral("2026-11-10T00:00"));
    QCOMPARE(sum(bars.constFirst()), 1LL);
}

void TestTimeline::leavesOutWhatCannotBeShown_data()
{
    QTest::addColumn<QDateTime>("time");
    QTest::addColumn<bool>("isShown");
    QTest::newRow("now") << at(11, 21, 12) << true;
    QTest::newRow("1970") << QDateTime(QDate(1970, 1, 1), QTime(0, 0)) << true;
    QTest::newRow("invalid") << QDateTime() << false;
    QTest::newRow("1969") << QDateTime(QDate(1969, 12, 31), QTime(23, 0)) << false;
    QTest::newRow("to come") << at(11, 21, 13) << false;
    QTest::newRow("far away") << QDateTime(QDate(292278, 1, 1), QTime(0, 0)) << false;
}

void TestTimeline::leavesOutWhatCannotBeShown()
{
    QFETCH(QDateTime, time);
    Timeline timeline(at(11, 21, 12));
    QTEST(timeline.add(time, 0), "isShown");
}

void TestTimeline::aChangeOfTheClockLosesNothing()
{
    // On 25 October 2026 the hour from two to three comes twice, on 29 March it does not come.
    for (const QDateTime& now : {at(10, 25, 12), at(3, 29, 12)}) {
        Timeline timeline(now);
        qint64 added = 0;
        for (QDateTime time = now.addSecs(-11 * 3600); time <= now; time = time.addSecs(600)) {
            QVERIFY(timeline.add(time, 0));
            ++added;
        }
        Timeline::Unit unit = Timeline::Unit::Year;
        const QVector<Timeline::Bar> bars = timeline.bars({}, unit);
        QCOMPARE(unit, Timeline::Unit::Hour);
        QCOMPARE(std::accumulate(bars.cbegin(), bars.cend(), qint64(0),
                                 [](qint64 all, const Timeline::Bar& bar) { return all + sum(bar); }),
                 added);
    }
}

QTEST_GUILESS_MAIN(TestTimeline)
#include "tst_timeline.moc"
