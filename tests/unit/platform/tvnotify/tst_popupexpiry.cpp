#include "platform/tvnotify/popupexpiry.h"

#include <QDateTime>
#include <QLocale>
#include <QtTest>

class TestPopupExpiry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsLocalTime_data();
    void readsLocalTime();
    void ignoresAnythingElse_data();
    void ignoresAnythingElse();
    void ignoresTheHourThatIsLeftOut();
};

void TestPopupExpiry::readsLocalTime_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QLocale>("locale");
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("time");
    const QString text = QStringLiteral("2024-05-01 13:45:07");
    const qint64 time = 1714571107000;
    QTest::newRow("UTC") << QByteArray("UTC") << QLocale::c() << text << time;
    QTest::newRow("east") << QByteArray("UTC-5") << QLocale::c() << text << time - 18000000;
    QTest::newRow("German") << QByteArray("UTC") << QLocale(QLocale::German) << text << time;
    QTest::newRow("Arabic") << QByteArray("UTC") << QLocale(QLocale::Arabic, QLocale::Egypt) << text << time;
    // With rules of its own, so that no zone files are needed.
    const QByteArray central = "CET-1CEST,M3.5.0,M10.5.0/3";
    QTest::newRow("winter") << central << QLocale::c() << QStringLiteral("2024-01-31 00:00:00")
                            << Q_INT64_C(1706655600000);
    QTest::newRow("summer") << central << QLocale::c() << QStringLiteral("2024-07-31 00:00:00")
                            << Q_INT64_C(1722376800000);
    QTest::newRow("leap day") << QByteArray("UTC") << QLocale::c() << QStringLiteral("2024-02-29 23:59:59")
                              << Q_INT64_C(1709251199000);
    QTest::newRow("before 1970") << QByteArray("UTC") << QLocale::c() << QStringLiteral("1969-12-31 23:59:59")
                                 << qint64(-1000);
}

void TestPopupExpiry::readsLocalTime()
{
    QFETCH(QByteArray, zone);
    QFETCH(QLocale, locale);
    QFETCH(QString, text);
    QFETCH(qint64, time);
    qputenv("TZ", zone);
    QLocale::setDefault(locale);
    const std::optional<std::int64_t> read = popupCloseTime(text);
    QVERIFY(read);
    QCOMPARE(static_cast<qint64>(*read), time);
}

void TestPopupExpiry::ignoresAnythingElse_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << QString();
    QTest::newRow("words") << QStringLiteral("in a minute");
    QTest::newRow("date only") << QStringLiteral("2024-05-01");
    QTest::newRow("ISO") << QStringLiteral("2024-05-01T13:45:07");
    QTest::newRow("no such day") << QStringLiteral("2024-02-30 00:00:00");
    QTest::newRow("no such hour") << QStringLiteral("2024-05-01 25:00:00");
    QTest::newRow("no such minute") << QStringLiteral("2024-05-01 13:60:00");
    QTest::newRow("no such second") << QStringLiteral("2024-05-01 13:45:60");
    QTest::newRow("no such month") << QStringLiteral("2024-13-01 13:45:07");
    QTest::newRow("no leap year") << QStringLiteral("2023-02-29 13:45:07");
    QTest::newRow("one digit") << QStringLiteral("2024-5-01 13:45:007");
    QTest::newRow("sign") << QStringLiteral("2024-05-01 13:45:+7");
    QTest::newRow("blank") << QStringLiteral("2024-05-01 13:45: 7");
    QTest::newRow("something in front") << QStringLiteral(" 2024-05-01 13:45:07");
    QTest::newRow("something after it") << QStringLiteral("2024-05-01 13:45:07 x");
    QTest::newRow("Arabic digits") << QString::fromUtf8("٢٠٢٤-٠٥-٠١ ١٣:٤٥:٠٧");
}

void TestPopupExpiry::ignoresAnythingElse()
{
    QFETCH(QString, text);
    QVERIFY(!popupCloseTime(text));
}

void TestPopupExpiry::ignoresTheHourThatIsLeftOut()
{
    qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    QVERIFY(!popupCloseTime(QStringLiteral("2024-03-31 02:30:00")));
    QVERIFY(popupCloseTime(QStringLiteral("2024-03-31 03:00:00")));
}

QTEST_APPLESS_MAIN(TestPopupExpiry)
#include "tst_popupexpiry.moc"
