#include "tvctl/health/signatureheader.h"

#include <QLocale>
#include <QTest>

class TestSignatureHeader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void reads();
    void readsTheTime_data();
    void readsTheTime();
    void refusesWhatIsNoHead_data();
    void refusesWhatIsNoHead();
};

namespace
{
QByteArray padded(const QByteArray& text)
{
    return text.leftJustified(SignatureHeader::size, ' ');
}
} // namespace

void TestSignatureHeader::reads()
{
    const auto header = parseSignatureHeader(
        padded("ClamAV-VDB:22 Jun 2021 21-31 -0400:5:13:81:4e5effe6:2YSHslyENiCY:micasnyd:1624411902"));
    QVERIFY(header);
    QCOMPARE(header->version, 5U);
    QCOMPARE(header->signatures, 13U);
    QCOMPARE(header->functionalityLevel, 81U);
    QCOMPARE(header->builder, QStringLiteral("micasnyd"));
    QCOMPARE(header->built, QDateTime(QDate(2021, 6, 23), QTime(1, 31), Qt::UTC));
    // The oldest ones say no seconds, and what is behind the head plays no part.
    QVERIFY(parseSignatureHeader(padded("ClamAV-VDB:22 Jun 2021 21-31 -0400:5:13:81:m:s:b") + "rest:of:it"));
}

void TestSignatureHeader::readsTheTime_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QDateTime>("expected");
    const auto utc = [](int month, int day, int hour, int minute) {
        return QDateTime(QDate(2024, month, day), QTime(hour, minute), Qt::UTC);
    };
    QTest::newRow("east") << QByteArray("01 Jan 2024 03-37 +0530")
                          << QDateTime(QDate(2023, 12, 31), QTime(22, 7), Qt::UTC);
    QTest::newRow("no zero") << QByteArray("1 Feb 2024 03-37 +0000") << utc(2, 1, 3, 37);
    QTest::newRow("leap day") << QByteArray("29 Feb 2024 00-00 -0100") << utc(2, 29, 1, 0);
    for (int month = 1; month <= 12; ++month) {
        const QString monthName = QLocale::c().standaloneMonthName(month, QLocale::ShortFormat);
        const QByteArray name = monthName.toLatin1();
        QTest::newRow(name.constData()) << "05 " + name + " 2024 10-20 +0000" << utc(month, 5, 10, 20);
    }
    for (const char* wrong :
         {"", "05 Mai 2024 10-20 +0000", "32 Jan 2024 10-20 +0000", "30 Feb 2024 10-20 +0000",
          "05 Jan 2024 24-20 +0000", "05 Jan 2024 10-20", "Jan 05 2024 10-20 +0000"}) {
        QTest::addRow("no time: %s", wrong) << QByteArray(wrong) << QDateTime();
    }
}

void TestSignatureHeader::readsTheTime()
{
    QFETCH(const QByteArray, text);
    // The locale of the person plays no part.
    QLocale::setDefault(QLocale(QLocale::German));
    const auto header = parseSignatureHeader(padded("ClamAV-VDB:" + text + ":1:2:3:m:s:b:4"));
    QVERIFY(header);
    QTEST(header->built, "expected");
}

void TestSignatureHeader::refusesWhatIsNoHead_data()
{
    QTest::addColumn<QByteArray>("head");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("short") << QByteArray("ClamAV-VDB:22 Jun 2021 21-31 -0400:5:13:81:m:s:b:1");
    QTest::newRow("zeros") << QByteArray(512, '\0');
    QTest::newRow("other magic") << padded("ClamAV-VDC:22 Jun 2021 21-31 -0400:5:13:81:m:s:b:1");
    QTest::newRow("few fields") << padded("ClamAV-VDB:22 Jun 2021 21-31 -0400:5:13");
    QTest::newRow("no version") << padded("ClamAV-VDB:22 Jun 2021 21-31 -0400::13:81:m:s:b:1");
    QTest::newRow("no count") << padded("ClamAV-VDB:22 Jun 2021 21-31 -0400:5:many:81:m:s:b:1");
    QTest::newRow("negative") << padded("ClamAV-VDB:22 Jun 2021 21-31 -0400:-5:13:81:m:s:b:1");
    QTest::newRow("no level") << padded("ClamAV-VDB:22 Jun 2021 21-31 -0400:5:13:x:m:s:b:1");
}

void TestSignatureHeader::refusesWhatIsNoHead()
{
    QFETCH(const QByteArray, head);
    QVERIFY(!parseSignatureHeader(head));
}

QTEST_GUILESS_MAIN(TestSignatureHeader)
#include "tst_signatureheader.moc"
