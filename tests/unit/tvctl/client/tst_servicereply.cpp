#include "tvctl/client/servicereply.h"

#include "socket/clientreply.h"

#include <QTest>

#include <climits>

/// Each reply is made by the service's own code and read back.
class TestServiceReply : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsScan_data();
    void readsScan();
    void readsClean_data();
    void readsClean();
    void readsIocScan_data();
    void readsIocScan();
    void readsReload();
    void readsRegistered();
    void knowsNothingElse_data();
    void knowsNothingElse();
    void tellsErrorsInWords();
};

void TestServiceReply::readsScan_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("name");
    QTest::newRow("clean") << 0 << QString();
    QTest::newRow("infected") << 1 << QStringLiteral("Eicar-Test-Signature");
    QTest::newRow("no name") << 1 << QString();
    QTest::newRow("name with spaces") << 1 << QStringLiteral(" a  b ");
    QTest::newRow("name like a reply") << 1 << QStringLiteral("CLEAN");
    QTest::newRow("name with letters") << 1 << QStringLiteral("\u00E4\u4E2D");
    QTest::newRow("name with a mark in front") << 1 << QStringLiteral("\uFEFFx");
    for (const int error : {-1, 2, 8, 21, 99, INT_MAX, INT_MIN}) {
        QTest::addRow("error %d", error) << error << QString();
    }
}

void TestServiceReply::readsScan()
{
    using Result = ServiceReply::Scan::Result;
    QFETCH(int, result);
    QFETCH(QString, name);
    const ServiceReply::Scan scan = ServiceReply::scan(ClientReply::scan(result, name));
    QCOMPARE(scan.result, result == 0 ? Result::Clean : result == 1 ? Result::Infected : Result::Failed);
    QCOMPARE(scan.virusName, name);
    QCOMPARE(scan.errorCode, result == 0 || result == 1 ? 0 : result);
}

void TestServiceReply::readsClean_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<int>("lastError");
    QTest::newRow("removed") << 0 << 0;
    QTest::newRow("removed, an earlier error") << 0 << 9;
    QTest::newRow("not removed") << 1 << 9;
    QTest::newRow("report only") << -1 << 0;
}

void TestServiceReply::readsClean()
{
    using ServiceReply::Clean;
    QFETCH(int, result);
    QFETCH(int, lastError);
    QCOMPARE(ServiceReply::clean(ClientReply::clean(result, lastError)),
             result == 0 ? Clean::Removed : Clean::NotRemoved);
}

void TestServiceReply::readsIocScan_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("hash");
    QTest::addColumn<QString>("type");
    QTest::newRow("none") << 0 << QString() << QString();
    const QVector<QPair<int, QString>> kinds = {{32, QStringLiteral("MD5")},
                                                {40, QStringLiteral("SHA1")},
                                                {64, QStringLiteral("SHA256")},
                                                // A list may hold the empty text, and an unreadable file has
                                                // it as its hash.
                                                {0, QStringLiteral("MD5")}};
    for (const auto& [length, type] : kinds) {
        for (int result = 1; result <= 4; ++result) {
            QTest::addRow("%d digits, result %d", length, result)
                << result << QString(length, QLatin1Char('a')) << type;
        }
    }
}

void TestServiceReply::readsIocScan()
{
    using Result = ServiceReply::IocScan::Result;
    QFETCH(int, result);
    QFETCH(QString, hash);
    QFETCH(QString, type);
    const ServiceReply::IocScan scan = ServiceReply::iocScan(ClientReply::scanIoc(result, hash));
    const Result results[] = {Result::Clean, Result::Allowed, Result::Renamed, Result::Deleted,
                              Result::ActionFailed};
    QCOMPARE(scan.result, results[result]);
    QCOMPARE(scan.hash, hash);
    QCOMPARE(scan.hashType, type);
}

void TestServiceReply::readsReload()
{
    QCOMPARE(ServiceReply::reload(ClientReply::reload(true)), ServiceReply::Reload::Succeeded);
    QCOMPARE(ServiceReply::reload(ClientReply::reload(false)), ServiceReply::Reload::Failed);
}

void TestServiceReply::readsRegistered()
{
    QVERIFY(ServiceReply::isRegistered(ClientReply::registered()));
    QVERIFY(!ServiceReply::isRegistered(ClientReply::invalidCommand()));
    QVERIFY(!ServiceReply::isRegistered(QByteArray()));
    QVERIFY(!ServiceReply::isRegistered("REGISTERED!!"));
}

void TestServiceReply::knowsNothingElse_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("refused") << ClientReply::invalidCommand();
    for (const char* text :
         {"",           " ",        "CLEAN ",   "CLEAN\n",  "clean",    "INFECTED",
          "INFECTEDx",  "ERROR",    "ERROR ",   "ERROR x",  "ERROR 8x", "ERROR 99999999999",
          "CLEANED ",   "FAILED_",  "SUCCESS ", "success",  "MD5",      "MD5:IA",
          "MD5:IA:a:b", "MD4:IA:a", "MD5:IX:a", "MD5:ia:a", ":IA:a",    "sha1:IA:a"}) {
        QTest::addRow("\"%s\"", text) << QByteArray(text);
    }
    QTest::newRow("another spelling of a code") << QByteArray("ERROR +8");
    QTest::newRow("a blank before a code") << QByteArray("ERROR  8");
    QTest::newRow("a zero byte behind a code") << QByteArray("ERROR 8\0x", 9);
    QTest::newRow("a zero byte behind a kind") << QByteArray("SHA1\0x:IA:a", 11);
}

void TestServiceReply::knowsNothingElse()
{
    QFETCH(QByteArray, reply);
    QCOMPARE(ServiceReply::scan(reply).result, ServiceReply::Scan::Result::Unknown);
    QCOMPARE(ServiceReply::clean(reply), ServiceReply::Clean::Unknown);
    QCOMPARE(ServiceReply::iocScan(reply).result, ServiceReply::IocScan::Result::Unknown);
    QCOMPARE(ServiceReply::reload(reply), ServiceReply::Reload::Unknown);
}

void TestServiceReply::tellsErrorsInWords()
{
    QCOMPARE(ServiceReply::scanErrorText(8), QStringLiteral("it could not be opened"));
    QCOMPARE(ServiceReply::scanErrorText(77), QStringLiteral("the engine failed with code 77"));
    QCOMPARE(ServiceReply::scanErrorText(-1), QStringLiteral("the engine failed with code -1"));
}

QTEST_GUILESS_MAIN(TestServiceReply)
#include "tst_servicereply.moc"
