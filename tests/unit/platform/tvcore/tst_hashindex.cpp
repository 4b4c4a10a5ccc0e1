#include "platform/tvcore/hashindex.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSet>
#include <QTest>

#include <utility>

class TestHashIndex : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void holdsNothingAtFirst();
    void findsOnlyTheVeryText_data();
    void findsOnlyTheVeryText();
    void tellsAWideTextFromOneOfTheSameBytes();
    void takesTheEmptyTextForAnEntry();
    void findsWhatASetFinds();
    void holdsOneTextManyTimesInOnePlace();
    void moves();
};

namespace
{
const QString md5 = QStringLiteral("44d88612fea8a8f36de82e1278abb02f");

/// Mostly short and of few characters, so that many are equal or begin with another.
QString randomText(QRandomGenerator& random)
{
    static const QString characters = QStringLiteral("0aA \n\u00E9\u0141");
    QString text;
    for (int i = random.bounded(6); i > 0; --i) {
        text += characters.at(random.bounded(characters.size()));
    }
    return text;
}
} // namespace

void TestHashIndex::holdsNothingAtFirst()
{
    for (const HashIndex& index : {HashIndex(), HashIndex(QStringList())}) {
        QVERIFY(!index.contains(md5));
        QVERIFY(!index.contains(QString()));
    }
}

void TestHashIndex::findsOnlyTheVeryText_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("upper case") << md5.toUpper();
    QTest::newRow("a blank before") << QLatin1Char(' ') + md5;
    QTest::newRow("a blank behind") << md5 + QLatin1Char(' ');
    QTest::newRow("a line end") << md5 + QLatin1Char('\n');
    QTest::newRow("a zero") << md5 + QChar(0);
    QTest::newRow("shorter") << md5.chopped(1);
    QTest::newRow("longer") << md5 + QLatin1Char('0');
    QTest::newRow("no hexadecimal") << QString(md5).replace(0, 1, QLatin1Char('g'));
    QTest::newRow("wide") << QString(md5).replace(0, 1, QChar(0x0134));
    QTest::newRow("as if it were packed") << QString(md5).prepend(QStringLiteral("\u0040\0\0\0"));
}

void TestHashIndex::findsOnlyTheVeryText()
{
    QFETCH(QString, text);
    const HashIndex ofText({text});
    QVERIFY(ofText.contains(text));
    QVERIFY(!ofText.contains(md5));
    const HashIndex ofHash({md5});
    QVERIFY(ofHash.contains(md5));
    QVERIFY(!ofHash.contains(text));
    const HashIndex ofBoth({text, md5});
    QVERIFY(ofBoth.contains(text));
    QVERIFY(ofBoth.contains(md5));
}

void TestHashIndex::tellsAWideTextFromOneOfTheSameBytes()
{
    for (ushort low = 0; low <= 0xFF; ++low) {
        const QString narrow = QString(QChar(low)) + QChar(1);
        const QString wide(QChar(0x100 + low));
        QVERIFY(!HashIndex({narrow}).contains(wide));
        QVERIFY(!HashIndex({wide}).contains(narrow));
    }
}

void TestHashIndex::takesTheEmptyTextForAnEntry()
{
    const HashIndex index({QString(), md5});
    // What cannot be read has an empty hash, null or not.
    QVERIFY(index.contains(QString()));
    QVERIFY(index.contains(QStringLiteral("")));
    QVERIFY(index.contains(md5));
    QVERIFY(!HashIndex({md5}).contains(QString()));
}

void TestHashIndex::findsWhatASetFinds()
{
    QRandomGenerator random(7);
    for (int round = 0; round < 300; ++round) {
        QStringList texts;
        for (int i = random.bounded(200); i > 0; --i) {
            texts.append(randomText(random));
        }
        const HashIndex index(texts);
        const QSet<QString> set(texts.cbegin(), texts.cend());
        for (const QString& text : qAsConst(texts)) {
            QVERIFY(index.contains(text));
        }
        for (int i = 0; i < 200; ++i) {
            const QString text = randomText(random);
            QCOMPARE(index.contains(text), set.contains(text));
        }
    }
}

void TestHashIndex::holdsOneTextManyTimesInOnePlace()
{
    QStringList texts;
    for (int i = 0; i < 200000; ++i) {
        texts.append(md5);
    }
    QElapsedTimer timer;
    timer.start();
    const HashIndex index(texts);
    QVERIFY(index.contains(md5));
    QVERIFY(!index.contains(md5.toUpper()));
    // A place for each, sought one behind the other, takes a minute.
    QVERIFY(timer.elapsed() < 10000);
}

void TestHashIndex::moves()
{
    HashIndex first({md5});
    HashIndex second = std::move(first);
    QVERIFY(second.contains(md5));
    first = HashIndex({QStringLiteral("a")});
    QVERIFY(first.contains(QStringLiteral("a")));
    QVERIFY(!first.contains(md5));
    second = std::move(first);
    QVERIFY(second.contains(QStringLiteral("a")));
    QVERIFY(!second.contains(md5));
}

QTEST_APPLESS_MAIN(TestHashIndex)
#include "tst_hashindex.moc"
