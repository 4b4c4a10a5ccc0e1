#include "common/opendirectory.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>

#include <sys/stat.h>

class TestOpenDirectory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void opensADirectory();
    void opensTheRoot();
    void passesOverSlashes();
    void needsAnAbsolutePath();
    void opensAPathOfAnyLength();
    void tellsWhyThereIsNone_data();
    void tellsWhyThereIsNone();
    void followsNoLink_data();
    void followsNoLink();
};

void TestOpenDirectory::opensADirectory()
{
    const QTemporaryDir place;
    QVERIFY(QDir(place.path()).mkpath(QStringLiteral("a/b")));
    const QByteArray path = QFile::encodeName(place.filePath(QStringLiteral("a/b")));
    const UniqueFd directory = openDirectoryWithoutLinks(path);
    QVERIFY(directory.isValid());
    struct stat opened = {};
    struct stat meant = {};
    QCOMPARE(::fstat(directory.get(), &opened), 0);
    QCOMPARE(::stat(path.constData(), &meant), 0);
    QCOMPARE(opened.st_ino, meant.st_ino);
    QCOMPARE(opened.st_dev, meant.st_dev);
}

void TestOpenDirectory::opensTheRoot()
{
    struct stat opened = {};
    struct stat meant = {};
    QCOMPARE(::fstat(openDirectoryWithoutLinks("/").get(), &opened), 0);
    QCOMPARE(::stat("/", &meant), 0);
    QCOMPARE(opened.st_ino, meant.st_ino);
}

void TestOpenDirectory::passesOverSlashes()
{
    const QTemporaryDir place;
    QVERIFY(QDir(place.path()).mkpath(QStringLiteral("a/b")));
    QVERIFY(openDirectoryWithoutLinks('/' + QFile::encodeName(place.path()) + "//a/b/").isValid());
    QVERIFY(QFile::link(QStringLiteral("a"), place.filePath(QStringLiteral("link"))));
    QVERIFY(!openDirectoryWithoutLinks('/' + QFile::encodeName(place.path()) + "//link//").isValid());
    QCOMPARE(errno, ENOTDIR);
}

void TestOpenDirectory::needsAnAbsolutePath()
{
    for (const char* path : {"", ".", "a"}) {
        QVERIFY(!openDirectoryWithoutLinks(path).isValid());
        QCOMPARE(errno, EINVAL);
    }
}

void TestOpenDirectory::opensAPathOfAnyLength()
{
    const QTemporaryDir place;
    QByteArray path = QFile::encodeName(place.path());
    const QByteArray name(200, 'd');
    UniqueFd directory = openDirectoryWithoutLinks(path);
    // Longer than any system call takes.
    while (path.size() < 2 * PATH_MAX) {
        QCOMPARE(::mkdirat(directory.get(), name.constData(), 0700), 0);
        path += '/' + name;
        directory = openDirectoryWithoutLinks(path);
        QVERIFY(directory.isValid());
    }
}

void TestOpenDirectory::tellsWhyThereIsNone_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<int>("error");
    QTest::newRow("missing") << QByteArray("missing") << ENOENT;
    QTest::newRow("missing in between") << QByteArray("missing/a") << ENOENT;
    QTest::newRow("a file") << QByteArray("file") << ENOTDIR;
    QTest::newRow("below a file") << QByteArray("file/a") << ENOTDIR;
}

void TestOpenDirectory::tellsWhyThereIsNone()
{
    QFETCH(QByteArray, path);
    const QTemporaryDir place;
    QVERIFY(QDir(place.path()).mkpath(QStringLiteral("a/b")));
    QVERIFY(QFile(place.filePath(QStringLiteral("file"))).open(QIODevice::WriteOnly));
    QVERIFY(!openDirectoryWithoutLinks(QFile::encodeName(place.path()) + '/' + path).isValid());
    QTEST(errno, "error");
}

void TestOpenDirectory::followsNoLink_data()
{
    QTest::addColumn<QString>("link");
    QTest::newRow("last component") << "a/b/c";
    QTest::newRow("in between") << "a/b";
    QTest::newRow("first of the user's") << "a";
}

void TestOpenDirectory::followsNoLink()
{
    QFETCH(QString, link);
    const QTemporaryDir place;
    const QDir directory(place.path());
    QVERIFY(directory.mkpath(QStringLiteral("a/b/c")));
    const QByteArray path = QFile::encodeName(place.filePath(QStringLiteral("a/b/c")));
    QVERIFY(openDirectoryWithoutLinks(path).isValid());
    QVERIFY(QDir().rename(directory.filePath(link), directory.filePath(QStringLiteral("moved"))));
    QVERIFY(QFile::link(directory.filePath(QStringLiteral("moved")), directory.filePath(link)));
    QVERIFY(QFile::exists(QFile::decodeName(path)));
    QVERIFY(!openDirectoryWithoutLinks(path).isValid());
    QCOMPARE(errno, ENOTDIR);
}

QTEST_GUILESS_MAIN(TestOpenDirectory)
#include "tst_opendirectory.moc"
