#include "tvctl/hashlists/csvreader.h"
#include "unit/tvctl/hashlists/listreading.h"

#include <QtTest>

class TestCsvParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsTheDelimiter_data();
    void tellsTheDelimiter();
    void findsColumns_data();
    void findsColumns();
    void readsQuotedCells();
    void goesOnBehindAnOpenQuote();
    void tellsAnOpenQuoteAtTheEnd();
    void keepsTheBeginningOfALongRow();
};

void TestCsvParser::tellsTheDelimiter_data()
{
    QTest::addColumn<QByteArray>("beginning");
    QTest::addColumn<char>("delimiter");
    QTest::newRow("nothing") << QByteArray() << ',';
    QTest::newRow("one column") << QByteArray("md5\nx") << ',';
    QTest::newRow("comma") << QByteArray("a,b\nc,d") << ',';
    QTest::newRow("semicolon") << QByteArray("a;b\n1,5;d\n2;e") << ';';
    QTest::newRow("tabulator") << QByteArray("a\tb\tc\n1\t2;\t3") << '\t';
    QTest::newRow("bar") << QByteArray("a|b\nc|d") << '|';
    QTest::newRow("in quotes") << QByteArray("\"a,b,c\";d\n\"e,f,g\";h") << ';';
    QTest::newRow("comments above") << QByteArray("# one, two, three\na;b\nc;d") << ';';
}

void TestCsvParser::tellsTheDelimiter()
{
    QFETCH(QByteArray, beginning);
    QTEST(csvDelimiterOf(beginning.toStdString()), "delimiter");
}

void TestCsvParser::findsColumns_data()
{
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<QString>("accepted");
    QTest::addColumn<QString>("rejected");
    const QByteArray a = md5Of('a');
    const QByteArray b = sha1Of('b');
    const QByteArray c = sha256Of('c');
    const QByteArray d = md5Of('d');
    const QString none;
    const auto text = [](const char* letters) {
        return QString::fromLatin1(letters);
    };

    QTest::newRow("nothing") << QByteArray() << none << none;
    QTest::newRow("by name") << "name,md5,size\nevil," + a + ",1\n" << text("2 md5 a") << none;
    QTest::newRow("several columns") << "MD5;SHA-1;SHA256\n" + a + ';' + b + ';' + c + "\n"
                                     << text("2 md5 a|2 sha1 b|2 sha256 c") << none;
    QTest::newRow("other columns are not looked at") << "comment,md5\n" + d + "," + a + "\n"
                                                     << text("2 md5 a") << none;
    QTest::newRow("hashes go before indicators") << "indicator,md5\n" + d + "," + a + "\n"
                                                 << text("2 md5 a") << none;
    QTest::newRow("import hash beside") << "md5,imphash\n" + a + ',' + d + '\n' << text("2 md5 a") << none;
    QTest::newRow("import hash only") << "name,imphash\nevil," + d + '\n'
                                      << none << text("2 no hash in this row");
    QTest::newRow("indicators with types")
        << "Indicator type,Indicator\nFileHash-MD5," + a + "\ndomain,evil.example\nimphash," + d + "\nSHA1," +
               b
        << text("2 md5 a|5 sha1 b")
        << text("3 no hash in this row|4 a number of another kind, as the type says");
    QTest::newRow("a value with text")
        << "value\nmd5:" + a + " sha1:" + b << text("2 md5 a|2 sha1 b") << none;
    QTest::newRow("cells without a value") << "md5,sha1\n" + a + ",n/a\n-," + b + "\n,\nnull,None\n"
                                           << text("2 md5 a|3 sha1 b") << text("5 no hash in this row");
    QTest::newRow("a wrong value") << "md5,sha1\n" + a + ",evil\n" + a + "0," + b << text("2 md5 a|3 sha1 b")
                                   << text("2 not a hash|3 33 hexadecimal digits are no MD5, SHA-1 or "
                                           "SHA-256");
    QTest::newRow("no header") << a + ",evil,1\n" + d + ",bad,2" << text("1 md5 a|2 md5 d") << none;
    QTest::newRow("no header, text with a hash in it") << a + ",seen with " + d + "\n"
                                                       << text("1 md5 a") << none;
    QTest::newRow("a header that tells nothing") << "Datei;Summe\nevil;" + a + "\n"
                                                 << text("2 md5 a") << text("1 no hash in this row");
    QTest::newRow("a title above") << "List of today,\nname,md5\nevil," + a << text("3 md5 a")
                                   << text("1 no hash in this row");
    QTest::newRow("a header in a comment")
        << "# A list of hashes\n# \"first_seen\",\"sha256_hash\",\"imphash\"\n\"today\", \"" + c + "\", \"" +
               d + "\"\n"
        << text("3 sha256 c") << none;
    QTest::newRow("a delimiter that is told")
        << "sep=;\nmd5;sha1\n" + a + ";" + b << text("3 md5 a|3 sha1 b") << none;
    QTest::newRow("tabulators") << "md5\tname\n" + a + "\tevil, or \"bad\"\n" << text("2 md5 a") << none;
    QTest::newRow("a short row") << "name,md5\nevil\nbad," + a << text("3 md5 a")
                                 << text("2 no hash in this row");
    QTest::newRow("upper case and 0x") << "sha256\n0x" + sha256Of('C') << text("2 sha256 c") << none;
}

void TestCsvParser::findsColumns()
{
    QFETCH(QByteArray, table);
    const Reading reading = readList(table, HashListFormat::Csv);
    QTEST(reading.accepted.join(QLatin1Char('|')), "accepted");
    QTEST(reading.rejected.join(QLatin1Char('|')), "rejected");
    QCOMPARE(reading.result.error, QString());
}

void TestCsvParser::readsQuotedCells()
{
    const QByteArray table = "name,md5\n" // 1
                             "\"evil, \"\"bad\"\"\n" +
                             md5Of('9') + "\nend\",\"" + md5Of('a') +
                             "\"\n" // 2
                             "\"\"\"\"," +
                             md5Of('b') +
                             "\r\n" // 5
                             "12\" disk," +
                             md5Of('c') +
                             "\n" // 6
                             " \"x\" , \"" +
                             md5Of('d') +
                             "\" \n" // 7
                             "\"x\"y," +
                             md5Of('e'); // 8
    const Reading reading = readList(table, HashListFormat::Csv);
    QCOMPARE(reading.accepted, lines("2 md5 a\n5 md5 b\n6 md5 c\n7 md5 d\n8 md5 e"));
    QCOMPARE(reading.rejected, QStringList());
}

void TestCsvParser::goesOnBehindAnOpenQuote()
{
    QByteArray table = "name,md5\n\"evil," + md5Of('a') + "\n";
    // Of 40 bytes each.
    for (int i = 0; i < 500; ++i) {
        table += "bad.exe," + md5Of('b').left(31) + "\n";
    }
    table += "bad.exe," + md5Of('c') + "\n";
    const Reading reading = readList(table, HashListFormat::Csv);
    QVERIFY(reading.rejected.startsWith(
        QStringLiteral("2 a quote is opened here and never closed; the lines behind it are lost")));
    QCOMPARE(reading.accepted, lines("503 md5 c"));
}

void TestCsvParser::tellsAnOpenQuoteAtTheEnd()
{
    const Reading reading =
        readList("md5,name\n" + md5Of('a') + ",x\n" + md5Of('b') + ",\"evil\n" + md5Of('c') + ",x\n",
                 HashListFormat::Csv);
    QCOMPARE(reading.accepted, lines("2 md5 a\n3 md5 b"));
    QCOMPARE(reading.rejected,
             lines("3 a quote is opened here and never closed; the lines behind it are lost"));
}

void TestCsvParser::keepsTheBeginningOfALongRow()
{
    const QByteArray table = "md5,name\n" + md5Of('a') + QByteArray(600, ',') + md5Of('b') + "\n" +
                             md5Of('c') + "," + QByteArray(100000, 'x') + "\n" + md5Of('d') + ",\n";
    const Reading reading = readList(table, HashListFormat::Csv);
    QCOMPARE(reading.accepted, lines("2 md5 a\n3 md5 c\n4 md5 d"));
    QCOMPARE(reading.rejected, lines("2 more than 512 columns; the others are left out"));
}

QTEST_GUILESS_MAIN(TestCsvParser)
#include "tst_csvparser.moc"
