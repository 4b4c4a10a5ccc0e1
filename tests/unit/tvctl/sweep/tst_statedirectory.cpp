#include "tvctl/sweep/statedirectory.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

class TestStateDirectory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void isNotValidWithoutADirectory();
    void isLockedByOne();
    void replaces();
    void keepsTheOldWhenItCannotReplace();
    void readsNothingButFiles();
    void appends();
    void followsNoLinks();

private:
    QByteArray path(const QByteArray& name) const
    {
        return QFile::encodeName(m_directory->path()) + '/' + name;
    }

    QScopedPointer<QTemporaryDir> m_directory;
};

void TestStateDirectory::init()
{
    m_directory.reset(new QTemporaryDir);
}

void TestStateDirectory::isNotValidWithoutADirectory()
{
    QVERIFY(!StateDirectory(path("none")).isValid());
    QCOMPARE(errno, ENOENT);
}

void TestStateDirectory::isLockedByOne()
{
    StateDirectory other(path(""));
    {
        StateDirectory one(path(""));
        QVERIFY(one.lock("lock"));
        QVERIFY(!other.lock("lock"));
        QCOMPARE(errno, EWOULDBLOCK);
    }
    QVERIFY(other.lock("lock"));
}

void TestStateDirectory::replaces()
{
    const StateDirectory directory(path(""));
    QVERIFY(directory.read("state").isEmpty());
    QVERIFY(directory.replace("state", "one"));
    QCOMPARE(directory.read("state"), QByteArray("one"));
    // What was left behind is no hindrance.
    QVERIFY(directory.replace("state.new", "left behind"));
    QVERIFY(directory.replace("state", QByteArray(100000, 'x')));
    QCOMPARE(directory.read("state").size(), 100000);
    struct stat status = {};
    QCOMPARE(::stat(path("state").constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777, mode_t(0600));
    QCOMPARE(QDir(m_directory->path()).entryList(QDir::Files), QStringList{QStringLiteral("state")});
}

void TestStateDirectory::keepsTheOldWhenItCannotReplace()
{
    const StateDirectory directory(path(""));
    QVERIFY(directory.replace("state", "old"));
    QCOMPARE(::mkdir(path("state.new").constData(), 0700), 0);
    QVERIFY(!directory.replace("state", "new"));
    QCOMPARE(directory.read("state"), QByteArray("old"));
}

void TestStateDirectory::readsNothingButFiles()
{
    const StateDirectory directory(path(""));
    QCOMPARE(::mkfifo(path("fifo").constData(), 0600), 0);
    QCOMPARE(::mkdir(path("directory").constData(), 0700), 0);
    QVERIFY(directory.read("fifo").isEmpty());
    QVERIFY(directory.read("directory").isEmpty());
}

void TestStateDirectory::appends()
{
    const StateDirectory directory(path(""));
    QVERIFY(StateDirectory::write(directory.openForAppending("journal", 0), "onetwo"));
    QVERIFY(StateDirectory::write(directory.openForAppending("journal", 3), "three"));
    QCOMPARE(directory.read("journal"), QByteArray("onethree"));
    directory.remove("journal");
    QVERIFY(!QFile::exists(QFile::decodeName(path("journal"))));
    QVERIFY(!StateDirectory::write(UniqueFd(), "x"));
}

void TestStateDirectory::followsNoLinks()
{
    const StateDirectory directory(path(""));
    QVERIFY(directory.replace("target", "content"));
    QCOMPARE(::symlink("target", path("link").constData()), 0);
    QVERIFY(directory.read("link").isEmpty());
    QVERIFY(!directory.openForAppending("link", 0).isValid());
    QVERIFY(!StateDirectory(path("")).lock("link"));
    // A link is replaced, not followed.
    QVERIFY(directory.replace("link", "new"));
    QCOMPARE(directory.read("target"), QByteArray("content"));
    QCOMPARE(directory.read("link"), QByteArray("new"));
}

QTEST_GUILESS_MAIN(TestStateDirectory)
#include "tst_statedirectory.moc"
