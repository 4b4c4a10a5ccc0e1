#include "socket/clientreply.h"

#include <QTest>

class TestClientReply : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answersFixedTexts();
    void answersScan_data();
    void answersScan();
    void answersClean_data();
    void answersClean();
    void answersScanIoc_data();
    void answersScanIoc();
};

void TestClientReply::answersFixedTexts()
{
    QCOMPARE(ClientReply::registered(), QByteArray("REGISTERED!"));
    QCOMPARE(ClientReply::invalidCommand(), QByteArray("INVALID COMMAND!"));
    QCOMPARE(ClientReply::reload(true), QByteArray("SUCCESS"));
    QCOMPARE(ClientReply::reload(false), QByteArray("FAILED"));
}

void TestClientReply::answersScan_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("clean") << 0 << QString() << QByteArray("CLEAN");
    QTest::newRow("clean with a name") << 0 << QStringLiteral("x") << QByteArray("CLEAN");
    QTest::newRow("infected") << 1 << QStringLiteral("Eicar-Test-Signature")
                              << QByteArray("INFECTED Eicar-Test-Signature");
    QTest::newRow("infected, no name") << 1 << QString() << QByteArray("INFECTED ");
    QTest::newRow("name like a format") << 1 << QStringLiteral("%s%n%d") << QByteArray("INFECTED %s%n%d");
    QTest::newRow("name beyond ASCII") << 1 << QStringLiteral("\u00F6") << QByteArray("INFECTED \xC3\xB6");
    QTest::newRow("long name") << 1 << QString(5000, QLatin1Char('v')) << "INFECTED " + QByteArray(5000, 'v');
    QTest::newRow("error") << 8 << QString() << QByteArray("ERROR 8");
    QTest::newRow("error with a name") << 2 << QStringLiteral("x") << QByteArray("ERROR 2");
    QTest::newRow("negative") << -1 << QString() << QByteArray("ERROR -1");
    QTest::newRow("largest") << 2147483647 << QString() << QByteArray("ERROR 2147483647");
}

void TestClientReply::answersScan()
{
    QFETCH(int, result);
    QFETCH(QString, name);
    QTEST(ClientReply::scan(result, name), "reply");
}

void TestClientReply::answersClean_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<int>("lastError");
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("removed, no error yet") << 0 << 0 << QByteArray("FAILED 0");
    QTest::newRow("removed, an earlier error") << 0 << 9 << QByteArray("FAILED 9");
    QTest::newRow("not removed") << 1 << 9 << QByteArray("CLEANED");
    QTest::newRow("report only") << -1 << 0 << QByteArray("CLEANED");
    QTest::newRow("anything else") << 77 << 0 << QByteArray("CLEANED");
}

void TestClientReply::answersClean()
{
    QFETCH(int, result);
    QFETCH(int, lastError);
    QTEST(ClientReply::clean(result, lastError), "reply");
}

void TestClientReply::answersScanIoc_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("hash");
    QTest::addColumn<QByteArray>("reply");
    const QString md5(32, QLatin1Char('a'));
    const QString sha1(40, QLatin1Char('b'));
    const QString sha256(64, QLatin1Char('c'));
    QTest::newRow("none") << 0 << QString() << QByteArray("CLEAN");
    QTest::newRow("none with a hash") << 0 << sha1 << QByteArray("CLEAN");
    QTest::newRow("allowed MD5") << 1 << md5 << "MD5:IA:" + md5.toUtf8();
    QTest::newRow("allowed SHA-1") << 1 << sha1 << "SHA1:IA:" + sha1.toUtf8();
    QTest::newRow("allowed SHA-256") << 1 << sha256 << "SHA256:IA:" + sha256.toUtf8();
    QTest::newRow("renamed MD5") << 2 << md5 << "MD5:IR:" + md5.toUtf8();
    QTest::newRow("renamed SHA-1") << 2 << sha1 << "SHA1:IR:" + sha1.toUtf8();
    QTest::newRow("renamed SHA-256") << 2 << sha256 << "SHA256:IR:" + sha256.toUtf8();
    QTest::newRow("deleted MD5") << 3 << md5 << "MD5:ID:" + md5.toUtf8();
    QTest::newRow("deleted SHA-1") << 3 << sha1 << "SHA1:ID:" + sha1.toUtf8();
    QTest::newRow("deleted SHA-256") << 3 << sha256 << "SHA256:ID:" + sha256.toUtf8();
    QTest::newRow("failed MD5") << 4 << md5 << "MD5:" + md5.toUtf8() + ":ERROR";
    QTest::newRow("failed SHA-1") << 4 << sha1 << "SHA1:" + sha1.toUtf8() + ":ERROR";
    QTest::newRow("failed SHA-256") << 4 << sha256 << "SHA256:" + sha256.toUtf8() + ":ERROR";
    QTest::newRow("above four") << 5 << sha1 << "SHA1:" + sha1.toUtf8() + ":ERROR";
    QTest::newRow("negative, no hash") << -1 << QString() << QByteArray("MD5::ERROR");
    QTest::newRow("empty hash") << 3 << QString() << QByteArray("MD5:ID:");
    QTest::newRow("39 characters") << 1 << QString(39, QLatin1Char('d')) << "MD5:IA:" + QByteArray(39, 'd');
    QTest::newRow("65 characters") << 1 << QString(65, QLatin1Char('d')) << "MD5:IA:" + QByteArray(65, 'd');
    QTest::newRow("long hash") << 1 << QString(5000, QLatin1Char('d')) << "MD5:IA:" + QByteArray(5000, 'd');
    QTest::newRow("40 characters beyond ASCII")
        << 1 << QString(40, QChar(0xF6)) << "SHA1:IA:" + QString(40, QChar(0xF6)).toUtf8();
}

void TestClientReply::answersScanIoc()
{
    QFETCH(int, result);
    QFETCH(QString, hash);
    QTEST(ClientReply::scanIoc(result, hash), "reply");
}

QTEST_GUILESS_MAIN(TestClientReply)
#include "tst_clientreply.moc"
