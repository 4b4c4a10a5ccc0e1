#include "tvctl/hashlists/hashlistdetector.h"

#include <QtTest>

class TestHashListDetector : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsTheFormat_data();
    void tellsTheFormat();
    void tellsWhatIsNoList_data();
    void tellsWhatIsNoList();
};

void TestHashListDetector::tellsTheFormat_data()
{
    QTest::addColumn<QByteArray>("beginning");
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("format");
    const auto row = [](const char* name, QByteArray beginning, const char* format,
                        const char* fileName = "") {
        beginning.replace("#A", QByteArray(32, 'a'))
            .replace("#B", QByteArray(40, 'B'))
            .replace("#C", QByteArray(64, 'c'));
        QTest::newRow(name) << beginning << QString::fromLatin1(fileName) << QString::fromLatin1(format);
    };

    row("nothing", "", "plain");
    row("hashes", "#A\n#B\n#C\n", "plain");
    row("a hash", "#A", "plain");
    row("comments", "# a list, of today; really\n\n#A\n#B", "plain");
    row("with names", "md5: #A\nsha1: #B\n", "plain");
    row("sha256sum", "#C  ./a.exe\n#C  b, c.exe\n", "plain");
    row("prose", "Dear all,\nthe file #A was seen; more soon.\nBye", "plain");
    row("hashes in one line",
        "#A,#B,#C,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,"
        "#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A,#A\n",
        "plain");
    row("defanged", "[.]\n[evil]\n#A\n#A", "plain");
    row("content before the name", "#A\n#B\n", "plain", "list.csv");
    row("no content that helps", "x\n", "csv", "dir/list.CSV");
    row("no content at all", "", "cdb", "list.cdb");

    row("a header", "md5,name\n#A,x\n", "csv");
    row("a header of one column", "sha256\n#C\n#C", "csv");
    row("a header of one quoted column", "\"SHA256\"\n\"#C\"\n", "csv");
    row("no header", "#A,evil.exe\n#A,bad.exe", "csv");
    row("no header, hash behind", "evil.exe\t#A\nbad.exe\t#B", "csv");
    row("several hashes a row", "#A;#B;#C\n#A;#B;#C\n", "csv");
    row("a header in a comment", "# note\n# \"seen\",\"sha256_hash\"\n\"now\",\"x\"\n", "csv");
    row("a told delimiter", "sep=;\nDatei;Summe\nx;#A\n", "csv");
    row("a header with semicolons", "hash;comment\n#A;x\n#B;y\n", "csv");

    row("hash and comment", "#A;evil, really\n#C;bad\n", "loki");
    row("hash and comment, comments", "# HASH;COMMENT\n#A;evil: bad\n", "loki");
    row("called like it", "nothing yet\n", "loki", "hash-iocs.txt");

    row("signatures", "#A:68:Bad.Thing-1\n#A:*:Bad.Thing-2:73\n", "hdb");
    row("signatures of files", "#C:68:Bad.Thing-1", "hdb", "x.csv");
    row("signatures of sections", "68:#A:Bad.Thing-1\n", "hdb");

    row("keys", "#A:\n#B:\n", "cdb");
    row("keys and values", "#A:bad\n#B:evil\n", "cdb");
    row("keys in quotes", "\"#A\":\"bad\"\n", "cdb");
    row("signatures of containers", "Bad:CL_TYPE_ZIP:*:x:1:2:0:1:*:*\n", "cdb");

    row("event", "{\"Event\":{\"info\":\"x\"}}", "misp");
    row("response", " \n{ \"response\": [ {\"Event\": {}} ] }", "misp");
    row("attributes", "[{\"type\":\"md5\",\"to_ids\":true}]", "misp");
    row("JSON called like it", "{\"response\":[]}", "misp", "misp-export.json");
    row("bundle", "{\"type\":\"bundle\",\"id\":\"bundle--1\"}", "stix");
    row("bundle with blanks", "{\n  \"type\" : \"bundle\"\n", "stix");
    row("indicators", "[{\"pattern_type\":\"stix\"}]", "stix");
    row("JSON called like the other", "{\"x\":[]}", "stix", "a.stix.json");
    row("OpenIOC 1.0", "<?xml version=\"1.0\"?>\n<ioc xmlns=\"x\">", "openioc");
    row("OpenIOC 1.1", "<OpenIOC xmlns=\"x\">", "openioc");
    row("XML called like it", "<?xml version=\"1.0\"?>", "openioc", "x.ioc");
}

void TestHashListDetector::tellsTheFormat()
{
    QFETCH(QByteArray, beginning);
    QFETCH(QString, fileName);
    const DetectedFormat detected = detectHashListFormat(beginning.toStdString(), fileName);
    QVERIFY2(detected.format, qPrintable(detected.problem));
    QTEST(nameOf(*detected.format), "format");
    QCOMPARE(detected.problem, QString());
}

void TestHashListDetector::tellsWhatIsNoList_data()
{
    QTest::addColumn<QByteArray>("beginning");
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("problem");
    const auto text = [](const char* letters) {
        return QString::fromLatin1(letters);
    };
    QTest::newRow("JSON") << QByteArray("{\"a\":1}") << text("x.json")
                          << text("it is JSON, but looks neither like MISP nor like STIX");
    QTest::newRow("empty JSON") << QByteArray("[]") << QString()
                                << text("it is JSON, but looks neither like MISP nor like STIX");
    QTest::newRow("HTML") << QByteArray("<!DOCTYPE html><html>") << text("hashes.txt")
                          << text("it is XML or HTML, but no OpenIOC");
    QTest::newRow("harmless files") << QByteArray(32, 'a') + ":1:x" << text("x.fp")
                                    << text("by its name it lists files that are known to be harmless");
    QTest::newRow("more harmless files") << QByteArray(64, 'a') + ":1:x" << text("daily.SFP")
                                         << text("by its name it lists files that are known to be harmless");
}

void TestHashListDetector::tellsWhatIsNoList()
{
    QFETCH(QByteArray, beginning);
    QFETCH(QString, fileName);
    const DetectedFormat detected = detectHashListFormat(beginning.toStdString(), fileName);
    QVERIFY(!detected.format);
    QTEST(detected.problem, "problem");
}

QTEST_GUILESS_MAIN(TestHashListDetector)
#include "tst_hashlistdetector.moc"
