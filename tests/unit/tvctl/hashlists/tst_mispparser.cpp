#include "unit/tvctl/hashlists/listreading.h"

#include <QtTest>

namespace
{
/// An attribute as an event holds it, in a line of its own.
QByteArray attribute(const QByteArray& type, const QByteArray& value,
                     const QByteArray& more = "\"to_ids\":true")
{
    return "{\"type\":\"" + type + "\",\"category\":\"Payload delivery\",\"value\":\"" + value + "\"" +
           (more.isEmpty() ? QByteArray() : "," + more) + "}";
}
} // namespace

class TestMispParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsAttributesInEachShape_data();
    void findsAttributesInEachShape();
    void judgesAttributes_data();
    void judgesAttributes();
    void takesEverythingWhenTold();
    void readsAWholeEvent();
};

void TestMispParser::findsAttributesInEachShape_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("behind");
    QTest::newRow("an event") << QByteArray("{\"Event\":{\"info\":\"x\",\"Attribute\":[")
                              << QByteArray("]}}");
    QTest::newRow("a response") << QByteArray("{\"response\":[{\"Event\":{\"Attribute\":[")
                                << QByteArray("]}}]}");
    QTest::newRow("an array of events") << QByteArray("[{\"Event\":{\"Attribute\":[") << QByteArray("]}}]");
    QTest::newRow("attributes alone") << QByteArray("{\"response\":{\"Attribute\":[") << QByteArray("]}}");
    QTest::newRow("an array of attributes") << QByteArray("[") << QByteArray("]");
    QTest::newRow("objects")
        << QByteArray("{\"Event\":{\"Object\":[{\"name\":\"file\",\"deleted\":false,\"Attribute\":[")
        << QByteArray("]}]}}");
}

void TestMispParser::findsAttributesInEachShape()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, behind);
    const Reading reading =
        readList(before + "\n" + attribute("md5", md5Of('a')) + ",\n" + attribute("domain", "evil.example") +
                     ",\n" + attribute("sha256", sha256Of('b')) + "\n" + behind,
                 HashListFormat::Misp);
    QCOMPARE(reading.result.error, QString());
    QCOMPARE(reading.accepted, lines("2 md5 a\n4 sha256 b"));
    QCOMPARE(reading.rejected, QStringList());
}

void TestMispParser::judgesAttributes_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("accepted");
    QTest::addColumn<QString>("rejected");
    const QByteArray a = md5Of('a');
    const QString none;
    const auto text = [](const char* letters) {
        return QString::fromLatin1(letters);
    };
    const QString taken = text("1 md5 a");

    QTest::newRow("upper case") << attribute("md5", md5Of('A')) << taken << none;
    QTest::newRow("sha1") << attribute("sha1", sha1Of('b')) << text("1 sha1 b") << none;
    QTest::newRow("filename|md5") << attribute("filename|md5", "a|b.exe|" + a) << taken << none;
    QTest::newRow("filename|sha256") << attribute("filename|sha256", "b.exe|" + sha256Of('c'))
                                     << text("1 sha256 c") << none;
    QTest::newRow("malware-sample") << attribute("malware-sample", "b.exe|" + a) << taken << none;
    QTest::newRow("the flag first") << "{\"to_ids\":true,\"value\":\"" + a + "\",\"type\":\"md5\"}" << taken
                                    << none;
    QTest::newRow("the flag as a text") << attribute("md5", a, "\"to_ids\":\"1\"") << taken << none;
    QTest::newRow("the flag as a number")
        << attribute("md5", a, "\"to_ids\":1,\"deleted\":0") << taken << none;
    QTest::newRow("no flag") << attribute("md5", a, "") << taken << none;
    QTest::newRow("not deleted") << attribute("md5", a, "\"deleted\":false") << taken << none;

    const QString unmarked = text("1 not marked for detection (to_ids)");
    QTest::newRow("flag off behind") << attribute("md5", a, "\"to_ids\":false") << none << unmarked;
    QTest::newRow("flag off before") << "{\"to_ids\":false,\"value\":\"" + a + "\",\"type\":\"md5\"}" << none
                                     << unmarked;
    QTest::newRow("flag off as a text") << attribute("md5", a, "\"to_ids\":\"0\"") << none << unmarked;
    QTest::newRow("deleted") << attribute("md5", a, "\"to_ids\":true,\"deleted\":true") << none
                             << text("1 deleted");
    QTest::newRow("deleted as a text")
        << attribute("md5", a, "\"deleted\":\"1\"") << none << text("1 deleted");
    QTest::newRow("import hash") << attribute("imphash", a) << none << text("1 imphash is not supported");
    QTest::newRow("a certificate") << attribute("x509-fingerprint-md5", a) << none
                                   << text("1 x509-fingerprint-md5 is not supported");
    QTest::newRow("filename|sha512") << attribute("filename|sha512", "x|" + QByteArray(128, 'd')) << none
                                     << text("1 sha512 is not supported");
    QTest::newRow("not a hash") << attribute("md5", "evil") << none << text("1 not a hash");
    QTest::newRow("empty") << attribute("md5", "") << none << text("1 the hash is missing");
    QTest::newRow("too long a value") << attribute("filename|md5", QByteArray(10000, 'x') + '|' + a) << none
                                      << text("1 the value is too long");
    QTest::newRow("another kind") << attribute("comment", a) << none << none;
    QTest::newRow("a proposal in it")
        << attribute("md5", a, "\"ShadowAttribute\":[" + attribute("md5", md5Of('9')) + "],\"to_ids\":true")
        << taken << none;
    QTest::newRow("tags in it") << attribute("md5", a, "\"Tag\":[{\"name\":\"x\",\"type\":\"sha1\"}]")
                                << taken << none;
}

void TestMispParser::judgesAttributes()
{
    QFETCH(QByteArray, json);
    const Reading reading = readList("{\"Event\":{\"Attribute\":[" + json + "]}}", HashListFormat::Misp);
    QCOMPARE(reading.result.error, QString());
    QTEST(reading.accepted.join(QLatin1Char('|')), "accepted");
    QTEST(reading.rejected.join(QLatin1Char('|')), "rejected");
}

void TestMispParser::takesEverythingWhenTold()
{
    HashListOptions options;
    options.format = HashListFormat::Misp;
    options.misp = MispParser::Take::Everything;
    const Reading reading =
        readList("[" + attribute("md5", md5Of('a'), "\"to_ids\":false") + ",\n" +
                     attribute("md5", md5Of('b'), "\"to_ids\":false,\"deleted\":true") + "]",
                 options);
    QCOMPARE(reading.accepted, lines("1 md5 a"));
    QCOMPARE(reading.rejected, lines("2 deleted"));
}

void TestMispParser::readsAWholeEvent()
{
    const QByteArray event = R"({
  "Event": {
    "id": "7", "info": "Spam of \"today\"", "published": true, "type": "x", "value": 5,
    "Org": {"name": "x"},
    "Attribute": [
      {"id": "1", "type": "ip-dst", "to_ids": true, "value": "192.0.2.1"},
      {"id": "2", "type": "md5", "to_ids": true, "value": ")" +
                             md5Of('a') + R"("},
      {"id": "3", "type": "md5", "to_ids": false, "value": ")" +
                             md5Of('b') + R"("}
    ],
    "RelatedEvent": [{"Event": {"id": "6", "info": "x"}}],
    "Object": [
      {"name": "file", "Attribute": [
        {"type": "sha1", "object_relation": "sha1", "value": ")" +
                             sha1Of('c') + R"(", "to_ids": true},
        {"type": "ssdeep", "object_relation": "ssdeep", "value": "3:abc:def", "to_ids": true},
        {"type": "attachment", "data": ")" +
                             QByteArray(100000, 'f') + R"(", "value": "x.exe"}
      ]}
    ]
  }
})";
    const Reading reading = readList(event, HashListFormat::Misp);
    QCOMPARE(reading.result.error, QString());
    QCOMPARE(reading.accepted, lines("7 md5 a\n13 sha1 c"));
    QCOMPARE(reading.rejected, lines("8 not marked for detection (to_ids)\n14 ssdeep is not supported"));
}

QTEST_GUILESS_MAIN(TestMispParser)
#include "tst_mispparser.moc"
