#include "unit/tvctl/hashlists/generateddevice.h"
#include "unit/tvctl/hashlists/listreading.h"

#include <QtTest>

namespace
{
QByteArray bundle(const QByteArray& objects)
{
    return "{\"type\":\"bundle\",\"id\":\"bundle--1\",\"objects\":[\n" + objects + "\n]}";
}

QByteArray indicator(const QByteArray& pattern, const QByteArray& more = {})
{
    return "{\"type\":\"indicator\",\"pattern\":\"" + pattern + "\"" +
           (more.isEmpty() ? QByteArray() : "," + more) + "}";
}
} // namespace

class TestStixParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void judgesObjects_data();
    void judgesObjects();
    void readsAWholeBundle();
    void rejectsAPatternThatIsTooLong();
    void needsLittleMemoryForPatternsInPatterns();
};

void TestStixParser::judgesObjects_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("accepted");
    QTest::addColumn<QString>("rejected");
    const QByteArray a = md5Of('a');
    const QByteArray pattern = "[file:hashes.MD5 = '" + a + "']";
    const QString none;
    const auto text = [](const char* letters) {
        return QString::fromLatin1(letters);
    };
    const QString taken = text("2 md5 a");

    QTest::newRow("indicator") << indicator(pattern, "\"pattern_type\":\"stix\"") << taken << none;
    QTest::newRow("version 2.0") << indicator(pattern) << taken << none;
    QTest::newRow("the type last") << "{\"pattern\":\"" + pattern + "\",\"type\":\"indicator\"}" << taken
                                   << none;
    QTest::newRow("escapes") << indicator("[file:hashes.\\\"MD5\\\" = \\u0027" + a + "']") << taken << none;
    QTest::newRow("not revoked") << indicator(pattern, "\"revoked\":false") << taken << none;
    QTest::newRow("revoked") << indicator(pattern, "\"revoked\":true") << none
                             << text("2 the indicator is revoked");
    QTest::newRow("revoked, told first")
        << "{\"revoked\":true,\"type\":\"indicator\",\"pattern\":\"" + pattern + "\"}" << none
        << text("2 the indicator is revoked");
    QTest::newRow("another language") << indicator("rule x {}", "\"pattern_type\":\"yara\"") << none
                                      << text("2 the pattern is in another language than that of STIX");
    QTest::newRow("no indicator") << "{\"type\":\"note\",\"pattern\":\"" + pattern + "\"}" << none << none;
    QTest::newRow("an indicator without a pattern") << QByteArray("{\"type\":\"indicator\"}") << none << none;

    QTest::newRow("file") << "{\"type\":\"file\",\"hashes\":{\"MD5\":\"" + a + "\"}}" << taken << none;
    QTest::newRow("file, the type last")
        << "{\"hashes\":{\"MD5\":\"" + a + "\"},\"type\":\"file\"}" << taken << none;
    QTest::newRow("spellings") << "{\"type\":\"file\",\"hashes\":{\"md5\":\"" + md5Of('A') +
                                      "\",\"SHA1\":\"" + sha1Of('b') + "\",\n\"sha-256\":\"" + sha256Of('c') +
                                      "\"}}"
                               << text("2 md5 a|2 sha1 b|3 sha256 c") << none;
    QTest::newRow("other functions") << "{\"type\":\"file\",\"hashes\":{\"SHA-512\":\"" +
                                            QByteArray(128, 'd') + "\",\"SSDEEP\":\"3:a:b\"}}"
                                     << none << text("2 SHA-512 is not supported|2 SSDEEP is not supported");
    QTest::newRow("hashes of something else")
        << "{\"type\":\"x509-certificate\",\"hashes\":{\"MD5\":\"" + a + "\"}}" << none << none;
    QTest::newRow("a section of a file") << "{\"type\":\"file\",\"extensions\":{\"windows-pebinary-ext\":{"
                                            "\"sections\":[{\"hashes\":{\"MD5\":\"" +
                                                md5Of('9') + "\"}}]}},\"hashes\":{\"MD5\":\"" + a + "\"}}"
                                         << taken << none;
    QTest::newRow("observed data of version 2.0")
        << "{\"type\":\"observed-data\",\"objects\":{\"0\":{\"type\":\"file\",\"hashes\":{\"MD5\":\"" + a +
               "\"}},\"1\":{\"type\":\"domain-name\",\"value\":\"x\"}}}"
        << taken << none;
    QTest::newRow("hashes of nothing") << QByteArray("{\"hashes\":\"x\"}") << none << none;
}

void TestStixParser::judgesObjects()
{
    QFETCH(QByteArray, json);
    const Reading reading = readList(bundle(json), HashListFormat::Stix);
    QCOMPARE(reading.result.error, QString());
    QTEST(reading.accepted.join(QLatin1Char('|')), "accepted");
    QTEST(reading.rejected.join(QLatin1Char('|')), "rejected");
}

void TestStixParser::readsAWholeBundle()
{
    const QByteArray text = R"({
  "type": "bundle", "id": "bundle--1",
  "objects": [
    {"type": "identity", "name": "x", "hashes": {"MD5": ")" +
                            md5Of('9') + R"("}},
    {
      "type": "indicator", "spec_version": "2.1", "pattern_type": "stix",
      "pattern": "[file:hashes.'SHA-256' = ')" +
                            sha256Of('a') + R"(' OR file:hashes.MD5 = ')" + md5Of('b') +
                            R"(']",
      "valid_from": "2024-01-01T00:00:00Z", "external_references": [{"hashes": {"MD5": ")" +
                            md5Of('9') +
                            R"("}}]
    },
    {"type": "malware", "is_family": false},
    {"type": "file", "name": "x.exe",
     "hashes": {
       "SHA-1": ")" + sha1Of('c') +
                            R"(",
       "SHA-512": ")" + QByteArray(128, 'd') +
                            R"("
     }},
    {"type": "indicator", "pattern_type": "stix", "revoked": true,
     "pattern": "[file:hashes.MD5 = ')" +
                            md5Of('9') + R"(']"}
  ]
})";
    const Reading reading = readList(text, HashListFormat::Stix);
    QCOMPARE(reading.result.error, QString());
    QCOMPARE(reading.accepted, lines("7 sha256 a\n7 md5 b\n13 sha1 c"));
    QCOMPARE(reading.rejected, lines("14 SHA-512 is not supported\n17 the indicator is revoked"));
}

void TestStixParser::rejectsAPatternThatIsTooLong()
{
    const QByteArray hash = md5Of('a');
    GeneratedDevice device("{\"type\":\"indicator\",\"pattern\":\"[file:hashes.MD5 = '" + hash + "'",
                           " OR file:hashes.MD5 = '" + hash + "'", 6 * 1024 * 1024,
                           "]\"}\n" + indicator("[file:hashes.MD5 = '" + md5Of('b') + "']"));
    RecordingSink sink;
    HashListOptions options;
    options.format = HashListFormat::Stix;
    const HashListResult result = readHashList(device, QString(), options, sink);
    QCOMPARE(result.error, QString());
    QCOMPARE(sink.accepted, lines("2 md5 b"));
    QCOMPARE(sink.rejected, lines("1 the pattern is too long"));
}

void TestStixParser::needsLittleMemoryForPatternsInPatterns()
{
    const QByteArray open =
        "{\"type\":\"indicator\",\"pattern\":\"" + QByteArray(256 * 1024, 'x') + "\",\"a\":";
    QByteArray end = "0";
    end.append(QByteArray(90, '}'));
    GeneratedDevice device("", open, 90 * open.size(), end);
    RecordingSink sink;
    HashListOptions options;
    options.format = HashListFormat::Stix;
    const HashListResult result = readHashList(device, QString(), options, sink);
    QCOMPARE(result.error, QString());
    QCOMPARE(sink.rejected.size(), 74);
    QVERIFY2(device.heapGrowth() < 16 * 1024 * 1024, QByteArray::number(device.heapGrowth()));
}

QTEST_GUILESS_MAIN(TestStixParser)
#include "tst_stixparser.moc"
