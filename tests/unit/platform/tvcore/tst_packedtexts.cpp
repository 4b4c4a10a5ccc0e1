#include "platform/tvcore/packedtexts.h"

#include <QRandomGenerator>
#include <QTest>

class TestPackedTexts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keepsAnyText_data();
    void keepsAnyText();
    void keepsRandomTextsInOrder();
    void takesAByteForEachLatin1Character();
    void hasOneForm();
    void refusesWhatWasNotPacked_data();
    void refusesWhatWasNotPacked();
};

void TestPackedTexts::keepsAnyText_data()
{
    QTest::addColumn<QStringList>("texts");
    QTest::newRow("nothing") << QStringList();
    QTest::newRow("empty") << QStringList({QString()});
    QTest::newRow("several empty ones") << QStringList({QString(), QString(), QString()});
    QTest::newRow("hashes") << QStringList({QStringLiteral("44d88612fea8a8f36de82e1278abb02f"),
                                            QStringLiteral("44D88612FEA8A8F36DE82E1278ABB02F")});
    QTest::newRow("newlines") << QStringList(
        {QStringLiteral("a\nb"), QStringLiteral("\n"), QStringLiteral("\r")});
    QTest::newRow("NUL") << QStringList({QString(QChar(0)), QString(3, QChar(0)), QStringLiteral("a")});
    QTest::newRow("last of Latin-1") << QStringList({QString(QChar(0xFF)), QString(QChar(0x80))});
    QTest::newRow("first beyond it") << QStringList({QString(QChar(0x100)), QStringLiteral("a")});
    QTest::newRow("U+FEFF") << QStringList(
        {QString(QChar(0xFEFF)) + QLatin1Char('a'), QString(QChar(0xFFFE))});
    QTest::newRow("beyond the basic plane") << QStringList({QString::fromUtf8("a\xF0\x9F\x98\x80")});
    QTest::newRow("lone surrogates") << QStringList(
        {QString(QChar(0xD800)), QString(QChar(0xDCFF)), QString(QChar(0xDC80)) + QChar(0xD83D)});
}

void TestPackedTexts::keepsAnyText()
{
    QFETCH(QStringList, texts);
    QByteArray packed;
    for (const QString& text : qAsConst(texts)) {
        PackedTexts::append(packed, text);
    }
    QStringList unpacked = {QStringLiteral("already there")};
    QVERIFY(PackedTexts::unpack(packed, unpacked));
    QCOMPARE(unpacked, QStringList({QStringLiteral("already there")}) + texts);
}

void TestPackedTexts::keepsRandomTextsInOrder()
{
    QRandomGenerator random(7);
    for (int round = 0; round < 200; ++round) {
        QStringList texts;
        QByteArray packed;
        for (int i = random.bounded(20); i > 0; --i) {
            QString text;
            const int highest = random.bounded(2) == 0 ? 0x100 : 0x10000;
            for (int unit = random.bounded(30); unit > 0; --unit) {
                text += QChar(static_cast<ushort>(random.bounded(highest)));
            }
            texts.append(text);
            PackedTexts::append(packed, text);
        }
        QStringList unpacked;
        QVERIFY(PackedTexts::unpack(packed, unpacked));
        QCOMPARE(unpacked, texts);
    }
}

void TestPackedTexts::takesAByteForEachLatin1Character()
{
    QByteArray packed;
    PackedTexts::append(packed, QString(64, QLatin1Char('f')));
    QCOMPARE(packed.size(), 4 + 64);
}

void TestPackedTexts::hasOneForm()
{
    QByteArray packed;
    PackedTexts::append(packed, QStringLiteral("ab"));
    PackedTexts::append(packed, QString(QChar(0x0141)));
    QCOMPARE(packed, QByteArray::fromHex("04000000"
                                         "6162"
                                         "03000000"
                                         "4101"));
}

void TestPackedTexts::refusesWhatWasNotPacked_data()
{
    QTest::addColumn<QByteArray>("packed");
    QTest::newRow("part of a length") << QByteArray::fromHex("040000");
    QTest::newRow("no text") << QByteArray::fromHex("04000000");
    QTest::newRow("part of a text") << QByteArray::fromHex("0400000061");
    QTest::newRow("part of a wide text") << QByteArray::fromHex("05000000610062");
    QTest::newRow("rest behind a text") << QByteArray::fromHex("0200000061"
                                                               "00");
    QTest::newRow("a length of two thousand million") << QByteArray::fromHex("feffffff6161");
    QTest::newRow("the same, wide") << QByteArray::fromHex("ffffffff6161");
}

void TestPackedTexts::refusesWhatWasNotPacked()
{
    QFETCH(QByteArray, packed);
    QStringList texts;
    QVERIFY(!PackedTexts::unpack(packed, texts));
}

QTEST_APPLESS_MAIN(TestPackedTexts)
#include "tst_packedtexts.moc"
