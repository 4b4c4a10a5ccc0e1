#include "unit/tvctl/hashlists/listreading.h"

#include <QtTest>

class TestCdbParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsKeys();
    void refusesSignaturesOfContainers();
};

void TestCdbParser::readsKeys()
{
    const QByteArray list = md5Of('a') + ":\n" +              // 1
                            sha1Of('B') + ":a:b:c:d\n" +      // 2
                            sha256Of('c') + "\n" +            // 3
                            '"' + md5Of('d') + "\":\"x\"\n" + // 4
                            "# comment\n"                     // 5
                            "192.0.2.1:address\n"             // 6
                            ":text\n" +                       // 7
                            md5Of('e') +
                            "1:\n" + md5Of('f') + ":last";
    const Reading reading = readList(list, HashListFormat::Cdb);
    QCOMPARE(reading.accepted, lines("1 md5 a\n2 sha1 b\n3 sha256 c\n4 md5 d\n9 md5 f"));
    QCOMPARE(reading.rejected, lines("6 not a hash\n7 the hash is missing\n"
                                     "8 33 hexadecimal digits are no MD5, SHA-1 or SHA-256"));
}

void TestCdbParser::refusesSignaturesOfContainers()
{
    // The second one has a name that is a hash, which says nothing about any file.
    const QByteArray list = "Bad.Archive:CL_TYPE_ZIP:1337:Courrt.{1,15}\\.scr$:220-221:2008:0:*:*:*\n" +
                            md5Of('a') + ":*:*:x\\.exe$:1:2:0:1:3829abcd:*:73\n" + md5Of('b') +
                            ":1:2:3:4:5:6:7:8:9";
    const Reading reading = readList(list, HashListFormat::Cdb);
    QCOMPARE(reading.accepted, lines("3 md5 b"));
    QCOMPARE(reading.rejected, lines("1 a signature of an archive's member, which holds no hash of a file\n"
                                     "2 a signature of an archive's member, which holds no hash of a file"));
}

QTEST_GUILESS_MAIN(TestCdbParser)
#include "tst_cdbparser.moc"
