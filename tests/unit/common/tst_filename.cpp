#include "common/filename.h"

#include <QLocale>
#include <QRandomGenerator>
#include <QtTest>

namespace
{
/// The length of the one valid UTF-8 character that `bytes` starts with, 0 for none. Written from the table
/// of well-formed byte sequences, another way than the code under test on purpose.
int wellFormedLength(const QByteArray& bytes)
{
    const auto at = [&bytes](int i) {
        return i < bytes.size() ? static_cast<uchar>(bytes.at(i)) : 0;
    };
    const auto within = [&at](int i, int low, int high) {
        return at(i) >= low && at(i) <= high;
    };
    const auto tail = [&within](int i) {
        return within(i, 0x80, 0xBF);
    };
    if (within(0, 0x00, 0x7F)) {
        return 1;
    }
    if (within(0, 0xC2, 0xDF)) {
        return tail(1) ? 2 : 0;
    }
    if (within(0, 0xE0, 0xEF)) {
        const bool second = at(0) == 0xE0   ? within(1, 0xA0, 0xBF)
                            : at(0) == 0xED ? within(1, 0x80, 0x9F)
                                            : tail(1);
        return second && tail(2) ? 3 : 0;
    }
    if (within(0, 0xF0, 0xF4)) {
        const bool second = at(0) == 0xF0   ? within(1, 0x90, 0xBF)
                            : at(0) == 0xF4 ? within(1, 0x80, 0x8F)
                                            : tail(1);
        return second && tail(2) && tail(3) ? 4 : 0;
    }
    return 0;
}

/// What the text of `name` must be, one character after the other.
QString modelText(QByteArray name)
{
    // In front of a character, so that the decoder does not take the character for a byte order mark.
    const QByteArray guard("x");
    QString text;
    while (!name.isEmpty()) {
        const int length = wellFormedLength(name);
        if (length == 0) {
            text += QChar(0xDC00 + static_cast<uchar>(name.at(0)));
        } else {
            text += QString::fromUtf8(guard + name.left(length)).mid(guard.size());
        }
        name.remove(0, qMax(length, 1));
    }
    return text;
}

bool isValidUtf8(QByteArray name)
{
    while (!name.isEmpty()) {
        const int length = wellFormedLength(name);
        if (length == 0) {
            return false;
        }
        name.remove(0, length);
    }
    return true;
}

/// Pieces that make the interesting cases likely: whole characters, cut ones, surrogates, overlong forms.
QByteArray randomName(QRandomGenerator* random)
{
    static const QList<QByteArray> pieces = {
        "a",
        "/",
        "%2",
        "\n",
        "\x7F",
        "\xC3\xA4",
        "\xDF\xBF",
        "\xE2\x82\xAC",
        "\xEF\xBB\xBF",
        "\xEF\xBF\xBD",
        "\xEF\xBF\xBF",
        "\xED\x9F\xBF",
        "\xEE\x80\x80",
        "\xF0\x9F\x98\x80",
        "\xF4\x8F\xBF\xBF",
        "\xC3",
        "\xE2\x82",
        "\xF0\x9F\x98",
        "\xC0\xAF",
        "\xC1\xBF",
        "\xE0\x9F\xBF",
        "\xF0\x8F\xBF\xBF",
        "\xED\xA0\x80",
        "\xED\xB2\x80",
        "\xED\xBF\xBF",
        "\xF4\x90\x80\x80",
        "\xF5\x80\x80\x80",
        "\x80",
        "\xBF",
        "\xFE",
        "\xFF",
    };
    QByteArray name;
    const int length = random->bounded(12);
    for (int i = 0; i < length; ++i) {
        if (random->bounded(3) == 0) {
            name += static_cast<char>(random->bounded(1, 256));
        } else {
            name += pieces.at(random->bounded(pieces.size()));
        }
    }
    return name;
}
} // namespace

class TestFileName : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void spellsOutUtf8_data();
    void spellsOutUtf8();
    void keepsBytesThatAreNoUtf8_data();
    void keepsBytesThatAreNoUtf8();
    void agreesWithTheModelForEveryTwoBytes();
    void agreesWithTheModelForRandomNames();
    void agreesWithQtForValidUtf8();
    void ignoresTheLocale();
    void showsBadBytesToPeople_data();
    void showsBadBytesToPeople();
    void showsValidNamesAsTheyAre();
};

void TestFileName::spellsOutUtf8_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << QByteArray("") << QString();
    QTest::newRow("ASCII") << QByteArray("/home/u/a b.txt") << QStringLiteral("/home/u/a b.txt");
    QTest::newRow("newline and percent") << QByteArray("a\n%2%s") << QStringLiteral("a\n%2%s");
    QTest::newRow("two bytes") << QByteArray("\xC3\xA4") << QStringLiteral("\u00E4");
    QTest::newRow("three bytes") << QByteArray("\xE2\x82\xAC") << QStringLiteral("\u20AC");
    QTest::newRow("four bytes") << QByteArray("\xF0\x9F\x98\x80") << QStringLiteral("\U0001F600");
    QTest::newRow("last code point") << QByteArray("\xF4\x8F\xBF\xBF") << QStringLiteral("\U0010FFFF");
    QTest::newRow("leading byte order mark")
        << QByteArray("\xEF\xBB\xBFx") << QChar(0xFEFF) + QStringLiteral("x");
    QTest::newRow("only a byte order mark") << QByteArray("\xEF\xBB\xBF") << QString(QChar(0xFEFF));
    QTest::newRow("replacement character") << QByteArray("\xEF\xBF\xBD") << QString(QChar(0xFFFD));
    QTest::newRow("composed stays composed") << QByteArray("a\xCC\x88") << QStringLiteral("a\u0308");
}

void TestFileName::spellsOutUtf8()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, text);
    QCOMPARE(FileName::toText(bytes), text);
    QCOMPARE(FileName::toBytes(text), bytes);
}

void TestFileName::keepsBytesThatAreNoUtf8_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QVector<ushort>>("units");
    const auto row = [](const char* name, const QByteArray& bytes, const QVector<ushort>& units) {
        QTest::newRow(name) << bytes << units;
    };
    row("a byte of Latin-1", "\xE4", {0xDCE4});
    row("every bad byte by itself", "\xFF\xFE\x80", {0xDCFF, 0xDCFE, 0xDC80});
    row("cut after the first byte", "x\xC3", {'x', 0xDCC3});
    row("cut after the third byte", "\xF0\x9F\x98", {0xDCF0, 0xDC9F, 0xDC98});
    row("cut by a good character", "\xE2\x82z", {0xDCE2, 0xDC82, 'z'});
    row("overlong slash", "\xC0\xAF", {0xDCC0, 0xDCAF});
    row("overlong in three bytes", "\xE0\x9F\xBF", {0xDCE0, 0xDC9F, 0xDCBF});
    row("overlong in four bytes", "\xF0\x8F\xBF\xBF", {0xDCF0, 0xDC8F, 0xDCBF, 0xDCBF});
    row("a high surrogate", "\xED\xA0\x80", {0xDCED, 0xDCA0, 0xDC80});
    row("a low surrogate that looks escaped", "\xED\xB2\x80", {0xDCED, 0xDCB2, 0xDC80});
    row("beyond the last code point", "\xF4\x90\x80\x80", {0xDCF4, 0xDC90, 0xDC80, 0xDC80});
    row("bad after a surrogate pair", "\xF0\x9F\x98\x80\x80", {0xD83D, 0xDE00, 0xDC80});
    row("a pair whose low half is an escape's", "\xF0\x90\x82\x80", {0xD800, 0xDC80});
}

void TestFileName::keepsBytesThatAreNoUtf8()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QVector<ushort>, units);
    const QString text = FileName::toText(bytes);
    QCOMPARE(text, QString::fromUtf16(units.constData(), units.size()));
    QCOMPARE(FileName::toBytes(text), bytes);
}

void TestFileName::agreesWithTheModelForEveryTwoBytes()
{
    // No file name holds a NUL.
    for (int first = 1; first < 256; ++first) {
        for (int second = 1; second < 256; ++second) {
            const char bytes[] = {static_cast<char>(first), static_cast<char>(second)};
            const QByteArray name(bytes, 2);
            const QString text = FileName::toText(name);
            QVERIFY2(text == modelText(name), name.toHex().constData());
            QVERIFY2(FileName::toBytes(text) == name, name.toHex().constData());
        }
    }
}

void TestFileName::agreesWithTheModelForRandomNames()
{
    QRandomGenerator random(20250328);
    int valid = 0;
    for (int i = 0; i < 50000; ++i) {
        const QByteArray name = randomName(&random);
        const QString text = FileName::toText(name);
        QVERIFY2(text == modelText(name), name.toHex().constData());
        QVERIFY2(FileName::toBytes(text) == name, name.toHex().constData());
        valid += isValidUtf8(name) ? 1 : 0;
    }
    // Both kinds were among them.
    QVERIFY(valid > 1000);
    QVERIFY(valid < 49000);
}

void TestFileName::agreesWithQtForValidUtf8()
{
    const QByteArray mark("\xEF\xBB\xBF");
    QRandomGenerator random(13022025);
    int marked = 0;
    int compared = 0;
    while (compared < 5000) {
        const QByteArray name = randomName(&random);
        if (!isValidUtf8(name)) {
            continue;
        }
        ++compared;
        const bool startsWithMark = name.startsWith(mark);
        marked += startsWithMark ? 1 : 0;
        const QString text = QString::fromUtf8(name);
        const QString expected = startsWithMark ? QChar(0xFEFF) + text : text;
        QVERIFY2(FileName::toText(name) == expected, name.toHex().constData());
    }
    QVERIFY(marked > 0);
}

void TestFileName::ignoresTheLocale()
{
    const QLocale before;
    QLocale::setDefault(QLocale(QStringLiteral("ar_EG")));
    const QString text = FileName::toText("\xC3\xA4\xFF");
    const QByteArray bytes = FileName::toBytes(text);
    QLocale::setDefault(before);
    QCOMPARE(text, QString(QChar(0xE4)) + QChar(0xDCFF));
    QCOMPARE(bytes, QByteArray("\xC3\xA4\xFF"));
}

void TestFileName::showsBadBytesToPeople_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("shown");
    QTest::newRow("empty") << QByteArray() << QString();
    QTest::newRow("in the middle") << QByteArray("a\xE4z") << "a\\xe4z";
    QTest::newRow("several") << QByteArray("\xFFx\x80\x81") << "\\xffx\\x80\\x81";
    QTest::newRow("after a surrogate pair")
        << QByteArray("\xF0\x9F\x98\x80\x80") << QStringLiteral("\U0001F600\\x80");
    QTest::newRow("a pair whose low half is an escape's")
        << QByteArray("\xF0\x90\x82\x80") << QStringLiteral("\U00010080");
}

void TestFileName::showsBadBytesToPeople()
{
    QFETCH(QByteArray, bytes);
    QTEST(FileName::toDisplay(FileName::toText(bytes)), "shown");
}

void TestFileName::showsValidNamesAsTheyAre()
{
    QRandomGenerator random(28032025);
    int different = 0;
    for (int i = 0; i < 5000; ++i) {
        const QByteArray name = randomName(&random);
        const QString text = FileName::toText(name);
        const QString shown = FileName::toDisplay(text);
        QVERIFY2((shown == text) == isValidUtf8(name), name.toHex().constData());
        QVERIFY2(isValidUtf8(shown.toUtf8()), name.toHex().constData());
        different += shown == text ? 0 : 1;
    }
    QVERIFY(different > 0);
}

QTEST_APPLESS_MAIN(TestFileName)
#include "tst_filename.moc"
