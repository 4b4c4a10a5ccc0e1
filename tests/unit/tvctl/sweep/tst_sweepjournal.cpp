#include "tvctl/sweep/sweepjournal.h"

#include <QTest>

class TestSweepJournal : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sumsItsSteps();
    void keepsWhatIsWholeWhenItIsCutOff();
    void endsAtWhatIsDamaged();
};

namespace
{
QByteArray beginning()
{
    return SweepJournal::encode(SweepJournal::Begin{{1234567890123, 42, "boot"}, true});
}

QByteArray first()
{
    return SweepJournal::encode(SweepJournal::Step{0, "/a/\xff", true, "directories1", "again1"});
}

QByteArray second()
{
    return SweepJournal::encode(SweepJournal::Step{1, "/b", false, "directories2", {}});
}
} // namespace

void TestSweepJournal::sumsItsSteps()
{
    const QByteArray bytes = beginning() + first() + second();
    const auto journal = SweepJournal::decode(bytes);
    QVERIFY(journal);
    QCOMPARE(journal->begin.begun.msecsSinceEpoch, 1234567890123);
    QCOMPARE(journal->begin.begun.bootId, QByteArray("boot"));
    QVERIFY(journal->begin.isFull);
    QCOMPARE(journal->done.root, 1);
    QCOMPARE(journal->done.path, QByteArray("/b"));
    QVERIFY(!journal->done.isDone);
    QVERIFY(SweepJournal::decode(beginning() + first())->done.isDone);
    QCOMPARE(journal->done.directories, QByteArray("directories1directories2"));
    QCOMPARE(journal->done.again, QByteArray("again1"));
    QCOMPARE(journal->size, bytes.size());
}

void TestSweepJournal::keepsWhatIsWholeWhenItIsCutOff()
{
    const QByteArray begin = beginning();
    const QByteArray bytes = begin + first() + second();
    for (int size = 0; size < bytes.size(); ++size) {
        const auto journal = SweepJournal::decode(bytes.left(size));
        QCOMPARE(journal.has_value(), size >= begin.size());
        if (journal) {
            const bool hasFirst = size >= begin.size() + first().size();
            QCOMPARE(journal->done.path, hasFirst ? QByteArray("/a/\xff") : QByteArray());
            QCOMPARE(journal->size, hasFirst ? begin.size() + first().size() : begin.size());
        }
    }
}

void TestSweepJournal::endsAtWhatIsDamaged()
{
    const QByteArray bytes = beginning() + first() + second();
    const int firstEnds = beginning().size() + first().size();
    for (int at = 0; at < bytes.size(); ++at) {
        QByteArray damaged = bytes;
        damaged[at] = static_cast<char>(damaged.at(at) ^ 0x80);
        const auto journal = SweepJournal::decode(damaged);
        QCOMPARE(journal.has_value(), at >= beginning().size());
        if (journal) {
            QCOMPARE(journal->done.path, at < firstEnds ? QByteArray() : QByteArray("/a/\xff"));
        }
    }
}

QTEST_GUILESS_MAIN(TestSweepJournal)
#include "tst_sweepjournal.moc"
