#include "tvctl/hashlists/hashlistinput.h"
#include "tvctl/hashlists/jsonreader.h"
#include "tvctl/hashlists/jsonstream.h"
#include "unit/tvctl/hashlists/generateddevice.h"

#include <QBuffer>
#include <QtTest>

namespace
{
QString textOf(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

/// Writes down what it is told: "key{", "}", "key=text@line".
class RecordingListener : public JsonListener
{
public:
    void objectBegins(std::string_view key) override
    {
        told += textOf(key) + QLatin1String("{ ");
    }
    void member(std::string_view key, const JsonValue& value) override
    {
        told += QStringLiteral("%1=%2%3@%4 ")
                    .arg(textOf(key), textOf(value.text.substr(0, 20)),
                         value.isTrue ? QStringLiteral("!") : QString())
                    .arg(value.line);
        longest = std::max(longest, value.text.size());
        cut += value.isCut ? 1 : 0;
    }
    void objectEnds() override
    {
        told += QLatin1String("} ");
    }

    QString told;
    std::size_t longest = 0;
    int cut = 0;
};

QString read(QIODevice& device, RecordingListener& listener)
{
    HashListInput input(device);
    return readJson(input, listener);
}
} // namespace

class TestJsonReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsMembers_data();
    void tellsMembers();
    void tellsWhatIsWrong_data();
    void tellsWhatIsWrong();
    void cutsLongStrings_data();
    void cutsLongStrings();
    void endsInAStringThatCannotBeCut();
    void bearsEndlessNesting_data();
    void bearsEndlessNesting();
};

void TestJsonReader::tellsMembers_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("told");
    const auto text = [](const char* letters) {
        return QString::fromLatin1(letters);
    };
    QTest::newRow("an object") << QByteArray("{\"a\":\"b\"}") << text("{ a=b@1 } ");
    QTest::newRow("nothing in it") << QByteArray("{}") << text("{ } ");
    QTest::newRow("lines") << QByteArray("{\n\"a\":\r\n\"b\",\n\n\"c\":\"d\"}") << text("{ a=b@3 c=d@5 } ");
    QTest::newRow("arrays have the key of their elements")
        << QByteArray("{\"a\":[{\"b\":1},[\"c\"]],\"d\":[]}") << text("{ a{ b=!@1 } a=c@1 } ");
    QTest::newRow("an array alone") << QByteArray("[{\"a\":0},{\"a\":\"0\"}]") << text("{ a=@1 } { a=0@1 } ");
    QTest::newRow("what is true")
        << QByteArray("[true,false,null,1,0,-1,0.0,1.5,\"1\",\"true\",\"0\",\"\",5000000000,-5000000000]")
        << text("=!@1 =@1 =@1 =!@1 =@1 =!@1 =@1 =!@1 =1!@1 =true!@1 =0@1 =@1 =!@1 =!@1 ");
    QTest::newRow("escapes") << QByteArray("[\"a\\\"b\\\\\\u0041\\ud83d\\ude00\"]")
                             << QString::fromUtf8("=a\"b\\A\xF0\x9F\x98\x80@1 ");
    QTest::newRow("one behind the other")
        << QByteArray("{\"a\":\"b\"}\n{\"c\":\"d\"}\n") << text("{ a=b@1 } { c=d@2 } ");
}

void TestJsonReader::tellsMembers()
{
    QFETCH(QByteArray, json);
    QBuffer buffer(&json);
    buffer.open(QIODevice::ReadOnly);
    RecordingListener listener;
    QCOMPARE(read(buffer, listener), QString());
    QTEST(listener.told, "told");
}

void TestJsonReader::tellsWhatIsWrong_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("problem");
    const auto text = [](const char* letters) {
        return QString::fromLatin1(letters);
    };
    QTest::newRow("nothing") << QByteArray() << text("line 1: it ends too early");
    QTest::newRow("blanks") << QByteArray(" \n ") << text("line 2: it ends too early");
    QTest::newRow("broken off") << QByteArray("{\n\"a\":\"b\"") << text("line 2: it ends too early");
    QTest::newRow("broken off in a string") << QByteArray("{\"a") << text("line 1: it ends too early");
    QTest::newRow("something else behind") << QByteArray("{}\n\nx") << text("line 3: Invalid value.");
    QTest::newRow("no comma") << QByteArray("{\"a\":1\n\"b\":2}")
                              << text("line 2: Missing a comma or '}' after an object member.");
    QTest::newRow("a line break in a string")
        << QByteArray("[\"a\nb\"]") << text("line 1: Invalid escape character in string.");
    QTest::newRow("a number without end") << QByteArray("[") + QByteArray(100000, '9') + "]"
                                          << text("line 1: Number too big to be stored in double.");
}

void TestJsonReader::tellsWhatIsWrong()
{
    QFETCH(QByteArray, json);
    QBuffer buffer(&json);
    buffer.open(QIODevice::ReadOnly);
    RecordingListener listener;
    QTEST(read(buffer, listener), "problem");
}

void TestJsonReader::cutsLongStrings_data()
{
    QTest::addColumn<QByteArray>("letters");
    QTest::newRow("plain") << QByteArray("abcdefg");
    QTest::newRow("escapes") << QByteArray("a\\\\\\\"\\n");
    QTest::newRow("surrogates") << QByteArray("x\\ud83d\\ude00");
    QTest::newRow("bytes") << QByteArray("\xE2\x82\xAC");
}

void TestJsonReader::cutsLongStrings()
{
    QFETCH(QByteArray, letters);
    GeneratedDevice device("{\"a\":\"", letters, 12 * 1024 * 1024, "\",\n\"b\":\"c\"}");
    RecordingListener listener;
    QCOMPARE(read(device, listener), QString());
    QVERIFY2(listener.told.endsWith(QLatin1String("b=c@2 } ")), qPrintable(listener.told));
    QCOMPARE(listener.cut, 1);
    QVERIFY(listener.longest > 1024 * 1024);
    QVERIFY(listener.longest < JsonStream::longestString + 4);
    QVERIFY2(device.heapGrowth() < 20 * 1024 * 1024, QByteArray::number(device.heapGrowth()));
}

void TestJsonReader::endsInAStringThatCannotBeCut()
{
    GeneratedDevice device("{\"a\":\"", "\\u0041", 12 * 1024 * 1024, "\"}");
    RecordingListener listener;
    QCOMPARE(read(device, listener), QStringLiteral("line 1: a string is too long"));
    QVERIFY2(device.heapGrowth() < 20 * 1024 * 1024, QByteArray::number(device.heapGrowth()));
}

void TestJsonReader::bearsEndlessNesting_data()
{
    QTest::addColumn<QByteArray>("piece");
    QTest::newRow("arrays") << QByteArray("[");
    QTest::newRow("objects") << QByteArray("{\"a\":");
    QTest::newRow("both") << QByteArray("[{\"a\":");
}

void TestJsonReader::bearsEndlessNesting()
{
    QFETCH(QByteArray, piece);
    GeneratedDevice device("", piece, 10 * 1024 * 1024, "");
    RecordingListener listener;
    QCOMPARE(read(device, listener), QStringLiteral("line 1: it is nested too deep"));
    QVERIFY2(device.heapGrowth() < 1024 * 1024, QByteArray::number(device.heapGrowth()));
}

QTEST_GUILESS_MAIN(TestJsonReader)
#include "tst_jsonreader.moc"
