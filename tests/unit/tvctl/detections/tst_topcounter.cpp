#include "tvctl/detections/topcounter.h"

#include <QtTest>

class TestTopCounter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsTheMostFrequent();
    void staysWithinItsBounds();
};

void TestTopCounter::findsTheMostFrequent()
{
    TopCounter counter;
    QVERIFY(counter.top(3).isEmpty());
    for (const QChar text : QStringLiteral("cabcbca")) {
        counter.add(text);
    }
    counter.add(QStringLiteral("d"));
    using Entry = QPair<QString, qint64>;
    const QVector<Entry> expected = {
        {QStringLiteral("c"), 3}, {QStringLiteral("a"), 2}, {QStringLiteral("b"), 2}};
    QCOMPARE(counter.top(3), expected);
    QCOMPARE(counter.top(9).size(), 4);
    QVERIFY(counter.isExact());
}

void TestTopCounter::staysWithinItsBounds()
{
    TopCounter counter;
    const QString frequent = QStringLiteral("frequent");
    for (int index = 0; index < 2 * TopCounter::maxTexts; ++index) {
        counter.add(QString::number(index));
        if (index % 10 == 0) {
            counter.add(frequent);
        }
    }
    QVERIFY(counter.top(10 * TopCounter::maxTexts).size() <= TopCounter::maxTexts);
    QVERIFY(!counter.isExact());
    QCOMPARE(counter.top(1).constFirst().first, frequent);
    QCOMPARE(counter.top(1).constFirst().second, 2LL * TopCounter::maxTexts / 10);
}

QTEST_GUILESS_MAIN(TestTopCounter)
#include "tst_topcounter.moc"
