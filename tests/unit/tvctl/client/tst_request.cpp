#include "tvctl/client/request.h"

#include "common/filename.h"

#include <QTest>

class TestRequest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void putsCommandAndArgumentTogether_data();
    void putsCommandAndArgumentTogether();
    void refusesWhatTheProtocolCannotCarry_data();
    void refusesWhatTheProtocolCannotCarry();
    void fillsAMessageAndNoMore();
    void carriesNoArgument();
};

void TestRequest::putsCommandAndArgumentTogether_data()
{
    QTest::addColumn<QByteArray>("argument");
    QTest::newRow("plain") << QByteArray("/home/u/a.exe");
    QTest::newRow("spaces") << QByteArray("/home/u/a  b ");
    QTest::newRow("space first") << QByteArray(" /x");
    QTest::newRow("UTF-8") << QByteArray("/home/u/\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80");
    QTest::newRow("mark") << QByteArray("\xEF\xBB\xBF/x");
    QTest::newRow("replacement character") << QByteArray("/x/\xEF\xBF\xBD");
    QTest::newRow("control characters") << QByteArray("/x/\x1B[2J\t\x7F");
    QTest::newRow("looks like an escape") << QByteArray("/x/\\xff");
    QTest::newRow("empty") << QByteArray();
}

void TestRequest::putsCommandAndArgumentTogether()
{
    QFETCH(QByteArray, argument);
    const Request request = makeRequest("SCAN", FileName::toText(argument));
    QVERIFY2(request.isValid(), qPrintable(request.problem));
    QCOMPARE(request.bytes, "SCAN " + argument);
}

void TestRequest::refusesWhatTheProtocolCannotCarry_data()
{
    QTest::addColumn<QByteArray>("argument");
    QTest::addColumn<QString>("problem");
    const QString utf8 = QStringLiteral("not UTF-8");
    QTest::newRow("a byte that is no UTF-8") << QByteArray("/x/\xFF") << utf8;
    QTest::newRow("cut short") << QByteArray("/x/\xC3") << utf8;
    QTest::newRow("a surrogate") << QByteArray("/x/\xED\xA0\x80") << utf8;
    QTest::newRow("line feed") << QByteArray("/x/a\nb") << QStringLiteral("line end");
    QTest::newRow("carriage return") << QByteArray("/x/a\r") << QStringLiteral("line end");
    QTest::newRow("zero") << QByteArray("/x/a\0b", 6) << QStringLiteral("zero byte");
    QTest::newRow("long") << QByteArray(5000, 'x') << QStringLiteral("longer than the 4091 bytes");
}

void TestRequest::refusesWhatTheProtocolCannotCarry()
{
    QFETCH(QByteArray, argument);
    QFETCH(QString, problem);
    const Request request = makeRequest("SCAN", FileName::toText(argument));
    QVERIFY(!request.isValid());
    QVERIFY2(request.problem.contains(problem), qPrintable(request.problem));
}

void TestRequest::fillsAMessageAndNoMore()
{
    // In bytes, not in characters.
    const QString twoBytes = QStringLiteral("\u00E4");
    QVERIFY(makeRequest("SCANIOC", twoBytes.repeated(2044)).isValid());
    QCOMPARE(makeRequest("SCANIOC", twoBytes.repeated(2044)).bytes.size(), 4096);
    QVERIFY(!makeRequest("SCANIOC", twoBytes.repeated(2044) + QLatin1Char('x')).isValid());
}

void TestRequest::carriesNoArgument()
{
    QCOMPARE(makeRequest("RELOADDB").bytes, QByteArray("RELOADDB"));
    QVERIFY(makeRequest("RELOADDB").isValid());
}

QTEST_GUILESS_MAIN(TestRequest)
#include "tst_request.moc"
