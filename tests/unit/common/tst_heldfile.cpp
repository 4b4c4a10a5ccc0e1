#include "common/heldfile.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <climits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

Q_DECLARE_METATYPE(CheckedFile::Kind)

class TestHeldFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void holdsWhatThePathLeadsTo_data();
    void holdsWhatThePathLeadsTo();
    void holdsWhatNoCallCanName();
    void tellsThatALinkLedToIt_data();
    void tellsThatALinkLedToIt();
    void tellsThatThePathLeadsElsewhereByNow();
    void removesTheNameThatItHolds();
    void removesALinkAndNotItsTarget();
    void removesADanglingLink();
    void removesInTheDirectoryThatItFound();
    void removesNothingElse_data();
    void removesNothingElse();
    void tellsWhyNothingWasRemoved_data();
    void tellsWhyNothingWasRemoved();
    void renamesInTheDirectoryThatItFound();
    void renamesNothingElse();
    void neverReplacesByRenaming();

private:
    QByteArray path(const char* name) const
    {
        return QFile::encodeName(m_directory->filePath(QString::fromUtf8(name)));
    }
    void write(const char* name, const QByteArray& content = "content") const
    {
        QFile file(m_directory->filePath(QString::fromUtf8(name)));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), qint64(content.size()));
    }
    bool exists(const char* name) const
    {
        struct stat status = {};
        return ::lstat(path(name).constData(), &status) == 0;
    }
    QByteArray contentOf(const char* name) const
    {
        QFile file(m_directory->filePath(QString::fromUtf8(name)));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QScopedPointer<QTemporaryDir> m_directory;
};

void TestHeldFile::init()
{
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("d")));
    write("d/file");
    QCOMPARE(::symlink("file", path("d/link").constData()), 0);
    QCOMPARE(::symlink("nowhere", path("d/dangling").constData()), 0);
    QCOMPARE(::symlink("d", path("to-d").constData()), 0);
    QCOMPARE(::mkfifo(path("d/fifo").constData(), 0600), 0);
}

void TestHeldFile::holdsWhatThePathLeadsTo_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<CheckedFile::Kind>("kind");
    QTest::addColumn<int>("error");
    using Kind = CheckedFile::Kind;
    QTest::newRow("a file") << QByteArray("d/file") << Kind::Regular << 0;
    QTest::newRow("a link to a file") << QByteArray("d/link") << Kind::Regular << 0;
    QTest::newRow("by a link to its directory") << QByteArray("to-d/file") << Kind::Regular << 0;
    QTest::newRow("a directory") << QByteArray("d") << Kind::Directory << 0;
    QTest::newRow("a directory, with a slash") << QByteArray("d/") << Kind::Directory << 0;
    QTest::newRow("a link to a directory") << QByteArray("to-d") << Kind::Directory << 0;
    QTest::newRow("a FIFO") << QByteArray("d/fifo") << Kind::Special << 0;
    QTest::newRow("nothing") << QByteArray("d/nothing") << Kind::Missing << ENOENT;
    QTest::newRow("no directory") << QByteArray("nothing/file") << Kind::Missing << ENOENT;
    QTest::newRow("a file for a directory") << QByteArray("d/file/x") << Kind::Missing << ENOTDIR;
    QTest::newRow("a file, with a slash") << QByteArray("d/file/") << Kind::Missing << ENOTDIR;
    QTest::newRow("a dangling link") << QByteArray("d/dangling") << Kind::Missing << ENOENT;
}

void TestHeldFile::holdsWhatThePathLeadsTo()
{
    QFETCH(QByteArray, name);
    QFETCH(int, error);
    const HeldFile held(path("") + '/' + name);
    QTEST(held.object().kind(), "kind");
    QCOMPARE(held.error(), error);
    if (held.object().kind() == CheckedFile::Kind::Regular) {
        QVERIFY(held.object().openForReading().isValid());
    }
}

void TestHeldFile::holdsWhatNoCallCanName()
{
    const QTemporaryDir top;
    QByteArray path = QFile::encodeName(top.path());
    UniqueFd directory(::open(path.constData(), O_PATH | O_DIRECTORY));
    const QByteArray name(250, 'd');
    while (path.size() <= PATH_MAX) {
        QCOMPARE(::mkdirat(directory.get(), name.constData(), 0700), 0);
        directory = UniqueFd(::openat(directory.get(), name.constData(), O_PATH | O_DIRECTORY));
        path += '/' + name;
    }
    QVERIFY(UniqueFd(::openat(directory.get(), "file", O_CREAT | O_WRONLY, 0600)).isValid());
    path += "/file";

    QCOMPARE(HeldFile(path).error(), ENAMETOOLONG);
    const HeldFile file = HeldFile::atAnyDepth(path);
    QCOMPARE(file.error(), 0);
    QVERIFY(file.object().openForReading().isValid());
    QVERIFY(!file.isReachedByLink());
    QVERIFY(file.remove());
    QCOMPARE(HeldFile::atAnyDepth(path).error(), ENOENT);
    QCOMPARE(HeldFile::atAnyDepth(path + "/below").error(), ENOENT);
}

void TestHeldFile::tellsThatALinkLedToIt_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("isLinked");
    QTest::newRow("a file") << QByteArray("d/file") << false;
    QTest::newRow("a file behind many slashes") << QByteArray("/d//file") << false;
    QTest::newRow("a directory") << QByteArray("d/") << false;
    QTest::newRow("a link to a file") << QByteArray("d/link") << true;
    QTest::newRow("by a link to its directory") << QByteArray("to-d/file") << true;
    QTest::newRow("by a link to a directory above") << QByteArray("to-d/deep/file") << true;
}

void TestHeldFile::tellsThatALinkLedToIt()
{
    QFETCH(QByteArray, name);
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("d/deep")));
    write("d/deep/file");
    const HeldFile held(path("") + '/' + name);
    QCOMPARE(held.error(), 0);
    QTEST(held.isReachedByLink(), "isLinked");
}

void TestHeldFile::tellsThatThePathLeadsElsewhereByNow()
{
    const HeldFile held(path("to-d/file"));
    QCOMPARE(::unlink(path("to-d").constData()), 0);
    QCOMPARE(::mkdir(path("to-d").constData(), 0700), 0);
    write("to-d/file");
    QVERIFY(held.isReachedByLink());
}

void TestHeldFile::removesTheNameThatItHolds()
{
    const HeldFile held(path("d/file"));
    QVERIFY(held.remove());
    QVERIFY(!exists("d/file"));
    QVERIFY(!held.remove());
    QCOMPARE(errno, ENOENT);
}

void TestHeldFile::removesALinkAndNotItsTarget()
{
    QVERIFY(HeldFile(path("d/link")).remove());
    QVERIFY(!exists("d/link"));
    QVERIFY(exists("d/file"));
}

void TestHeldFile::removesADanglingLink()
{
    QVERIFY(HeldFile(path("d/dangling")).remove());
    QVERIFY(!exists("d/dangling"));
}

void TestHeldFile::removesInTheDirectoryThatItFound()
{
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("other")));
    write("other/file");
    const HeldFile held(path("d/file"));
    QCOMPARE(::rename(path("d").constData(), path("moved").constData()), 0);
    QCOMPARE(::symlink("other", path("d").constData()), 0);
    QVERIFY(held.remove());
    QVERIFY(!exists("moved/file"));
    QVERIFY(exists("other/file"));
}

void TestHeldFile::removesNothingElse_data()
{
    QTest::addColumn<QByteArray>("held");
    QTest::newRow("a file") << QByteArray("d/file");
    QTest::newRow("a link") << QByteArray("d/link");
}

void TestHeldFile::removesNothingElse()
{
    QFETCH(QByteArray, held);
    const HeldFile file(path(held.constData()));
    write("d/new", "new");
    QCOMPARE(::rename(path("d/new").constData(), path(held.constData()).constData()), 0);
    QVERIFY(!file.remove());
    QCOMPARE(errno, ESTALE);
    QCOMPARE(contentOf(held.constData()), QByteArray("new"));
}

void TestHeldFile::tellsWhyNothingWasRemoved_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("error");
    QTest::newRow("a directory") << QByteArray("/d") << EISDIR;
    QTest::newRow("a directory, with a slash") << QByteArray("/d/") << EISDIR;
    QTest::newRow("nothing") << QByteArray("/d/nothing") << ENOENT;
    QTest::newRow("no directory") << QByteArray("/nothing/file") << ENOENT;
    QTest::newRow("a file for a directory") << QByteArray("/d/file/x") << ENOTDIR;
}

void TestHeldFile::tellsWhyNothingWasRemoved()
{
    QFETCH(QByteArray, name);
    const HeldFile held(path("") + name);
    QVERIFY(!held.remove());
    QTEST(errno, "error");
    QVERIFY(!HeldFile(QByteArray()).remove());
    QCOMPARE(errno, ENOENT);
}

void TestHeldFile::renamesInTheDirectoryThatItFound()
{
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("other")));
    write("other/file", "other");
    const HeldFile held(path("d/file"));
    QCOMPARE(::rename(path("d").constData(), path("moved").constData()), 0);
    QCOMPARE(::symlink("other", path("d").constData()), 0);
    QVERIFY(held.rename("file.aside"));
    QCOMPARE(contentOf("moved/file.aside"), QByteArray("content"));
    QCOMPARE(contentOf("other/file"), QByteArray("other"));
}

void TestHeldFile::renamesNothingElse()
{
    const HeldFile held(path("d/file"));
    write("d/new", "new");
    QCOMPARE(::rename(path("d/new").constData(), path("d/file").constData()), 0);
    QVERIFY(!held.rename("file.aside"));
    QCOMPARE(errno, ESTALE);
    QCOMPARE(contentOf("d/file"), QByteArray("new"));
    QVERIFY(!exists("d/file.aside"));
}

void TestHeldFile::neverReplacesByRenaming()
{
    write("d/taken", "taken");
    const HeldFile held(path("d/file"));
    QVERIFY(!held.rename("taken"));
    QCOMPARE(errno, EEXIST);
    QCOMPARE(contentOf("d/taken"), QByteArray("taken"));
    QVERIFY(exists("d/file"));
}

QTEST_GUILESS_MAIN(TestHeldFile)
#include "tst_heldfile.moc"
