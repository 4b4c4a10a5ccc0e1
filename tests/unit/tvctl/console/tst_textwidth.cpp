#include "tvctl/console/textwidth.h"

#include <QTest>

#include <clocale>

class TestTextWidth : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void measures_data();
    void measures();
    void cuts_data();
    void cuts();
    void cutsWhatFits();
};

void TestTextWidth::measures_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("width");
    const auto row = [](const char* name, const char* utf8, int width) {
        QTest::newRow(name) << QString::fromUtf8(utf8) << width;
    };
    row("empty", "", 0);
    row("ASCII", "a b", 3);
    row("umlaut", "\xC3\xA4", 1);
    row("a mark above a letter", "a\xCC\x88", 1);
    row("Chinese", "\xE4\xB8\xAD\xE6\x96\x87", 4);
    row("a picture in two units", "\xF0\x9F\x98\x80", 2);
    row("a letter in two units", "\xF0\x90\x8D\x88", 1);
    row("a colour", "\033[1;31mab\033[0m", 2);
    row("only a colour", "\033[0m", 0);
    QTest::newRow("half a pair") << QString(QChar(0xD83D)) << 1;
}

void TestTextWidth::measures()
{
    QFETCH(QString, text);
    QFETCH(int, width);
    QCOMPARE(TextWidth::of(text), width);
    // Whatever locale the tool is called in, which it leaves as it is.
    const QByteArray before = std::setlocale(LC_ALL, nullptr);
    QVERIFY(std::setlocale(LC_ALL, "C") != nullptr);
    QCOMPARE(TextWidth::of(text), width);
    QCOMPARE(QByteArray(std::setlocale(LC_ALL, nullptr)), QByteArray("C"));
    std::setlocale(LC_ALL, before.constData());
}

void TestTextWidth::cuts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("columns");
    QTest::addColumn<QString>("left");
    QTest::addColumn<QString>("right");
    const auto row = [](const char* name, const char* text, int columns, const char* left,
                        const char* right) {
        QTest::newRow(name) << QString::fromUtf8(text) << columns << QString::fromUtf8(left)
                            << QString::fromUtf8(right);
    };
    row("all", "abc", 3, "abc", "abc");
    row("more than all", "abc", 9, "abc", "abc");
    row("a part", "abcd", 2, "ab", "cd");
    row("nothing", "abc", 0, "", "");
    row("less than nothing", "abc", -1, "", "");
    row("half a letter", "\xE4\xB8\xAD\xE6\x96\x87", 3, "\xE4\xB8\xAD", "\xE6\x96\x87");
    row("a picture", "a\xF0\x9F\x98\x80z", 2, "a", "z");
    row("a mark stays with its letter", "a\xCC\x88z\xCC\x88", 1, "a\xCC\x88", "z\xCC\x88");
}

void TestTextWidth::cuts()
{
    QFETCH(QString, text);
    QFETCH(int, columns);
    QTEST(TextWidth::left(text, columns), "left");
    QTEST(TextWidth::right(text, columns), "right");
}

void TestTextWidth::cutsWhatFits()
{
    const QString text = QString::fromUtf8("a\xCC\x88\xE4\xB8\xAD\xF0\x9F\x98\x80 b\xC3\xA4\xE6\x96\x87z");
    for (int columns = 0; columns < 20; ++columns) {
        const QString left = TextWidth::left(text, columns);
        const QString right = TextWidth::right(text, columns);
        QVERIFY(text.startsWith(left) && text.endsWith(right));
        QVERIFY(TextWidth::of(left) <= columns && TextWidth::of(right) <= columns);
        // A letter is at most two columns wide.
        QVERIFY(TextWidth::of(left) >= qMin(columns, TextWidth::of(text)) - 1);
        QVERIFY(TextWidth::of(right) >= qMin(columns, TextWidth::of(text)) - 1);
    }
}

QTEST_GUILESS_MAIN(TestTextWidth)
#include "tst_textwidth.moc"
