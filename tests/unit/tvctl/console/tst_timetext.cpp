#include "tvctl/console/timetext.h"

#include <QTest>

class TestTimeText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void parses_data();
    void parses();
    void refuses_data();
    void refuses();
    void formats();
    void parsesWhatItFormats();
    void formatsSpans_data();
    void formatsSpans();

private:
    QDateTime m_now;
};

void TestTimeText::initTestCase()
{
    // Each test is a process of its own.
    qputenv("TZ", "Europe/Berlin");
    ::tzset();
    // In summer time.
    m_now = QDateTime(QDate(2026, 7, 14), QTime(10, 20, 30, 400));
}

void TestTimeText::parses_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("utc");
    const auto row = [](const char* text, const char* utc) {
        QTest::newRow(text) << QString::fromLatin1(text) << QString::fromLatin1(utc);
    };
    row("0s", "2026-07-14T08:20:30.400Z");
    row("90s", "2026-07-14T08:19:00.400Z");
    row("15m", "2026-07-14T08:05:30.400Z");
    row("24h", "2026-07-13T08:20:30.400Z");
    row("7d", "2026-07-07T08:20:30.400Z");
    row("2w", "2026-06-30T08:20:30.400Z");
    row("today", "2026-07-13T22:00:00.000Z");
    row("yesterday", "2026-07-12T22:00:00.000Z");
    row("2026-07-01", "2026-06-30T22:00:00.000Z");
    row("2026-01-01", "2025-12-31T23:00:00.000Z");
    row("2026-07-01 10:00", "2026-07-01T08:00:00.000Z");
    row("2026-07-01T10:00", "2026-07-01T08:00:00.000Z");
    row("2026-07-01 10:00:30", "2026-07-01T08:00:30.000Z");
    row("2026-07-01T10:00:30.250", "2026-07-01T08:00:30.250Z");
    row("2026-07-01T10:00:30Z", "2026-07-01T10:00:30.000Z");
    row("2026-07-01 10:00+01:00", "2026-07-01T09:00:00.000Z");
    row("2026-07-01T10:00:30.250-05:30", "2026-07-01T15:30:30.250Z");
    row("2024-02-29", "2024-02-28T23:00:00.000Z");
}

void TestTimeText::parses()
{
    QFETCH(QString, text);
    const auto time = TimeText::parse(text, m_now);
    QVERIFY(time.has_value());
    QTEST(time->toUTC().toString(Qt::ISODateWithMs), "utc");
}

void TestTimeText::refuses_data()
{
    QTest::addColumn<QString>("text");
    for (const char* text : {"",
                             " ",
                             "now",
                             "s",
                             "1",
                             "1y",
                             "1.5h",
                             "-1h",
                             "+1h",
                             "1 h",
                             "1h ",
                             " 1h",
                             "1H",
                             "1h30m",
                             "1234567890s",
                             "Today",
                             "today ",
                             "26-07-01",
                             "2026-7-1",
                             "2026-02-29",
                             "2026-13-01",
                             "2026-00-10",
                             "2026-07-32",
                             "01.07.2026",
                             "2026-07-01 ",
                             "2026-07-01x10:00",
                             "2026-07-01 10",
                             "2026-07-01 25:00",
                             "2026-07-01 10:60",
                             "2026-07-01 10:00:61",
                             "2026-07-01 10:00 Z",
                             "2026-07-01Z",
                             "2026-07-01 10:00+1",
                             "2026-07-01 10:00:00.",
                             "2026-07-01 10:00\n",
                             "2026-07-01 10:00:00.1234"}) {
        QTest::addRow("\"%s\"", text) << QString::fromLatin1(text);
    }
    QTest::newRow("digits of another script") << QString::fromUtf8("\xD9\xA1h");
}

void TestTimeText::refuses()
{
    QFETCH(QString, text);
    QVERIFY(!TimeText::parse(text, m_now).has_value());
}

void TestTimeText::formats()
{
    QCOMPARE(TimeText::format(m_now), QStringLiteral("2026-07-14 10:20:30"));
    QCOMPARE(TimeText::format(QDateTime(QDate(2026, 1, 1), QTime(23, 30), Qt::UTC)),
             QStringLiteral("2026-01-02 00:30:00"));
    QCOMPARE(TimeText::format(QDateTime()), QStringLiteral("-"));
    QVERIFY(!TimeText::accepted().isEmpty());
}

void TestTimeText::parsesWhatItFormats()
{
    const QDateTime time(QDate(2025, 12, 31), QTime(23, 59, 58));
    QCOMPARE(TimeText::parse(TimeText::format(time), m_now), std::make_optional(time));
}

void TestTimeText::formatsSpans_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<QString>("text");
    const auto row = [](qint64 seconds, const char* text) {
        QTest::newRow(text) << seconds << QString::fromLatin1(text);
    };
    row(0, "0 s");
    row(1, "1 s");
    row(119, "119 s");
    row(120, "2 min");
    row(7199, "119 min");
    row(7200, "2 h");
    row(172799, "47 h");
    row(172800, "2 days");
    row(31536000000, "365000 days");
    row(-5, "-5 s");
}

void TestTimeText::formatsSpans()
{
    QFETCH(qint64, seconds);
    QTEST(TimeText::formatSpan(seconds), "text");
}

QTEST_GUILESS_MAIN(TestTimeText)
#include "tst_timetext.moc"
