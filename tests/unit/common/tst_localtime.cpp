#include "common/localtime.h"

#include <QDateTime>
#include <QLocale>
#include <QtTest>

#include <dlfcn.h>

namespace
{
int looks = 0;

LocalTime at(qint64 milliseconds)
{
    return LocalTime(std::chrono::system_clock::time_point(std::chrono::milliseconds(milliseconds)));
}

QByteArray textOf(const LocalTime& time)
{
    return QByteArray::fromStdString(time.text());
}
} // namespace

extern "C" void tzset()
{
    ++looks;
    static const auto real = reinterpret_cast<void (*)()>(::dlsym(RTLD_NEXT, "tzset"));
    real();
}

class TestLocalTime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void isWhatClocksShow_data();
    void isWhatClocksShow();
    void isPartOfNames();
    void isPresent();
    void isLaterByTheDelay();
    void ignoresTheLocale();
    void noticesAnotherZone();
    void looksAtTheZoneOnce();
};

void TestLocalTime::cleanup()
{
    qunsetenv("TZ");
}

void TestLocalTime::isWhatClocksShow_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<qint64>("moment");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("milliseconds");
    const QByteArray utc = "UTC0";
    // With rules of its own, so that no zone files are needed.
    const QByteArray central = "CET-1CEST,M3.5.0,M10.5.0/3";
    QTest::newRow("1970") << utc << qint64(0) << QByteArray("1970-01-01 00:00:00") << 0;
    QTest::newRow("before 1970") << utc << qint64(-1) << QByteArray("1969-12-31 23:59:59") << 999;
    QTest::newRow("single digits") << utc << Q_INT64_C(1709515805007) << QByteArray("2024-03-04 01:30:05")
                                   << 7;
    QTest::newRow("leap day") << utc << Q_INT64_C(1709251199999) << QByteArray("2024-02-29 23:59:59") << 999;
    QTest::newRow("west") << QByteArray("TVT8") << Q_INT64_C(1709251200000)
                          << QByteArray("2024-02-29 16:00:00") << 0;
    QTest::newRow("half an hour") << QByteArray("TVT-5:30") << Q_INT64_C(1709251200000)
                                  << QByteArray("2024-03-01 05:30:00") << 0;
    QTest::newRow("before the clocks go forward")
        << central << Q_INT64_C(1711846799999) << QByteArray("2024-03-31 01:59:59") << 999;
    QTest::newRow("after the clocks went forward")
        << central << Q_INT64_C(1711846800000) << QByteArray("2024-03-31 03:00:00") << 0;
    QTest::newRow("the hour that comes twice, first")
        << central << Q_INT64_C(1729989000000) << QByteArray("2024-10-27 02:30:00") << 0;
    QTest::newRow("the hour that comes twice, again")
        << central << Q_INT64_C(1729992600000) << QByteArray("2024-10-27 02:30:00") << 0;
}

void TestLocalTime::isWhatClocksShow()
{
    QFETCH(QByteArray, zone);
    QFETCH(qint64, moment);
    QFETCH(QByteArray, text);
    QFETCH(int, milliseconds);
    qputenv("TZ", zone);
    const LocalTime time = at(moment);
    QCOMPARE(textOf(time), text);
    QCOMPARE(time.milliseconds(), milliseconds);
    const QString shown =
        QLocale::c().toString(QDateTime::fromMSecsSinceEpoch(moment), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    QCOMPARE(QString::fromLatin1(text), shown);
}

void TestLocalTime::isPartOfNames()
{
    qputenv("TZ", "UTC0");
    QCOMPARE(at(Q_INT64_C(1709515805007)).name(), std::string("2024-03-04_01-30-05"));
}

void TestLocalTime::isPresent()
{
    qputenv("TZ", "TVT-5:30");
    const auto present = [] {
        return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss:zzz"));
    };
    const QString earliest = present();
    const LocalTime now = LocalTime::now();
    const QString latest = present();
    const QString text = QStringLiteral("%1:%2")
                             .arg(QString::fromLatin1(textOf(now)))
                             .arg(now.milliseconds(), 3, 10, QLatin1Char('0'));
    QVERIFY2(text >= earliest && text <= latest, qPrintable(text));
}

void TestLocalTime::isLaterByTheDelay()
{
    qputenv("TZ", "UTC0");
    const auto minuteFromNow = [] {
        return QDateTime::currentDateTimeUtc().addSecs(60).toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    };
    const QString earliest = minuteFromNow();
    const QString later = QString::fromLatin1(textOf(LocalTime::after(std::chrono::minutes(1))));
    const QString latest = minuteFromNow();
    QVERIFY2(later >= earliest && later <= latest, qPrintable(later));
}

void TestLocalTime::ignoresTheLocale()
{
    qputenv("TZ", "UTC0");
    const QLocale before;
    QLocale::setDefault(QLocale(QLocale::Arabic, QLocale::Egypt));
    QCOMPARE(textOf(at(0)), QByteArray("1970-01-01 00:00:00"));
    QLocale::setDefault(before);
}

void TestLocalTime::noticesAnotherZone()
{
    qputenv("TZ", "TVT-2");
    QCOMPARE(textOf(at(0)), QByteArray("1970-01-01 02:00:00"));
    qputenv("TZ", "TVT-3");
    QCOMPARE(textOf(at(0)), QByteArray("1970-01-01 03:00:00"));
}

void TestLocalTime::looksAtTheZoneOnce()
{
    looks = 0;
    const LocalTime time = LocalTime::now();
    time.text();
    time.name();
    QCOMPARE(looks, 1);
}

QTEST_APPLESS_MAIN(TestLocalTime)
#include "tst_localtime.moc"
