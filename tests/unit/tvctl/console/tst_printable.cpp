#include "tvctl/console/printable.h"

#include "common/filename.h"

#include <QTest>

class TestPrintable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shows_data();
    void shows();
    void leavesNoControlCharacter();
};

void TestPrintable::shows_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("shown");
    const auto row = [](const char* name, const QByteArray& bytes, const char* shown) {
        QTest::newRow(name) << bytes << QString::fromUtf8(shown);
    };
    row("empty", "", "");
    row("plain", "/home/u/a b.exe", "/home/u/a b.exe");
    row("letters", "\xC3\xA4\xE4\xB8\xAD", "\xC3\xA4\xE4\xB8\xAD");
    row("a picture", "\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80");
    row("an escape sequence", "\033[2Jx", "\\x1b[2Jx");
    row("line ends", "a\r\nb", "a\\x0d\\x0ab");
    row("tabulator, bell, delete", "\t\a\x7F", "\\x09\\x07\\x7f");
    row("a control character beyond ASCII",
        "\xC2\x9B"
        "31m",
        "\\x9b31m");
    row("no UTF-8", "caf\xE9", "caf\\xe9");
    row("no UTF-8 in front of a pair", "\xE9\xF0\x9F\x98\x80", "\\xe9\xF0\x9F\x98\x80");
    row("turns the direction",
        "a\xE2\x80\xAE"
        "exe.txt",
        "a\\u202eexe.txt");
    row("takes no room",
        "a\xE2\x80\x8B"
        "b\xEF\xBB\xBF",
        "a\\u200bb\\ufeff");
    row("hidden beyond the first plane", "a\xF3\xA0\x80\x81", "a\\U000e0001");
    row("line separator", "\xE2\x80\xA8\xE2\x80\xA9", "\\u2028\\u2029");
    row("backslash", "\\x1b", "\\x1b");
    row("zero", QByteArray("a\0b", 3), "a\\x00b");
}

void TestPrintable::shows()
{
    QFETCH(QByteArray, bytes);
    QTEST(printable(FileName::toText(bytes)), "shown");
}

void TestPrintable::leavesNoControlCharacter()
{
    for (uint code = 0; code < 0x10000; ++code) {
        const QString shown = printable(QStringLiteral("a") + QChar(code) + QLatin1Char('b'));
        QVERIFY(shown.startsWith(QLatin1Char('a')) && shown.endsWith(QLatin1Char('b')) && shown.size() >= 3);
        for (const QChar character : shown) {
            QVERIFY2(character.isPrint() || character.category() == QChar::Other_NotAssigned ||
                         character.category() == QChar::Other_PrivateUse,
                     qPrintable(QString::number(code, 16)));
            QVERIFY(!character.isSurrogate());
        }
    }
}

QTEST_GUILESS_MAIN(TestPrintable)
#include "tst_printable.moc"
