#include "monitor/watchedpaths.h"

#include <QTest>

#include <cerrno>

class TestWatchedPaths : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void knowsThePathOfAWatch();
    void keepsTheLastPathOfAWatch();
    void removesByPrefix();
    void takesAPathOfLimitedLength();
    void takesPathsUpToALimitInAll_data();
    void takesPathsUpToALimitInAll();
};

namespace
{
const QString longest(16384, QLatin1Char('p'));

/// So many of the longest paths are kept at once.
constexpr int most = 8192;
} // namespace

void TestWatchedPaths::knowsThePathOfAWatch()
{
    WatchedPaths paths;
    paths.add(1, QStringLiteral("/a"));
    paths.add(7, QStringLiteral("/a"));
    QCOMPARE(paths.pathOf(1), QStringLiteral("/a"));
    QCOMPARE(paths.pathOf(7), QStringLiteral("/a"));
    QCOMPARE(paths.pathOf(2), QString());
    paths.remove(1);
    paths.remove(2);
    QCOMPARE(paths.pathOf(1), QString());
    QCOMPARE(paths.pathOf(7), QStringLiteral("/a"));
}

void TestWatchedPaths::keepsTheLastPathOfAWatch()
{
    WatchedPaths paths;
    paths.add(1, QStringLiteral("/first"));
    paths.add(1, QStringLiteral("/second"));
    QCOMPARE(paths.pathOf(1), QStringLiteral("/second"));
    paths.removeStartingWith(QStringLiteral("/first"));
    QCOMPARE(paths.pathOf(1), QStringLiteral("/second"));
    paths.removeStartingWith(QStringLiteral("/second"));
    QCOMPARE(paths.pathOf(1), QString());
}

void TestWatchedPaths::removesByPrefix()
{
    WatchedPaths paths;
    paths.add(1, QStringLiteral("/a"));
    paths.add(2, QStringLiteral("/a/b"));
    paths.add(3, QStringLiteral("/ab"));
    paths.add(4, QStringLiteral("/b"));
    paths.removeStartingWith(QStringLiteral("/a"));
    for (const int watch : {1, 2, 3}) {
        QCOMPARE(paths.pathOf(watch), QString());
    }
    QCOMPARE(paths.pathOf(4), QStringLiteral("/b"));
}

void TestWatchedPaths::takesAPathOfLimitedLength()
{
    const WatchedPaths paths;
    QVERIFY(paths.hasRoomFor(longest));
    errno = 0;
    QVERIFY(!paths.hasRoomFor(longest + QLatin1Char('p')));
    QCOMPARE(errno, ENAMETOOLONG);
}

void TestWatchedPaths::takesPathsUpToALimitInAll_data()
{
    // How one of the paths is given up again.
    QTest::addColumn<QString>("way");
    QTest::newRow("removed") << "removed";
    QTest::newRow("removed by prefix") << "removed by prefix";
    QTest::newRow("another path of the watch") << "another path of the watch";
}

void TestWatchedPaths::takesPathsUpToALimitInAll()
{
    QFETCH(QString, way);
    WatchedPaths paths;
    const QString other = QLatin1Char('q') + longest.mid(1);
    paths.add(0, other);
    for (int watch = 1; watch < most; ++watch) {
        QVERIFY(paths.hasRoomFor(longest));
        // One text in memory, but each counts.
        paths.add(watch, longest);
    }
    QVERIFY(paths.hasRoomFor(QString()));
    errno = 0;
    QVERIFY(!paths.hasRoomFor(QStringLiteral("p")));
    QCOMPARE(errno, ENOSPC);
    if (way == QLatin1String("removed")) {
        paths.remove(0);
    } else if (way == QLatin1String("removed by prefix")) {
        paths.removeStartingWith(QStringLiteral("q"));
    } else {
        paths.add(0, QString());
    }
    QVERIFY(paths.hasRoomFor(longest));
    paths.add(0, longest);
    QVERIFY(!paths.hasRoomFor(QStringLiteral("p")));
}

QTEST_GUILESS_MAIN(TestWatchedPaths)
#include "tst_watchedpaths.moc"
