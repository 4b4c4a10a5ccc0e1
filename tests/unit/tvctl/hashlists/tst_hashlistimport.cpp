#include "tvctl/hashlists/hashcollector.h"
#include "tvctl/hashlists/hashlistimport.h"
#include "unit/tvctl/hashlists/generateddevice.h"
#include "unit/tvctl/hashlists/listreading.h"

#include <QBuffer>
#include <QtTest>

namespace
{
constexpr qint64 mebibyte = 1024 * 1024;

HashListOptions optionsFor(HashListFormat format)
{
    HashListOptions options;
    options.format = format;
    return options;
}

/// A sink that only counts, and so keeps nothing.
class CountingSink : public HashListSink
{
public:
    void accept(const HashIndicator&) override
    {
        ++accepted;
    }
    void reject(qint64, const QString&) override
    {
        ++rejected;
    }

    qint64 accepted = 0;
    qint64 rejected = 0;
};
} // namespace

class TestHashListImport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsWhatItDetects();
    void bearsEachBreakingOff_data();
    void bearsEachBreakingOff();
    void refusesBinaryFiles_data();
    void refusesBinaryFiles();
    void needsConstantMemory_data();
    void needsConstantMemory();
    void canBeCancelled();
    void collectsAMillionHashes();
};

void TestHashListImport::readsWhatItDetects()
{
    const Reading csv = readList("name;sha1\nx;" + sha1Of('a'), HashListOptions());
    QVERIFY(csv.result.format == HashListFormat::Csv);
    QCOMPARE(csv.accepted, lines("2 sha1 a"));

    const Reading none = readList("<html></html>", HashListOptions());
    QVERIFY(!none.result.format);
    QCOMPARE(none.result.error, QStringLiteral("it is XML or HTML, but no OpenIOC"));
    QVERIFY(none.accepted.isEmpty() && none.rejected.isEmpty());

    // What is told goes before what it looks like.
    const Reading told = readList("<html>" + md5Of('a') + "</html>", HashListFormat::Plain);
    QCOMPARE(told.accepted, lines("1 md5 a"));
}

void TestHashListImport::bearsEachBreakingOff_data()
{
    QTest::addColumn<QByteArray>("list");
    QTest::addColumn<int>("format");
    QTest::addColumn<bool>("isOneDocument");
    const QByteArray a = md5Of('a');
    const QByteArray b = sha256Of('b');

    QTest::newRow("misp") << "{\"response\":[{\"Event\":{\"Attribute\":[{\"type\":\"md5\",\"value\":\"" + a +
                                 "\",\"to_ids\":true},{\"type\":\"filename|sha256\",\"value\":\"\\u0041\\n|" +
                                 b + "\",\"to_ids\":true}]}}]}"
                          << int(HashListFormat::Misp) << true;
    QTest::newRow("stix") << "{\"type\":\"bundle\",\"objects\":[{\"type\":\"file\",\"hashes\":{\"MD5\":\"" +
                                 a + "\"}},{\"type\":\"indicator\",\"pattern\":\"[file:hashes.'SHA-256' = '" +
                                 b + "']\",\"revoked\":false}]}"
                          << int(HashListFormat::Stix) << true;
    QTest::newRow("openioc")
        << "<?xml version=\"1.0\"?><ioc><Indicator><IndicatorItem condition=\"is\"><Context "
           "search=\"FileItem/Md5sum\"/><Content type=\"md5\">" +
               a +
               "</Content></IndicatorItem><IndicatorItem condition=\"is\"><Context "
               "search=\"FileItem/Sha256sum\"/><Content><![CDATA[" +
               b + "]]></Content></IndicatorItem></Indicator></ioc>"
        << int(HashListFormat::OpenIoc) << true;
    QTest::newRow("plain") << "x " + a + "\n# y\n" + b << int(HashListFormat::Plain) << false;
    QTest::newRow("csv") << "\"name\",\"md5\",sha256\n\"x \"\"y\"\"\n\",\"" + a + "\"," + b
                         << int(HashListFormat::Csv) << false;
    QTest::newRow("loki") << a + ";x\n" + b + ";y" << int(HashListFormat::Loki) << false;
    QTest::newRow("hdb") << a + ":1:x\n" + b + ":*:y" << int(HashListFormat::Hdb) << false;
    QTest::newRow("cdb") << a + ":x\n\"" + b + "\":y" << int(HashListFormat::Cdb) << false;
}

void TestHashListImport::bearsEachBreakingOff()
{
    QFETCH(QByteArray, list);
    QFETCH(int, format);
    QFETCH(bool, isOneDocument);
    QStringList whole = readList(list, static_cast<HashListFormat>(format)).accepted;
    QCOMPARE(whole.size(), 2);
    for (int size = 0; size < list.size(); ++size) {
        const Reading reading = readList(list.left(size), static_cast<HashListFormat>(format));
        const QByteArray place = QByteArray::number(size);
        QVERIFY2(!isOneDocument || !reading.result.error.isEmpty(), place);
        // What was found before the end is right, and 40 digits of 64 would be the only other hash.
        QVERIFY2(reading.accepted.size() <= 2, place);
        for (int i = 0; i < reading.accepted.size(); ++i) {
            const bool isCutShort = !isOneDocument && reading.accepted.at(i).endsWith(QLatin1String(" b"));
            QVERIFY2(isCutShort || reading.accepted.at(i) == whole.at(i), place);
        }
        // Also when the format has to be told from the rest.
        readList(list.left(size));
    }
}

void TestHashListImport::refusesBinaryFiles_data()
{
    QTest::addColumn<int>("format");
    for (const QString& name : hashListFormatNames()) {
        QTest::newRow(qPrintable(name)) << int(*hashListFormatOf(name));
    }
    QTest::newRow("told by the content") << -1;
}

void TestHashListImport::refusesBinaryFiles()
{
    QFETCH(int, format);
    QByteArray bytes;
    quint32 state = 1;
    for (int i = 0; i < 300000; ++i) {
        state = state * 1664525 + 1013904223;
        bytes.append(static_cast<char>(state >> 24));
    }
    const auto options = format < 0 ? HashListOptions() : optionsFor(static_cast<HashListFormat>(format));
    const Reading reading = readList("\x7F"
                                     "ELF\x02\x01\x01" +
                                         bytes,
                                     options);
    QCOMPARE(reading.result.error, QStringLiteral("it holds zero bytes, so it is no text"));
    QVERIFY(reading.accepted.isEmpty());
}

void TestHashListImport::needsConstantMemory_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<QByteArray>("beginning");
    QTest::addColumn<QByteArray>("middle");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QByteArray>("end");
    QTest::addColumn<qint64>("accepted");
    QTest::addColumn<qint64>("memory");
    const QByteArray a = md5Of('a');
    const qint64 size = 16 * mebibyte;
    const qint64 little = mebibyte;
    // For the longest string, and for its copy while it grows.
    const qint64 string = 20 * mebibyte;

    QTest::newRow("plain, one line of 100 MB") << int(HashListFormat::Plain) << a << QByteArray("x")
                                               << 100 * mebibyte << " " + a << qint64(1) << little;
    QTest::newRow("plain, one line of hashes")
        << int(HashListFormat::Plain) << a << " " + a << size << QByteArray() << size / 33 + 1 << little;
    QTest::newRow("plain, one comment") << int(HashListFormat::Plain) << a + "\n#" << QByteArray("x ") << size
                                        << "\n" + a << qint64(2) << little;
    QTest::newRow("plain, blank lines")
        << int(HashListFormat::Plain) << a << QByteArray("\n") << size << a << qint64(2) << little;
    QTest::newRow("csv, one cell") << int(HashListFormat::Csv) << "md5,x\n" + a + "," << QByteArray("x")
                                   << size << "\n" + a + "," << qint64(2) << little;
    QTest::newRow("csv, one quoted cell")
        << int(HashListFormat::Csv) << "md5,x\n" + a + ",\"" << QByteArray("x\"\"") << size
        << "\"\n" + a + "," << qint64(2) << little;
    QTest::newRow("csv, one row") << int(HashListFormat::Csv) << "md5,x\n" + a << QByteArray(",") << size
                                  << "\n" + a + "," << qint64(2) << little;
    QTest::newRow("csv, one row of long cells")
        << int(HashListFormat::Csv) << "md5,x\n" + a << "," + QByteArray(20000, 'x') << size << "\n" + a + ","
        << qint64(2) << 20 * mebibyte;
    QTest::newRow("loki") << int(HashListFormat::Loki) << a + ";" << QByteArray("x") << size << "\n" + a
                          << qint64(2) << little;
    QTest::newRow("hdb") << int(HashListFormat::Hdb) << a + ":1:" << QByteArray("x") << size
                         << "\n" + a + ":1:x" << qint64(2) << little;
    QTest::newRow("cdb") << int(HashListFormat::Cdb) << a + ":" << QByteArray("x") << size << "\n" + a
                         << qint64(2) << little;
    QTest::newRow("misp, many attributes")
        << int(HashListFormat::Misp) << QByteArray("[{}") << ",{\"type\":\"md5\",\"value\":\"" + a + "\"}"
        << size << QByteArray("]") << size / 58 << little;
    QTest::newRow("misp, one value") << int(HashListFormat::Misp)
                                     << QByteArray("[{\"type\":\"md5\",\"value\":\"") << QByteArray("x")
                                     << size << "\"},{\"type\":\"md5\",\"value\":\"" + a + "\"}]" << qint64(1)
                                     << string;
    QTest::newRow("misp, one key") << int(HashListFormat::Misp) << QByteArray("[{\"") << QByteArray("x")
                                   << size << "\":1},{\"type\":\"md5\",\"value\":\"" + a + "\"}]" << qint64(1)
                                   << string;
    QTest::newRow("stix, many files") << int(HashListFormat::Stix) << QByteArray("[{}")
                                      << ",{\"type\":\"file\",\"hashes\":{\"MD5\":\"" + a + "\"}}" << size
                                      << QByteArray("]") << size / 68 << little;
    QTest::newRow("stix, one file of many hashes")
        << int(HashListFormat::Stix) << "{\"type\":\"file\",\"hashes\":{\"MD5\":\"" + a + "\""
        << ",\"MD5\":\"" + a + "\"" << size << QByteArray("}}") << qint64(64) << little;
}

void TestHashListImport::needsConstantMemory()
{
    QFETCH(int, format);
    QFETCH(QByteArray, beginning);
    QFETCH(QByteArray, middle);
    QFETCH(qint64, size);
    QFETCH(QByteArray, end);
    QFETCH(qint64, memory);
    GeneratedDevice device(beginning, middle, size, end);
    CountingSink sink;
    const HashListResult result =
        readHashList(device, QString(), optionsFor(static_cast<HashListFormat>(format)), sink);
    QCOMPARE(result.error, QString());
    QTEST(sink.accepted, "accepted");
    QVERIFY2(device.heapGrowth() < memory, QByteArray::number(device.heapGrowth()));
}

void TestHashListImport::canBeCancelled()
{
    GeneratedDevice device("{\"a\":[1", ",1", mebibyte, "]}");
    CountingSink sink;
    const HashListResult result = readHashList(device, QString(), optionsFor(HashListFormat::Misp), sink,
                                               [](qint64 done, qint64) { return done < mebibyte / 2; });
    QVERIFY(result.isCancelled);
    QCOMPARE(result.error, QString());
}

void TestHashListImport::collectsAMillionHashes()
{
    constexpr int count = 1000000;
    QByteArray list;
    list.reserve(count * 65);
    for (int i = 0; i < count; ++i) {
        // Every tenth stands there twice.
        const int number = i % 10 == 9 ? i - 1 : i;
        list.append(QByteArray::number(number).rightJustified(64, 'a')).append('\n');
    }
    qint64 handedOn = 0;
    HashCollector collector([&handedOn](IOCScanConfig::HASH_TYPE type, const QStringList& hashes) {
        handedOn += type == IOCScanConfig::SHA256 ? hashes.size() : 0;
        return true;
    });
    // As a pipe, so that the heap is watched.
    GeneratedDevice device("", list, list.size(), "");
    const HashListResult result = readHashList(device, QString(), HashListOptions(), collector);
    QVERIFY(collector.finish());
    QVERIFY(result.format == HashListFormat::Plain);
    QCOMPARE(handedOn, 900000);
    QCOMPARE(collector.counts().accepted, (std::array<qint64, 3>{0, 0, 900000}));
    QCOMPARE(collector.counts().duplicates, 100000);
    QCOMPARE(collector.counts().rejected, 0);
    QVERIFY2(device.heapGrowth() < 100 * mebibyte, QByteArray::number(device.heapGrowth()));
}

QTEST_GUILESS_MAIN(TestHashListImport)
#include "tst_hashlistimport.moc"
