#include "unit/tvctl/hashlists/listreading.h"

#include <QtTest>

class TestPlainParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takesHashesOutOfText_data();
    void takesHashesOutOfText();
    void keepsTheDigits();
    void countsLines();
};

void TestPlainParser::takesHashesOutOfText_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("accepted");
    QTest::addColumn<QString>("rejected");
    const QByteArray a = md5Of('a');
    const QByteArray b = sha1Of('b');
    const QByteArray c = sha256Of('c');
    const QString none;
    const auto text = [](const char* letters) {
        return QString::fromLatin1(letters);
    };
    const QString noHash = text("1 no hash in this line");

    QTest::newRow("nothing") << QByteArray() << none << none;
    QTest::newRow("blank") << QByteArray(" \t") << none << none;
    QTest::newRow("alone") << a << text("1 md5 a") << none;
    QTest::newRow("upper case") << sha1Of('B') << text("1 sha1 b") << none;
    QTest::newRow("several in a line")
        << a + ' ' + b + ',' + c << text("1 md5 a|1 sha1 b|1 sha256 c") << none;
    QTest::newRow("names before, text behind") << "md5: " + a + " evil.exe" << text("1 md5 a") << none;
    QTest::newRow("sha256sum") << c + "  ./a b.exe" << text("1 sha256 c") << none;
    QTest::newRow("sha256sum of a binary") << c + " *evil.exe" << text("1 sha256 c") << none;
    QTest::newRow("BSD style") << "SHA256 (evil.exe) = " + c << text("1 sha256 c") << none;
    QTest::newRow("defanged text around")
        << "hxxp://evil[.]example/" + a + "/x[.]exe (" + b + ')' << text("1 md5 a|1 sha1 b") << none;
    QTest::newRow("quotes of typographers") << "\xE2\x80\x9C" + a + "\xE2\x80\x9D" << text("1 md5 a") << none;
    QTest::newRow("in quotes") << '"' + a + '"' << text("1 md5 a") << none;
    QTest::newRow("in a file name") << "virus_" + a + "_1.exe" << text("1 md5 a") << none;
    QTest::newRow("0x before") << "0x" + a << text("1 md5 a") << none;

    QTest::newRow("comment #") << "# " + a << none << none;
    QTest::newRow("comment ;") << ";" + a << none << none;
    QTest::newRow("comment //") << "  // " + a << none << none;
    QTest::newRow("comment behind #") << a + " # was " + b << text("1 md5 a") << none;
    QTest::newRow("comment behind //") << a + "\t// was " + b << text("1 md5 a") << none;
    QTest::newRow("address is no comment") << "http://x/ " + a << text("1 md5 a") << none;
    QTest::newRow("# without a blank") << "x#" + a << text("1 md5 a") << none;
    QTest::newRow("; between hashes") << a + " ; " + b << text("1 md5 a|1 sha1 b") << none;
    QTest::newRow("a lone slash") << "/ " + a << text("1 md5 a") << none;

    QTest::newRow("no hash") << QByteArray("evil.exe") << none << noHash;
    QTest::newRow("SHA-512") << QByteArray(128, 'd') << none << text("1 SHA-512 is not supported");
    QTest::newRow("SHA-384") << QByteArray(96, 'd') << none << text("1 SHA-384 is not supported");
    QTest::newRow("SHA-224") << QByteArray(56, 'd') << none << text("1 SHA-224 is not supported");
    QTest::newRow("one digit short") << QByteArray(31, 'd') << none
                                     << text("1 31 hexadecimal digits are no MD5, SHA-1 or SHA-256");
    QTest::newRow("one digit more") << QByteArray(65, 'd') << none
                                    << text("1 65 hexadecimal digits are no MD5, SHA-1 or SHA-256");
    QTest::newRow("endless digits") << QByteArray(5000, 'd') << none
                                    << text("1 more hexadecimal digits than any hash has");
    QTest::newRow("endless letters") << QByteArray(5000, 'x') << none << noHash;
    QTest::newRow("a letter before") << 'x' + a << none << noHash;
    QTest::newRow("a letter behind") << a + 'z' << none << noHash;
    QTest::newRow("UUID") << QByteArray("12345678-1234-1234-1234-1234567890ab") << none << noHash;
    QTest::newRow("good and bad") << QByteArray(128, 'd') + ' ' + a << text("1 md5 a")
                                  << text("1 SHA-512 is not supported");

    const QString otherKind = text("1 a number of another kind, as the word before it says");
    QTest::newRow("import hash") << "imphash: " + a << none << otherKind;
    QTest::newRow("JA3 hash") << "ja3_hash=" + a << none << otherKind;
    QTest::newRow("import hash, then a hash")
        << "imphash " + a + " sha1 " + b << text("1 sha1 b") << otherKind;
    QTest::newRow("the word of the line before") << "imphash\n" + a << text("2 md5 a") << noHash;
}

void TestPlainParser::takesHashesOutOfText()
{
    QFETCH(QByteArray, text);
    const Reading reading = readList(text, HashListFormat::Plain);
    QTEST(reading.accepted.join(QLatin1Char('|')), "accepted");
    QTEST(reading.rejected.join(QLatin1Char('|')), "rejected");
    QCOMPARE(reading.result.error, QString());
}

void TestPlainParser::keepsTheDigits()
{
    const Reading reading = readList("0123456789ABCDEFfedcba9876543210", HashListFormat::Plain);
    QCOMPARE(reading.accepted, QStringList(QStringLiteral("1 md5 0123456789abcdeffedcba9876543210")));
}

void TestPlainParser::countsLines()
{
    const QByteArray list =
        "# list\r\n\r\n" + md5Of('a') + "\r\nevil\r\n// " + md5Of('b') + "\r\n" + md5Of('c');
    for (const char* lineEnd : {"\r\n", "\n", "\r"}) {
        QByteArray written = list;
        const Reading reading = readList(written.replace("\r\n", lineEnd), HashListFormat::Plain);
        QCOMPARE(reading.accepted, lines("3 md5 a\n6 md5 c"));
        QCOMPARE(reading.rejected, lines("4 no hash in this line"));
    }
}

QTEST_GUILESS_MAIN(TestPlainParser)
#include "tst_plainparser.moc"
