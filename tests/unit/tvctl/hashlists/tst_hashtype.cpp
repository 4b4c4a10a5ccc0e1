#include "tvctl/hashlists/hashtype.h"

#include <QtTest>

class TestHashType : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsTheListByLength_data();
    void tellsTheListByLength();
};

void TestHashType::tellsTheListByLength_data()
{
    QTest::addColumn<QString>("hash");
    QTest::addColumn<int>("type");
    const auto digits = [](int count, char digit) {
        return QString(count, QLatin1Char(digit));
    };

    QTest::newRow("MD5") << digits(32, '0') << int(IOCScanConfig::MD5);
    QTest::newRow("SHA-1") << digits(40, '9') << int(IOCScanConfig::SHA1);
    QTest::newRow("SHA-256") << digits(64, 'f') << int(IOCScanConfig::SHA256);
    QTest::newRow("upper case") << digits(32, 'F') << int(IOCScanConfig::MD5);
    QTest::newRow("empty") << QString() << -1;
    QTest::newRow("one short") << digits(31, 'a') << -1;
    QTest::newRow("one long") << digits(65, 'a') << -1;
    QTest::newRow("SHA-512") << digits(128, 'a') << -1;
    QTest::newRow("no digit") << digits(31, 'a') + QLatin1Char('g') << -1;
    QTest::newRow("a digit of another script") << digits(31, 'a') + QChar(0x0661) << -1;
}

void TestHashType::tellsTheListByLength()
{
    QFETCH(QString, hash);
    QFETCH(int, type);
    const auto found = hashTypeOf(hash);
    QCOMPARE(found ? int(*found) : -1, type);
}

QTEST_GUILESS_MAIN(TestHashType)
#include "tst_hashtype.moc"
