#include "unit/tvctl/hashlists/listreading.h"

#include <QtTest>

class TestHdbParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsHashSignatures();
};

void TestHdbParser::readsHashSignatures()
{
    const QByteArray list = md5Of('a') + ":68:Bad.Thing-1\n" +         // 1
                            sha1Of('B') + ":*:Bad.Thing-2:73\n" +      // 2
                            sha256Of('c') + ":0:Bad.Thing-3:73:99\n" + // 3
                            "# comment\n" +                            // 4
                            md5Of('d') + ":68\n" +                     // 5
                            md5Of('d') + "\n" +                        // 6
                            md5Of('d') + ":big:Bad\n" +                // 7
                            md5Of('d') + "::Bad\n" +                   // 8
                            md5Of('d') + ":68:\n" +                    // 9
                            "68:" + md5Of('d') + ":Bad.Section\n" +    // 10
                            QByteArray(31, 'd') + ":68:Bad\n" +        // 11
                            "evil:68:Bad\n" +                          // 12
                            md5Of('e') + ":1:" + QByteArray(100000, 'x');
    const Reading reading = readList(list, HashListFormat::Hdb);
    QCOMPARE(reading.accepted, lines("1 md5 a\n2 sha1 b\n3 sha256 c\n13 md5 e"));
    QCOMPARE(reading.rejected, lines("5 not of the form hash:size:name\n"
                                     "6 not of the form hash:size:name\n"
                                     "7 the size is neither a number nor *\n"
                                     "8 the size is neither a number nor *\n"
                                     "9 the name is missing\n"
                                     "10 the hash of a section, not of a file\n"
                                     "11 31 hexadecimal digits are no MD5, SHA-1 or SHA-256\n"
                                     "12 not a hash"));
}

QTEST_GUILESS_MAIN(TestHdbParser)
#include "tst_hdbparser.moc"
