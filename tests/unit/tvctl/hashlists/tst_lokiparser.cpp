#include "unit/tvctl/hashlists/listreading.h"

#include <QtTest>

class TestLokiParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takesWhatStandsBeforeTheSemicolon();
};

void TestLokiParser::takesWhatStandsBeforeTheSemicolon()
{
    const QByteArray list = "# HASH;COMMENT\n" // 1
                            "\n" +             // 2
                            md5Of('A') +
                            ";a bad thing; see x\n" +                    // 3
                            sha1Of('b') + " ; seen with " + md5Of('9') + //
                            "\n  " + sha256Of('c') + ";\n" +             // 5
                            md5Of('d') + "\n" +                          // 6
                            ";no hash\n"                                 // 7
                            "evil.exe;no hash\n" +                       // 8
                            QByteArray(128, 'e') +
                            ";too long\n" +             // 9
                            md5Of('f') + " comment\n" + // 10
                            sha256Of('0') + ";" + QByteArray(100000, 'x') + "\n" + md5Of('1') + ";last";
    const Reading reading = readList(list, HashListFormat::Loki);
    QCOMPARE(reading.accepted, lines("3 md5 a\n4 sha1 b\n5 sha256 c\n6 md5 d\n11 sha256 0\n12 md5 1"));
    QCOMPARE(reading.rejected, lines("7 the hash is missing\n8 not a hash\n9 SHA-512 is not supported\n"
                                     "10 not a hash"));
    QCOMPARE(reading.result.error, QString());
}

QTEST_GUILESS_MAIN(TestLokiParser)
#include "tst_lokiparser.moc"
