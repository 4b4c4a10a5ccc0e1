#include "tvctl/sweep/sweepstate.h"

#include <QTest>

class TestSweepState : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void comesBack();
    void refusesWhatIsDamaged();
};

namespace
{
SweepState sample()
{
    QByteArray directories;
    appendPlace(directories, placeOf("/a"));
    appendPlace(directories, placeOf("/b"));
    QByteArray again;
    appendPlace(again, placeOf("/c"));
    return {{1234567890123, 42, "boot"}, Places(directories), Places(again)};
}
} // namespace

void TestSweepState::comesBack()
{
    const auto state = decodeState(encode(sample()));
    QVERIFY(state);
    QCOMPARE(state->begun.msecsSinceEpoch, 1234567890123);
    QCOMPARE(state->begun.msecsSinceBoot, 42);
    QCOMPARE(state->begun.bootId, QByteArray("boot"));
    QCOMPARE(state->directories.size(), size_t(2));
    QVERIFY(state->directories.contains(placeOf("/b")));
    QCOMPARE(state->again.size(), size_t(1));
    QVERIFY(state->again.contains(placeOf("/c")));
}

void TestSweepState::refusesWhatIsDamaged()
{
    const QByteArray whole = encode(sample());
    for (int size = 0; size < whole.size(); ++size) {
        QVERIFY2(!decodeState(whole.left(size)), QByteArray::number(size).constData());
    }
    for (int at = 0; at < whole.size(); ++at) {
        QByteArray damaged = whole;
        damaged[at] = static_cast<char>(damaged.at(at) ^ 1);
        QVERIFY2(!decodeState(damaged), QByteArray::number(at).constData());
    }
    QVERIFY(!decodeState(whole + '\0'));
    QVERIFY(!decodeState(QByteArray(100000, '\xff')));
}

QTEST_GUILESS_MAIN(TestSweepState)
#include "tst_sweepstate.moc"
