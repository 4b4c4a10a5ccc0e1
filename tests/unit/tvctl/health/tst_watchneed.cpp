#include "tvctl/health/watchneed.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>

#include <sys/stat.h>
#include <sys/sysmacros.h>

using std::chrono::milliseconds;

class TestWatchNeed : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void countsAsTheServiceDoes();
    void countsEachOnce();
    void tellsWhatIsNotWatched();
    void stopsInTime();
    void passesOverWhatIsNotThere();
};

namespace
{
constexpr milliseconds enough(60000);

void watch(WatchedSet& watched, const QString& path)
{
    struct stat status = {};
    QCOMPARE(::stat(path.toUtf8().constData(), &status), 0);
    watched.add(static_cast<quint64>(major(status.st_dev)) << 20 | minor(status.st_dev), status.st_ino);
}
} // namespace

void TestWatchNeed::countsAsTheServiceDoes()
{
    const QTemporaryDir root;
    QDir directory(root.path());
    QVERIFY(directory.mkpath(QStringLiteral("1/2/3/4/5/6")));
    QVERIFY(directory.mkpath(QStringLiteral(".hidden/inside")));
    QVERIFY(directory.mkpath(QStringLiteral("1/.hidden")));
    QVERIFY(QFile::link(directory.filePath(QStringLiteral("1")), directory.filePath(QStringLiteral("link"))));
    QFile file(directory.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    // The root is the first level, "1/2/3/4" the fifth.
    const WatchNeed need = walkWatchedTrees({root.path()}, {}, enough);
    QCOMPARE(need.directories, 5LL);
    QVERIFY(need.isComplete);
}

void TestWatchNeed::countsEachOnce()
{
    const QTemporaryDir root;
    QVERIFY(QDir(root.path()).mkdir(QStringLiteral("a")));
    QCOMPARE(walkWatchedTrees({root.path(), root.path(), root.path() + QStringLiteral("/a")}, {}, enough)
                 .directories,
             2LL);
}

void TestWatchNeed::tellsWhatIsNotWatched()
{
    const QTemporaryDir root;
    QDir directory(root.path());
    for (const char* name : {"a", "b", "c", "d", "e"}) {
        QVERIFY(directory.mkdir(QLatin1String(name)));
    }
    WatchedSet watched;
    watch(watched, root.path());
    watch(watched, directory.filePath(QStringLiteral("c")));
    const WatchNeed need = walkWatchedTrees({root.path()}, watched, enough);
    QCOMPARE(need.directories, 6LL);
    QCOMPARE(need.unwatched, 4LL);
    QCOMPARE(need.examples.size(), 3);
    QVERIFY(!need.examples.contains(directory.filePath(QStringLiteral("c"))));
    QVERIFY(need.examples.first().startsWith(root.path() + QLatin1Char('/')));
}

void TestWatchNeed::stopsInTime()
{
    const QTemporaryDir root;
    QVERIFY(QDir(root.path()).mkdir(QStringLiteral("a")));
    const WatchNeed need = walkWatchedTrees({root.path()}, {}, milliseconds(-1));
    QVERIFY(!need.isComplete);
    QCOMPARE(need.directories, 1LL);
}

void TestWatchNeed::passesOverWhatIsNotThere()
{
    const QTemporaryDir root;
    const WatchNeed need = walkWatchedTrees({root.path() + QStringLiteral("/none"), root.path()}, {}, enough);
    QCOMPARE(need.directories, 1LL);
}

QTEST_GUILESS_MAIN(TestWatchNeed)
#include "tst_watchneed.moc"
