#include "tvctl/console/jsontext.h"

#include "common/filename.h"

#include <QJsonDocument>
#include <QTest>

class TestJsonText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writesPaths_data();
    void writesPaths();
    void writesTimes();
    void escapesWhatSteersATerminal_data();
    void escapesWhatSteersATerminal();
};

void TestJsonText::writesPaths_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("plain") << QByteArray("/a b") << QByteArray(R"({"path":"/a b"})");
    QTest::newRow("UTF-8") << QByteArray("/\xC3\xA4") << QByteArray("{\"path\":\"/\xC3\xA4\"}");
    QTest::newRow("control characters stay")
        << QByteArray("/\x1b\n") << QByteArray(R"({"path":"/\u001b\n"})");
    QTest::newRow("not UTF-8") << QByteArray("/caf\xE9")
                               << QByteArray(R"({"path":"/caf\\xe9","path_base64":"L2NhZuk="})");
    QTest::newRow("looks like it") << QByteArray("/caf\\xe9") << QByteArray(R"({"path":"/caf\\xe9"})");
    QTest::newRow("empty") << QByteArray() << QByteArray(R"({"path":""})");
}

void TestJsonText::writesPaths()
{
    QFETCH(QByteArray, bytes);
    QJsonObject object;
    JsonText::insertPath(object, QStringLiteral("path"), FileName::toText(bytes));
    QTEST(QJsonDocument(object).toJson(QJsonDocument::Compact), "json");
    if (object.contains(QStringLiteral("path_base64"))) {
        QCOMPARE(QByteArray::fromBase64(object[QStringLiteral("path_base64")].toString().toLatin1()), bytes);
    }
}

void TestJsonText::writesTimes()
{
    const QDateTime time(QDate(2026, 11, 21), QTime(1, 2, 3, 4), Qt::OffsetFromUTC, 2 * 60 * 60);
    QCOMPARE(JsonText::time(time), QJsonValue(QStringLiteral("2026-11-20T23:02:03.004Z")));
    QCOMPARE(JsonText::time(QDateTime()), QJsonValue(QJsonValue::Null));
    QLocale::setDefault(QLocale(QLocale::Arabic, QLocale::Egypt));
    QCOMPARE(JsonText::time(time), QJsonValue(QStringLiteral("2026-11-20T23:02:03.004Z")));
    QLocale::setDefault(QLocale::c());
}

void TestJsonText::escapesWhatSteersATerminal_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("plain") << QStringLiteral("a~\\") << QByteArray("a~\\\\");
    QTest::newRow("letters") << QStringLiteral("\u00e4\u4e2d") << QByteArray("\u00e4\u4e2d");
    QTest::newRow("a pair of surrogates") << QStringLiteral("\U0001F600") << QByteArray("\U0001F600");
    QTest::newRow("delete") << QStringLiteral("\u007f") << QByteArray("\\u007f");
    QTest::newRow("first of the second control set") << QStringLiteral("\u0080") << QByteArray("\\u0080");
    QTest::newRow("control sequence") << QStringLiteral("\u009b2J") << QByteArray("\\u009b2J");
    QTest::newRow("first behind it") << QStringLiteral("\u00a0") << QByteArray("\u00a0");
    QTest::newRow("soft hyphen") << QStringLiteral("\u00ad") << QByteArray("\\u00ad");
    QTest::newRow("turns around") << QStringLiteral("a\u202egpj") << QByteArray("a\\u202egpj");
    QTest::newRow("line separator") << QStringLiteral("\u2028") << QByteArray("\\u2028");
    QTest::newRow("byte order mark") << QStringLiteral("\ufeff") << QByteArray("\\ufeff");
    QTest::newRow("hidden tag") << QStringLiteral("\U000E0041") << QByteArray("\\udb40\\udc41");
}

void TestJsonText::escapesWhatSteersATerminal()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, json);
    const QJsonDocument document(QJsonObject{{text, text}});
    QCOMPARE(JsonText::write(document, QJsonDocument::Compact), "{\"" + json + "\":\"" + json + "\"}");
    for (const auto format : {QJsonDocument::Compact, QJsonDocument::Indented}) {
        QCOMPARE(QJsonDocument::fromJson(JsonText::write(document, format)), document);
    }
}

QTEST_GUILESS_MAIN(TestJsonText)
#include "tst_jsontext.moc"
