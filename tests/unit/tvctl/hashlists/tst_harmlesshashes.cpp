#include "tvctl/hashlists/harmlesshashes.h"

#include <QtTest>

class TestHarmlessHashes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void knowsContentOfSoundFiles_data();
    void knowsContentOfSoundFiles();
};

void TestHarmlessHashes::knowsContentOfSoundFiles_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("digits");
    QTest::addColumn<QString>("content");
    const QString empty = QStringLiteral("the empty file");

    // As md5sum, sha1sum and sha256sum print them.
    QTest::newRow("empty, MD5") << int(IOCScanConfig::MD5) << QByteArray("d41d8cd98f00b204e9800998ecf8427e")
                                << empty;
    QTest::newRow("empty, SHA-1") << int(IOCScanConfig::SHA1)
                                  << QByteArray("da39a3ee5e6b4b0d3255bfef95601890afd80709") << empty;
    QTest::newRow("empty, SHA-256") << int(IOCScanConfig::SHA256)
                                    << QByteArray(
                                           "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855")
                                    << empty;
    QTest::newRow("newline, MD5") << int(IOCScanConfig::MD5) << QByteArray("68b329da9893e34099c7d8ad5cb9c940")
                                  << QStringLiteral("a lone newline");
    QTest::newRow("newline, SHA-1") << int(IOCScanConfig::SHA1)
                                    << QByteArray("adc83b19e793491b1c6ea0fd8b46cd9f32e592fc")
                                    << QStringLiteral("a lone newline");
    QTest::newRow("newline, SHA-256")
        << int(IOCScanConfig::SHA256)
        << QByteArray("01ba4719c80b6fe911b091a7c05124b64eeece964e09c058ef8f9805daca546b")
        << QStringLiteral("a lone newline");
    QTest::newRow("return and newline, MD5")
        << int(IOCScanConfig::MD5) << QByteArray("81051bcc2cf1bedf378224b0a93e2877")
        << QStringLiteral("a lone line end of Windows");
    QTest::newRow("another") << int(IOCScanConfig::MD5) << QByteArray("d41d8cd98f00b204e9800998ecf8427f")
                             << QString();
    QTest::newRow("another type") << int(IOCScanConfig::SHA1)
                                  << QByteArray("d41d8cd98f00b204e9800998ecf8427e") << QString();
}

void TestHarmlessHashes::knowsContentOfSoundFiles()
{
    QFETCH(int, type);
    QFETCH(QByteArray, digits);
    QTEST(harmlessContentOf(static_cast<IOCScanConfig::HASH_TYPE>(type), digits.toStdString()), "content");
}

QTEST_GUILESS_MAIN(TestHarmlessHashes)
#include "tst_harmlesshashes.moc"
