#include "common/checkedfile.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using Kind = CheckedFile::Kind;
Q_DECLARE_METATYPE(CheckedFile::Kind)

class TestCheckedFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void tellsWhatIsThere_data();
    void tellsWhatIsThere();
    void tellsWhyNothingIsThere_data();
    void tellsWhyNothingIsThere();
    void tellsSizeModeAndIdentity();
    void opensForReadingOnlyAndWithoutWaiting();
    void opensADirectory();
    void opensNoSpecialFile_data();
    void opensNoSpecialFile();
    void cannotOpenASocket();
    void opensWhatItLookedAt_data();
    void opensWhatItLookedAt();
    void opensAFileThatIsGone();
    void holdsALinkInADirectoryItself();
    void refusesAFileUnderLeaseAtOnce();
    void closesWhatItHolds();

private:
    QByteArray path(const char* name) const
    {
        return QFile::encodeName(m_directory->path()) + '/' + name;
    }
    void write(const char* name, const QByteArray& content) const
    {
        QFile file(m_directory->filePath(QString::fromLatin1(name)));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), qint64(content.size()));
    }
    static QByteArray contentOf(const UniqueFd& fd)
    {
        char buffer[100];
        const ssize_t size = ::read(fd.get(), buffer, sizeof(buffer));
        return QByteArray(buffer, static_cast<int>(qMax(size, ssize_t(0))));
    }
    static UniqueFd listeningSocket(const QByteArray& path)
    {
        UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path.constData(), sizeof(address.sun_path));
        if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            qFatal("cannot bind");
        }
        return fd;
    }

    QScopedPointer<QTemporaryDir> m_directory;
};

void TestCheckedFile::init()
{
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
}

void TestCheckedFile::tellsWhatIsThere_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<Kind>("kind");
    QTest::newRow("file") << QByteArray("file") << Kind::Regular;
    QTest::newRow("link to a file") << QByteArray("link") << Kind::Regular;
    QTest::newRow("directory") << QByteArray("directory") << Kind::Directory;
    QTest::newRow("link to a directory") << QByteArray("dirlink") << Kind::Directory;
    QTest::newRow("FIFO") << QByteArray("fifo") << Kind::Special;
    QTest::newRow("link to a FIFO") << QByteArray("fifolink") << Kind::Special;
    QTest::newRow("link to a device") << QByteArray("device") << Kind::Special;
    QTest::newRow("socket") << QByteArray("socket") << Kind::Other;
    QTest::newRow("link that leads nowhere") << QByteArray("dangling") << Kind::Missing;
    QTest::newRow("nothing") << QByteArray("nothing") << Kind::Missing;
}

void TestCheckedFile::tellsWhatIsThere()
{
    QFETCH(QByteArray, name);
    write("file", "x");
    QCOMPARE(::mkdir(path("directory").constData(), 0700), 0);
    QCOMPARE(::mkfifo(path("fifo").constData(), 0600), 0);
    QCOMPARE(::symlink("file", path("link").constData()), 0);
    QCOMPARE(::symlink("directory", path("dirlink").constData()), 0);
    QCOMPARE(::symlink("fifo", path("fifolink").constData()), 0);
    QCOMPARE(::symlink("/dev/null", path("device").constData()), 0);
    QCOMPARE(::symlink("nowhere", path("dangling").constData()), 0);
    const UniqueFd socket = listeningSocket(path("socket"));
    QTEST(CheckedFile(path(name.constData())).kind(), "kind");
}

void TestCheckedFile::tellsWhyNothingIsThere_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("error");
    QTest::newRow("nothing") << QByteArray("nothing") << ENOENT;
    QTest::newRow("below a file") << QByteArray("file/x") << ENOTDIR;
    QTest::newRow("link to itself") << QByteArray("loop") << ELOOP;
    QTest::newRow("name too long") << QByteArray(256, 'x') << ENAMETOOLONG;
}

void TestCheckedFile::tellsWhyNothingIsThere()
{
    QFETCH(QByteArray, name);
    QFETCH(int, error);
    write("file", "x");
    QCOMPARE(::symlink("loop", path("loop").constData()), 0);
    const QByteArray full = path(name.constData());
    errno = 0;
    const CheckedFile checked(full);
    const int told = errno;
    QCOMPARE(checked.kind(), Kind::Missing);
    QCOMPARE(told, error);
    QCOMPARE(checked.status().st_mode, 0U);
    QCOMPARE(checked.status().st_ino, ino_t(0));
    const UniqueFd opened = checked.openForReading();
    QVERIFY(!opened.isValid());
}

void TestCheckedFile::tellsSizeModeAndIdentity()
{
    write("file", "12345");
    QCOMPARE(::chmod(path("file").constData(), 0640), 0);
    QCOMPARE(::symlink("file", path("link").constData()), 0);
    struct stat expected = {};
    QCOMPARE(::stat(path("file").constData(), &expected), 0);
    const CheckedFile checked(path("link"));
    QCOMPARE(checked.status().st_size, off_t(5));
    QCOMPARE(checked.status().st_mode, static_cast<mode_t>(S_IFREG | 0640));
    QCOMPARE(checked.status().st_ino, expected.st_ino);
    QCOMPARE(checked.status().st_dev, expected.st_dev);
}

void TestCheckedFile::opensForReadingOnlyAndWithoutWaiting()
{
    write("file", "content");
    const CheckedFile checked(path("file"));
    const UniqueFd opened = checked.openForReading();
    QVERIFY(opened.isValid());
    QCOMPARE(contentOf(opened), QByteArray("content"));
    const int flags = ::fcntl(opened.get(), F_GETFL);
    QCOMPARE(flags & O_ACCMODE, O_RDONLY);
    QVERIFY((flags & O_NONBLOCK) != 0);
    QVERIFY((::fcntl(opened.get(), F_GETFD) & FD_CLOEXEC) != 0);
    // Each descriptor reads from the start.
    QCOMPARE(contentOf(checked.openForReading()), QByteArray("content"));
}

void TestCheckedFile::opensADirectory()
{
    const UniqueFd opened = CheckedFile(path("")).openForReading();
    struct stat status = {};
    QCOMPARE(::fstat(opened.get(), &status), 0);
    QVERIFY(S_ISDIR(status.st_mode));
}

void TestCheckedFile::opensNoSpecialFile_data()
{
    QTest::addColumn<QByteArray>("target");
    QTest::newRow("FIFO") << QByteArray("fifo");
    QTest::newRow("device") << QByteArray("/dev/null");
}

void TestCheckedFile::opensNoSpecialFile()
{
    QFETCH(QByteArray, target);
    QCOMPARE(::mkfifo(path("fifo").constData(), 0600), 0);
    QCOMPARE(::symlink(target.constData(), path("link").constData()), 0);
    const CheckedFile checked(path("link"));
    errno = 0;
    const UniqueFd opened = checked.openForReading();
    QCOMPARE(errno, EINVAL);
    QVERIFY(!opened.isValid());
}

void TestCheckedFile::cannotOpenASocket()
{
    const UniqueFd socket = listeningSocket(path("socket"));
    const CheckedFile checked(path("socket"));
    errno = 0;
    const UniqueFd opened = checked.openForReading();
    QCOMPARE(errno, ENXIO);
    QVERIFY(!opened.isValid());
}

void TestCheckedFile::opensWhatItLookedAt_data()
{
    QTest::addColumn<bool>("byLink");
    QTest::newRow("the file is replaced") << false;
    QTest::newRow("a link is led elsewhere") << true;
}

void TestCheckedFile::opensWhatItLookedAt()
{
    QFETCH(bool, byLink);
    write("file", "looked at");
    QCOMPARE(::mkfifo(path("fifo").constData(), 0600), 0);
    QCOMPARE(::symlink("file", path("link").constData()), 0);
    QCOMPARE(::symlink("fifo", path("fifolink").constData()), 0);
    const CheckedFile checked(path(byLink ? "link" : "file"));
    QCOMPARE(
        ::rename(path(byLink ? "fifolink" : "fifo").constData(), path(byLink ? "link" : "file").constData()),
        0);
    // Opening by the path would find the FIFO now.
    QCOMPARE(CheckedFile(path(byLink ? "link" : "file")).kind(), Kind::Special);
    QCOMPARE(contentOf(checked.openForReading()), QByteArray("looked at"));
}

void TestCheckedFile::opensAFileThatIsGone()
{
    write("file", "still held");
    const CheckedFile checked(path("file"));
    QCOMPARE(::unlink(path("file").constData()), 0);
    QCOMPARE(contentOf(checked.openForReading()), QByteArray("still held"));
}

void TestCheckedFile::refusesAFileUnderLeaseAtOnce()
{
    write("file", "leased");
    ::signal(SIGIO, SIG_IGN);
    UniqueFd holder(::open(path("file").constData(), O_RDWR | O_CLOEXEC));
    QCOMPARE(::fcntl(holder.get(), F_SETLEASE, F_WRLCK), 0);
    QElapsedTimer timer;
    timer.start();
    const CheckedFile checked(path("file"));
    QCOMPARE(checked.kind(), Kind::Regular);
    errno = 0;
    const UniqueFd refused = checked.openForReading();
    QCOMPARE(errno, EWOULDBLOCK);
    QVERIFY(!refused.isValid());
    QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
    holder.reset();
    QCOMPARE(contentOf(checked.openForReading()), QByteArray("leased"));
}

void TestCheckedFile::closesWhatItHolds()
{
    write("file", "x");
    // The next free number is the same before and after.
    const int before = UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)).get();
    {
        const CheckedFile checked(path("file"));
        QVERIFY((::fcntl(before, F_GETFD) & FD_CLOEXEC) != 0);
        QVERIFY((::fcntl(before, F_GETFL) & O_PATH) != 0);
    }
    QCOMPARE(UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)).get(), before);
}

void TestCheckedFile::holdsALinkInADirectoryItself()
{
    const QTemporaryDir place;
    QFile file(place.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write("abc"), qint64(3));
    file.close();
    QVERIFY(QFile::link(QStringLiteral("file"), place.filePath(QStringLiteral("link"))));
    const UniqueFd directory(::open(QFile::encodeName(place.path()).constData(), O_DIRECTORY | O_CLOEXEC));

    const CheckedFile regular(directory, "file");
    QCOMPARE(regular.kind(), Kind::Regular);
    QCOMPARE(regular.status().st_size, off_t(3));
    QVERIFY(regular.openForReading().isValid());

    const CheckedFile link(directory, "link");
    QCOMPARE(link.kind(), Kind::Other);
    QVERIFY(!link.openForReading().isValid());
    QCOMPARE(errno, ELOOP);

    QCOMPARE(CheckedFile(directory, "missing").kind(), Kind::Missing);
    QCOMPARE(errno, ENOENT);
}

QTEST_GUILESS_MAIN(TestCheckedFile)
#include "tst_checkedfile.moc"
