#include "monitor/pathindex.h"

#include <QElapsedTimer>
#include <QStringList>
#include <QTest>

#include <algorithm>
#include <array>
#include <limits>
#include <random>
#include <set>
#include <utility>

class TestPathIndex : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takesWhatBeginsAlike_data();
    void takesWhatBeginsAlike();
    void keepsEachPairOnce();
    void removesOnePair();
    void takesWhatALookAtEveryPathTakes();
    void takesAndRemovesAmongWhatIsAdded();
    void takesNoLongerWithMoreOfOthers();
    void leavesLittleToTheNextLook();
};

namespace
{
QVector<int> sorted(QVector<int> watches)
{
    std::sort(watches.begin(), watches.end());
    return watches;
}

/// Each watch is its path's place in `paths`.
PathIndex indexOf(const QStringList& paths)
{
    PathIndex index;
    for (int watch = 0; watch < paths.size(); ++watch) {
        index.add(paths.at(watch), watch);
    }
    return index;
}

/// Names that are hard to tell apart, put together at random.
QString randomPath(std::mt19937& random)
{
    // Code units: the halves of a character beyond the first 65536 count for themselves.
    constexpr std::array<ushort, 10> units = {'a', 'b', 'A', '/', '%', '1', '\n', 0x00fc, 0xd800, 0xffff};
    QString path = QStringLiteral("/");
    for (auto left = random() % 8; left > 0; --left) {
        path += QChar(units.at(random() % units.size()));
    }
    return path;
}
} // namespace

void TestPathIndex::takesWhatBeginsAlike_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QVector<int>>("taken");
    QTest::newRow("no separator is looked for") << "/home/a" << QVector<int>{1, 2, 3};
    QTest::newRow("only what is below") << "/home/a/" << QVector<int>{2};
    QTest::newRow("letter case") << "/home/A" << QVector<int>{4};
    QTest::newRow("longer than any") << "/home/a/b/c" << QVector<int>{};
    QTest::newRow("nothing") << "" << QVector<int>{0, 1, 2, 3, 4, 5};
    QTest::newRow("in front of all") << "!" << QVector<int>{};
    QTest::newRow("behind all") << "~" << QVector<int>{};
}

void TestPathIndex::takesWhatBeginsAlike()
{
    QFETCH(QString, prefix);
    QFETCH(QVector<int>, taken);
    PathIndex index =
        indexOf(QStringLiteral("/home /home/a /home/a/b /home/ab /home/A /media").split(QLatin1Char(' ')));
    QCOMPARE(sorted(index.takeStartingWith(prefix)), taken);
    QCOMPARE(index.takeStartingWith(prefix), QVector<int>());
    QCOMPARE(index.takeStartingWith(QString()).size(), 6 - taken.size());
}

void TestPathIndex::keepsEachPairOnce()
{
    PathIndex index;
    index.add(QStringLiteral("/a"), 1);
    index.add(QStringLiteral("/a"), 1);
    index.add(QStringLiteral("/a"), -2);
    QCOMPARE(index.takeStartingWith(QStringLiteral("/a")), (QVector<int>{-2, 1}));
}

void TestPathIndex::removesOnePair()
{
    PathIndex index;
    index.add(QStringLiteral("/a"), 1);
    index.add(QStringLiteral("/a"), 2);
    index.add(QStringLiteral("/ab"), 1);
    index.remove(QStringLiteral("/a"), 1);
    index.remove(QStringLiteral("/missing"), 1);
    QCOMPARE(index.takeStartingWith(QStringLiteral("/a")), (QVector<int>{2, 1}));
}

void TestPathIndex::takesWhatALookAtEveryPathTakes()
{
    std::mt19937 random(1);
    for (int round = 0; round < 1000; ++round) {
        QStringList paths;
        for (int watch = 0; watch < 30; ++watch) {
            paths.append(randomPath(random));
        }
        const QString prefix = randomPath(random);
        QVector<int> expected;
        for (int watch = 0; watch < paths.size(); ++watch) {
            if (paths.at(watch).startsWith(prefix)) {
                expected.append(watch);
            }
        }
        QCOMPARE(sorted(indexOf(paths).takeStartingWith(prefix)), expected);
    }
}

void TestPathIndex::takesAndRemovesAmongWhatIsAdded()
{
    std::mt19937 random(1);
    PathIndex index;
    std::set<std::pair<QString, int>> model;
    for (int step = 0; step < 20000; ++step) {
        const QString path = randomPath(random);
        const int watch = static_cast<int>(random() % 3);
        switch (random() % 8) {
        case 0: {
            QVector<int> expected;
            for (auto entry = model.begin(); entry != model.end();) {
                if (entry->first.startsWith(path)) {
                    expected.append(entry->second);
                    entry = model.erase(entry);
                } else {
                    ++entry;
                }
            }
            QCOMPARE(index.takeStartingWith(path), expected);
            break;
        }
        case 1:
            index.remove(path, watch);
            model.erase({path, watch});
            break;
        default:
            index.add(path, watch);
            model.emplace(path, watch);
        }
    }
    QCOMPARE(index.takeStartingWith(QString()).size(), int(model.size()));
}

void TestPathIndex::takesNoLongerWithMoreOfOthers()
{
    const auto shortestOf = [](int others) {
        PathIndex index;
        for (int watch = 0; watch < others; ++watch) {
            index.add(QStringLiteral("/home/other/directory%1").arg(watch), watch);
        }
        qint64 shortest = std::numeric_limits<qint64>::max();
        for (int round = 0; round < 20; ++round) {
            QElapsedTimer timer;
            timer.start();
            for (int i = 0; i < 200; ++i) {
                const QString path = QStringLiteral("/home/user/directory%1").arg(i);
                index.add(path, others + i);
                index.takeStartingWith(path);
            }
            shortest = std::min(shortest, timer.nsecsElapsed());
        }
        return shortest;
    };
    const qint64 few = shortestOf(1000);
    const qint64 many = shortestOf(64000);
    QVERIFY2(many < 8 * few, qPrintable(QStringLiteral("%1 ns, %2 ns").arg(few).arg(many)));
}

void TestPathIndex::leavesLittleToTheNextLook()
{
    const auto looked = [](bool lookFirst) {
        PathIndex index;
        if (lookFirst) {
            index.sortIn();
        }
        // No multiple of how many are kept unsorted.
        for (int watch = 0; watch < 100000; ++watch) {
            index.add(QStringLiteral("/home/user/directory%1").arg(watch), watch);
        }
        QElapsedTimer timer;
        timer.start();
        index.takeStartingWith(QStringLiteral("/missing"));
        return timer.nsecsElapsed();
    };
    const qint64 all = looked(false);
    const qint64 rest = looked(true);
    QVERIFY2(rest < all / 8, qPrintable(QStringLiteral("%1 ns, %2 ns").arg(all).arg(rest)));
}

QTEST_GUILESS_MAIN(TestPathIndex)
#include "tst_pathindex.moc"
