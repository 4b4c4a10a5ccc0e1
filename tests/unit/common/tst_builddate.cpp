#include "common/builddate.h"

#include <QLocale>
#include <QtTest>

class TestBuildDate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsWhatACompilerWrites_data();
    void readsWhatACompilerWrites();
    void isInvalidForAnythingElse_data();
    void isInvalidForAnythingElse();
    void ignoresTheDefaultLocale_data();
    void ignoresTheDefaultLocale();
};

void TestBuildDate::readsWhatACompilerWrites_data()
{
    QTest::addColumn<QString>("date");
    QTest::addColumn<QString>("time");
    QTest::addColumn<QDateTime>("moment");
    const auto row = [](const char* date, const char* time, const QDate& day, const QTime& clock) {
        QTest::newRow(date) << QString::fromLatin1(date) << QString::fromLatin1(time)
                            << QDateTime(day, clock);
    };
    row("Mar 28 2025", "13:02:59", QDate(2025, 3, 28), QTime(13, 2, 59));
    row("Mar  8 2025", "03:02:09", QDate(2025, 3, 8), QTime(3, 2, 9));
    row("Dec  1 2024", "00:00:00", QDate(2024, 12, 1), QTime(0, 0, 0));
    row("May 31 2026", "23:59:59", QDate(2026, 5, 31), QTime(23, 59, 59));
    row("Feb 29 2024", "12:00:00", QDate(2024, 2, 29), QTime(12, 0, 0));
    row("Oct 10 2025", "10:10:10", QDate(2025, 10, 10), QTime(10, 10, 10));
}

void TestBuildDate::readsWhatACompilerWrites()
{
    QFETCH(QString, date);
    QFETCH(QString, time);
    QTEST(parseBuildDate(date, time), "moment");
}

void TestBuildDate::isInvalidForAnythingElse_data()
{
    QTest::addColumn<QString>("date");
    QTest::addColumn<QString>("time");
    QTest::newRow("nothing") << QString() << QString();
    QTest::newRow("a compiler without a clock") << "??? ?? ????"
                                                << "??:??:??";
    QTest::newRow("another language") << QStringLiteral("Mär 28 2025") << "13:02:59";
    QTest::newRow("no such day") << "Feb 30 2025"
                                 << "13:02:59";
    QTest::newRow("no such hour") << "Mar 28 2025"
                                  << "25:02:59";
}

void TestBuildDate::isInvalidForAnythingElse()
{
    QFETCH(QString, date);
    QFETCH(QString, time);
    const QDateTime moment = parseBuildDate(date, time);
    QVERIFY(!moment.isValid());
    QCOMPARE(QLocale::c().toString(moment, QStringLiteral("yyyy-MM-dd hh:mm:ss")), QString());
}

void TestBuildDate::ignoresTheDefaultLocale_data()
{
    QTest::addColumn<QString>("locale");
    QTest::newRow("German month names") << "de_DE";
    QTest::newRow("Arabic digits") << "ar_EG";
}

void TestBuildDate::ignoresTheDefaultLocale()
{
    QFETCH(QString, locale);
    const QLocale before;
    QLocale::setDefault(QLocale(locale));
    const QDateTime moment = parseBuildDate(QStringLiteral("Mar 28 2025"), QStringLiteral("13:02:59"));
    QLocale::setDefault(before);
    QCOMPARE(moment, QDateTime(QDate(2025, 3, 28), QTime(13, 2, 59)));
}

QTEST_GUILESS_MAIN(TestBuildDate)
#include "tst_builddate.moc"
