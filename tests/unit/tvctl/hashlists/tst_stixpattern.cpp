#include "tvctl/hashlists/stixpattern.h"
#include "unit/tvctl/hashlists/listreading.h"

#include <QtTest>

class TestStixPattern : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsHashes_data();
    void findsHashes();
    void bearsAnyBeginning();
    void takesNoTimeForLongWords_data();
    void takesNoTimeForLongWords();
};

void TestStixPattern::findsHashes_data()
{
    QTest::addColumn<QByteArray>("pattern");
    QTest::addColumn<QString>("accepted");
    QTest::addColumn<QString>("rejected");
    // In the patterns, A, B and C stand for hashes.
    const auto row = [](const char* name, QByteArray pattern, const char* accepted,
                        const char* rejected = "") {
        pattern.replace("#A", md5Of('a')).replace("#B", sha1Of('b')).replace("#C", sha256Of('c'));
        QTest::newRow(name) << pattern << QString::fromLatin1(accepted) << QString::fromLatin1(rejected);
    };
    const char* const negated = "1 the comparison is negated";

    row("nothing", "", "");
    row("MD5", "[file:hashes.MD5 = '#A']", "1 md5 a");
    row("MD5 in quotes", "[file:hashes.'MD5' = '#A']", "1 md5 a");
    row("lower case", "[file:hashes.md5='#A']", "1 md5 a");
    row("SHA-1", "[file:hashes.'SHA-1' = '#B']", "1 sha1 b");
    row("SHA-1 in double quotes", "[file:hashes.\"SHA-1\" = '#B']", "1 sha1 b");
    row("SHA-256", "[file:hashes.'SHA-256' = '#C']", "1 sha256 c");
    row("SHA256", "[file:hashes.SHA256 = '#C']", "1 sha256 c");
    row("sha_256", "[file:hashes.sha_256 = '#C']", "1 sha256 c");
    row("a hyphen without quotes", "[file:hashes.SHA-256 = '#C']", "1 sha256 c");
    row("double quotes around the value", "[file:hashes.MD5 = \"#A\"]", "1 md5 a");
    row("two equal signs", "[file:hashes.MD5 == '#A']", "1 md5 a");
    row("blanks", "[ file:hashes.MD5\n=\t'#A' ]", "1 md5 a");
    row("OR", "[file:hashes.MD5 = '#A' OR file:hashes.'SHA-1' = '#B']", "1 md5 a|1 sha1 b");
    row("AND with something else", "[file:hashes.MD5 = '#A' AND file:size = 3 AND file:name = 'x.exe']",
        "1 md5 a");
    row("IN", "[file:hashes.'SHA-256' IN ('#C', '#C')]", "1 sha256 c|1 sha256 c");
    row("IN, then more", "[(file:hashes.MD5 in ('#A')) or file:hashes.'SHA-1' = '#B']", "1 md5 a|1 sha1 b");
    row("several observations",
        "([file:hashes.MD5 = '#A'] FOLLOWEDBY [file:hashes.'SHA-1' = '#B']) WITHIN 300 SECONDS OR "
        "[file:hashes.'SHA-256' = '#C'] START t'2024-01-01T00:00:00Z' STOP t'2024-02-01T00:00:00Z'",
        "1 md5 a|1 sha1 b|1 sha256 c");
    row("no blanks between observations", "[file:hashes.MD5='#A']AND[file:hashes.'SHA-1'='#B']",
        "1 md5 a|1 sha1 b");
    row("a value that looks like a pattern", "[file:name = 'file:hashes.MD5 = #A' OR file:name = '\\'#A\\'']",
        "");
    row("other objects", "[domain-name:value = '#A' OR ipv4-addr:value = '192.0.2.1']", "");

    row("!=", "[file:hashes.MD5 != '#A']", "", negated);
    row("<>", "[file:hashes.MD5 <> '#A']", "", negated);
    row("NOT =", "[file:hashes.MD5 NOT = '#A' OR file:hashes.'SHA-1' = '#B']", "1 sha1 b", negated);
    row("NOT IN", "[file:hashes.MD5 NOT IN ('#A')]", "", negated);
    row("NOT before", "[NOT file:hashes.MD5 = '#A' AND file:hashes.'SHA-1' = '#B']", "1 sha1 b", negated);
    row("NOT before a group",
        "[NOT (file:hashes.MD5 = '#A' OR (file:hashes.'SHA-1' = '#B')) OR "
        "file:hashes.'SHA-256' = '#C']",
        "1 sha256 c", "1 the comparison is negated|1 the comparison is negated");
    row("LIKE", "[file:hashes.MD5 LIKE '#A']", "", "1 the comparison is neither = nor IN");
    row("MATCHES", "[file:hashes.MD5 MATCHES '#A']", "", "1 the comparison is neither = nor IN");
    row("SHA-512", "[file:hashes.'SHA-512' = '#A']", "", "1 sha-512 is not supported");
    row("SSDEEP", "[file:hashes.SSDEEP = '3:a:b' OR file:hashes.MD5 = '#A']", "1 md5 a",
        "1 ssdeep is not supported");
    row("of a section",
        "[file:extensions.'windows-pebinary-ext'.sections[*].hashes.MD5 = '#A' OR file:hashes.'SHA-1' = "
        "'#B']",
        "1 sha1 b", "1 the hash of something else than a file");
    row("of a certificate", "[x509-certificate:hashes.MD5 = '#A']", "",
        "1 the hash of something else than a file");
    row("of a process's image", "[process:image_ref.hashes.MD5 = '#A']", "",
        "1 the hash of something else than a file");
    row("not a hash", "[file:hashes.MD5 = 'evil']", "", "1 not a hash");
    row("too short", "[file:hashes.MD5 = 'aa']", "", "1 2 hexadecimal digits are no MD5, SHA-1 or SHA-256");
    row("brackets too many", "]])) [file:hashes.MD5 = '#A'", "1 md5 a");
}

void TestStixPattern::findsHashes()
{
    QFETCH(QByteArray, pattern);
    RecordingSink sink;
    readStixPattern(pattern.toStdString(), 1, sink);
    QTEST(sink.accepted.join(QLatin1Char('|')), "accepted");
    QTEST(sink.rejected.join(QLatin1Char('|')), "rejected");
}

void TestStixPattern::bearsAnyBeginning()
{
    const std::string pattern = "[NOT (file:hashes.'SHA-256' NOT IN ('" + sha256Of('c').toStdString() +
                                "', '\\'')) AND file:extensions.'x'.sections[*].hashes.\"MD5\" != 'x']";
    for (std::size_t size = 0; size <= pattern.size(); ++size) {
        RecordingSink sink;
        readStixPattern(std::string_view(pattern).substr(0, size), 1, sink);
        // What the quote of the value has not ended yet may be taken for shorter; never for another hash.
        QVERIFY(sink.accepted.size() <= 1);
    }
}

void TestStixPattern::takesNoTimeForLongWords_data()
{
    QTest::addColumn<QByteArray>("pattern");
    const QByteArray word(2 * 1024 * 1024, 'x');
    QTest::newRow("a word") << "[" + word + word + "]";
    QTest::newRow("a path") << "[x:" + word + word + " = 'x']";
    QTest::newRow("a path with indices") << "[x:" + QByteArray(word).fill('[') + word + "]]] = 'x']";
    QTest::newRow("many values of a path")
        << "[x:" + word + " IN (" + QByteArray("'',").repeated(600000) + ")]";
    QTest::newRow("a value") << "[file:name = '" + word + word + "']";
    QTest::newRow("a value that does not end") << "[file:name = '" + word + word;
    QTest::newRow("groups") << QByteArray(4 * 1024 * 1024, '(');
}

void TestStixPattern::takesNoTimeForLongWords()
{
    QFETCH(QByteArray, pattern);
    // Looking at all of a word for each of its letters would take hours, far more than a test may.
    RecordingSink sink;
    readStixPattern((pattern + "]] OR [file:hashes.MD5 = '" + md5Of('a') + "']").toStdString(), 1, sink);
    QVERIFY(sink.accepted.size() <= 1);
    QCOMPARE(sink.rejected, QStringList());
}

QTEST_GUILESS_MAIN(TestStixPattern)
#include "tst_stixpattern.moc"
