#include "unit/tvctl/hashlists/generateddevice.h"
#include "unit/tvctl/hashlists/listreading.h"

#include <QTextCodec>
#include <QtTest>

namespace
{
QByteArray item(const QByteArray& search, const QByteArray& type, const QByteArray& content,
                const QByteArray& attributes = "condition=\"is\"")
{
    return "<IndicatorItem id=\"x\" " + attributes + "><Context document=\"FileItem\" search=\"" + search +
           "\" type=\"mir\"/><Content type=\"" + type + "\">" + content + "</Content></IndicatorItem>";
}

QByteArray document(const QByteArray& items)
{
    return "<?xml version=\"1.0\" encoding=\"us-ascii\"?>\n"
           "<ioc xmlns=\"http://schemas.mandiant.com/2010/ioc\" id=\"x\"><definition>"
           "<Indicator operator=\"OR\" id=\"x\">\n" +
           items + "\n</Indicator></definition></ioc>\n";
}
} // namespace

class TestOpenIocParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void judgesItems_data();
    void judgesItems();
    void readsAWholeDocument();
    void readsUtf16ThatSaysSo();
    void refusesWhatIsNoDocument_data();
    void refusesWhatIsNoDocument();
    void needsLittleMemory_data();
    void needsLittleMemory();
};

void TestOpenIocParser::judgesItems_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<QString>("accepted");
    QTest::addColumn<QString>("rejected");
    const QByteArray a = md5Of('a');
    const QString none;
    const auto text = [](const char* letters) {
        return QString::fromLatin1(letters);
    };
    const QString taken = text("3 md5 a");

    QTest::newRow("MD5") << item("FileItem/Md5sum", "md5", a) << taken << none;
    QTest::newRow("SHA-1") << item("FileItem/Sha1sum", "string", sha1Of('B')) << text("3 sha1 b") << none;
    QTest::newRow("SHA-256") << item("FileItem/Sha256sum", "string", sha256Of('c')) << text("3 sha256 c")
                             << none;
    QTest::newRow("the type alone") << item("FileItem/Checksum", "md5", a) << taken << none;
    QTest::newRow("of a driver") << item("DriverItem/Md5sum", "md5", a) << taken << none;
    QTest::newRow("blanks") << item("FileItem/Md5sum", "md5", "\n " + a + "\n") << taken << none;
    QTest::newRow("entities and sections")
        << item("FileItem/Md5sum", "md5", "&#97;<![CDATA[" + a.mid(2) + "]]>a") << taken << none;
    QTest::newRow("not negated") << item("FileItem/Md5sum", "md5", a, "condition=\"IS\" negate=\"false\"")
                                 << taken << none;
    QTest::newRow("another kind") << item("FileItem/FileName", "string", a) << none << none;

    QTest::newRow("contains") << item("FileItem/Md5sum", "md5", a, "condition=\"contains\"") << none
                              << text("3 the condition is not \"is\"");
    QTest::newRow("isnot") << item("FileItem/Md5sum", "md5", a, "condition=\"isnot\"") << none
                           << text("3 the condition is not \"is\"");
    QTest::newRow("no condition") << item("FileItem/Md5sum", "md5", a, "") << none
                                  << text("3 the condition is not \"is\"");
    QTest::newRow("negated") << item("FileItem/Md5sum", "md5", a, "condition=\"is\" negate=\"true\"") << none
                             << text("3 the item is negated");
    QTest::newRow("a section") << item("ProcessItem/SectionList/MemorySection/Md5sum", "md5", a) << none
                               << text("3 the hash of a part of a file");
    QTest::newRow("imports") << item("FileItem/PEInfo/ImportHash", "md5", a) << none
                             << text("3 the hash of a part of a file");
    QTest::newRow("not a hash") << item("FileItem/Md5sum", "md5", "evil") << none << text("3 not a hash");
    QTest::newRow("no content") << item("FileItem/Md5sum", "md5", "") << none
                                << text("3 the hash is missing");
    QTest::newRow("too long") << item("FileItem/Md5sum", "md5", QByteArray(100000, 'a')) << none
                              << text("3 512 hexadecimal digits are no MD5, SHA-1 or SHA-256");
}

void TestOpenIocParser::judgesItems()
{
    QFETCH(QByteArray, xml);
    const Reading reading = readList(document(xml), HashListFormat::OpenIoc);
    QCOMPARE(reading.result.error, QString());
    QTEST(reading.accepted.join(QLatin1Char('|')), "accepted");
    QTEST(reading.rejected.join(QLatin1Char('|')), "rejected");
}

void TestOpenIocParser::readsAWholeDocument()
{
    const QByteArray xml = R"(<?xml version="1.0"?>
<OpenIOC xmlns="http://openioc.org/schemas/OpenIOC_1.1" id="x">
  <metadata><short_description>)" +
                           md5Of('9') + R"(</short_description></metadata>
  <criteria>
    <!-- <IndicatorItem condition="is"/> -->
    <Indicator id="x" operator="OR">
      <IndicatorItem id="x" condition="is" preserve-case="false" negate="false">
        <Context document="FileItem" search="FileItem/Md5sum" type="mir" />
        <Content type="md5">)" +
                           md5Of('a') + R"(</Content>
      </IndicatorItem>
      <Indicator operator="AND">
        <IndicatorItem condition="is">
          <Context search="FileItem/Sha256sum" />
          <Content type="sha256">)" +
                           sha256Of('b') + R"(</Content>
        </IndicatorItem>
        <IndicatorItem condition="contains">
          <Context search="FileItem/FullPath" />
          <Content type="string">temp</Content>
        </IndicatorItem>
        <IndicatorItem condition="contains">
          <Context search="FileItem/Md5sum" />
          <Content type="md5">)" +
                           md5Of('c') + R"(</Content>
        </IndicatorItem>
      </Indicator>
    </Indicator>
  </criteria>
</OpenIOC>)";
    const Reading reading = readList(xml, HashListFormat::OpenIoc);
    QCOMPARE(reading.result.error, QString());
    QCOMPARE(reading.accepted, lines("9 md5 a\n14 sha256 b"));
    QCOMPARE(reading.rejected, lines("22 the condition is not \"is\""));
}

void TestOpenIocParser::readsUtf16ThatSaysSo()
{
    QByteArray xml = document(item("FileItem/Md5sum", "md5", md5Of('a')));
    const QString text = QString::fromLatin1(xml.replace("us-ascii", "utf-16"));
    // With a byte order mark.
    const Reading reading = readList(QTextCodec::codecForName("UTF-16")->fromUnicode(text));
    QCOMPARE(reading.result.error, QString());
    QVERIFY(reading.result.format == HashListFormat::OpenIoc);
    QCOMPARE(reading.accepted, lines("3 md5 a"));
}

void TestOpenIocParser::refusesWhatIsNoDocument_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<QString>("problem");
    const auto text = [](const char* letters) {
        return QString::fromLatin1(letters);
    };
    QTest::newRow("nothing") << QByteArray() << text("line 1: it ends too early");
    QTest::newRow("broken off") << QByteArray("<ioc>\n<Indicator>") << text("line 2: it ends too early");
    QTest::newRow("a declaration") << QByteArray("<!DOCTYPE x [<!ENTITY a \"b\">]>\n<ioc/>")
                                   << text("line 1: document type declarations are not read");
    QTest::newRow("crossed elements")
        << QByteArray("<ioc>\n<a></b></ioc>") << text("line 2: Opening and ending tag mismatch.");
}

void TestOpenIocParser::refusesWhatIsNoDocument()
{
    QFETCH(QByteArray, xml);
    QTEST(readList(xml, HashListFormat::OpenIoc).result.error, "problem");
}

void TestOpenIocParser::needsLittleMemory_data()
{
    QTest::addColumn<QByteArray>("beginning");
    QTest::addColumn<QByteArray>("middle");
    QTest::addColumn<QString>("problem");
    const QString tooLong = QStringLiteral("an element or a text is too long");
    QTest::newRow("elements in elements") << QByteArray("<ioc>") << QByteArray("<Indicator id=\"abc\">")
                                          << QStringLiteral("it is nested too deep");
    QTest::newRow("a name without end")
        << QByteArray("<ioc><") << QByteArray("abcdefgh")
        << QStringLiteral("Length of XML attribute name exceeds implementation limits (4KiB characters).");
    QTest::newRow("an attribute without end")
        << QByteArray("<ioc><a b=\"") << QByteArray("abcdefgh") << tooLong;
    QTest::newRow("attributes without end") << QByteArray("<ioc><a ") << QByteArray("a=\"b\" ") << tooLong;
    QTest::newRow("a comment without end") << QByteArray("<ioc><!-- ") << QByteArray("abcdefgh") << tooLong;
    QTest::newRow("entities without end")
        << QByteArray("<!DOCTYPE x [ ") << QByteArray("<!ENTITY a \"abcdefgh\"> ") << tooLong;
    QTest::newRow("elements side by side")
        << QByteArray("<ioc>") << QByteArray("<Indicator id=\"abc\"/>\n") << QString();
}

void TestOpenIocParser::needsLittleMemory()
{
    QFETCH(QByteArray, beginning);
    QFETCH(QByteArray, middle);
    QFETCH(QString, problem);
    GeneratedDevice device(beginning, middle, 8 * 1024 * 1024, "</ioc>");
    RecordingSink sink;
    HashListOptions options;
    options.format = HashListFormat::OpenIoc;
    const HashListResult result = readHashList(device, QString(), options, sink);
    QVERIFY2(result.error.endsWith(problem), qPrintable(result.error));
    QCOMPARE(result.error.isEmpty(), problem.isEmpty());
    QVERIFY2(device.heapGrowth() < 8 * 1024 * 1024, QByteArray::number(device.heapGrowth()));
}

QTEST_GUILESS_MAIN(TestOpenIocParser)
#include "tst_openiocparser.moc"
