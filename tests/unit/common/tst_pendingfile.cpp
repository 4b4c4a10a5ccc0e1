#include "common/pendingfile.h"

#include "support/fakefiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

class TestPendingFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void hasItsNameOnlyWhenPublished_data();
    void hasItsNameOnlyWhenPublished();
    void goesWhenItIsNotPublished();
    void replacesNothing_data();
    void replacesNothing();
    void takesNoPassingNameFromOthers_data();
    void takesNoPassingNameFromOthers();
    void canBeWithdrawn();

private:
    QStringList names() const
    {
        return QDir(m_place->path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    QByteArray path(const char* name) const
    {
        return QFile::encodeName(m_place->filePath(QString::fromLatin1(name)));
    }
    void makeLink(const char* name) const
    {
        QCOMPARE(::symlink("target", path(name).constData()), 0);
    }

    std::unique_ptr<QTemporaryDir> m_place;
    UniqueFd m_directory;
};

void TestPendingFile::init()
{
    FakeFiles::reset();
    m_place = std::make_unique<QTemporaryDir>();
    m_directory.reset(::open(QFile::encodeName(m_place->path()).constData(), O_DIRECTORY | O_CLOEXEC));
    QVERIFY(m_directory.isValid());
}

void TestPendingFile::hasItsNameOnlyWhenPublished_data()
{
    QTest::addColumn<bool>("canRename");
    QTest::newRow("by renaming") << true;
    QTest::newRow("by linking") << false;
}

void TestPendingFile::hasItsNameOnlyWhenPublished()
{
    QFETCH(bool, canRename);
    if (!canRename) {
        FakeFiles::failures.insert("renameat2", {EINVAL});
    }
    {
        PendingFile file(m_directory, "name", "passing");
        QCOMPARE(names(), QStringList());
        QVERIFY(file.create(0600));
        QCOMPARE(names(), {QStringLiteral("passing")});
        QCOMPARE(::write(file.file(), "content", 7), ssize_t(7));
        QVERIFY(file.publish());
        QVERIFY(names().contains(QStringLiteral("name")));
    }
    QCOMPARE(names(), {QStringLiteral("name")});
    struct stat status = {};
    QCOMPARE(::stat(path("name").constData(), &status), 0);
    QCOMPARE(status.st_mode, static_cast<mode_t>(S_IFREG | 0600));
    QCOMPARE(status.st_size, off_t(7));
    QCOMPARE(status.st_nlink, nlink_t(1));
}

void TestPendingFile::goesWhenItIsNotPublished()
{
    {
        PendingFile file(m_directory, "name", "passing");
        QVERIFY(file.create(0600));
        FakeFiles::failures.insert("renameat2", {EACCES});
        QVERIFY(!file.publish());
        QCOMPARE(errno, EACCES);
        errno = EDOM;
    }
    // The caller still has to tell why it failed.
    QCOMPARE(errno, EDOM);
    QCOMPARE(names(), QStringList());
}

void TestPendingFile::replacesNothing_data()
{
    QTest::addColumn<QByteArray>("kind");
    QTest::addColumn<bool>("canRename");
    for (const char* kind : {"file", "directory", "link"}) {
        QTest::addRow("%s, renaming", kind) << QByteArray(kind) << true;
        QTest::addRow("%s, linking", kind) << QByteArray(kind) << false;
    }
}

void TestPendingFile::replacesNothing()
{
    QFETCH(QByteArray, kind);
    QFETCH(bool, canRename);
    if (kind == "file") {
        QVERIFY(QFile(QFile::decodeName(path("name"))).open(QIODevice::WriteOnly));
    } else if (kind == "directory") {
        QCOMPARE(::mkdir(path("name").constData(), 0700), 0);
    } else {
        makeLink("name");
    }
    struct stat before = {};
    QCOMPARE(::lstat(path("name").constData(), &before), 0);
    if (!canRename) {
        FakeFiles::failures.insert("renameat2", {EINVAL});
    }
    {
        PendingFile file(m_directory, "name", "passing");
        QVERIFY(file.create(0600));
        QVERIFY(!file.publish());
        QCOMPARE(errno, EEXIST);
    }
    struct stat after = {};
    QCOMPARE(::lstat(path("name").constData(), &after), 0);
    QCOMPARE(after.st_ino, before.st_ino);
    QVERIFY(!QFile::exists(QFile::decodeName(path("passing"))));
    QVERIFY(!QFile::exists(QFile::decodeName(path("target"))));
}

void TestPendingFile::takesNoPassingNameFromOthers_data()
{
    QTest::addColumn<bool>("isLink");
    QTest::newRow("file") << false;
    QTest::newRow("link") << true;
}

void TestPendingFile::takesNoPassingNameFromOthers()
{
    QFETCH(bool, isLink);
    if (isLink) {
        makeLink("passing");
    } else {
        QVERIFY(QFile(QFile::decodeName(path("passing"))).open(QIODevice::WriteOnly));
    }
    {
        PendingFile file(m_directory, "name", "passing");
        QVERIFY(!file.create(0600));
        QCOMPARE(errno, EEXIST);
    }
    // It is somebody else's, and stays.
    struct stat status = {};
    QCOMPARE(::lstat(path("passing").constData(), &status), 0);
    QVERIFY(!QFile::exists(QFile::decodeName(path("target"))));
}

void TestPendingFile::canBeWithdrawn()
{
    PendingFile file(m_directory, "name", "passing");
    QVERIFY(file.create(0600));
    QVERIFY(file.publish());
    errno = EDOM;
    FakeFiles::failures.insert("unlinkat", {EACCES});
    file.withdraw();
    QCOMPARE(errno, EDOM);
    file.withdraw();
    QCOMPARE(names(), QStringList());
}

QTEST_GUILESS_MAIN(TestPendingFile)
#include "tst_pendingfile.moc"
