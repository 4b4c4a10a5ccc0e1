#include "digest/filedigests.h"

#include "fakefiles.h"
#include "fakelibcrypto.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

class TestFileDigests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void agreesWithQt_data();
    void agreesWithQt();
    void answersInTheOrderAsked();
    void readsOnceInBoundedPieces();
    void readsNoMoreThanThereWasWhenOpened();
    void followsLinks();
    void neverOpensWhatIsNoRegularFile_data();
    void neverOpensWhatIsNoRegularFile();
    void tellsPassingFailuresFromLastingOnes_data();
    void tellsPassingFailuresFromLastingOnes();
    void gathersNothingFromAReadingThatFails_data();
    void gathersNothingFromAReadingThatFails();
    void gathersNothingWhenLibcryptoFails();
    void isRefusedByALease();
    void leavesNoDescriptorOpen();

private:
    QByteArray path(const char* name) const;
    QByteArray makeFile(const char* name, const QByteArray& content) const;

    std::unique_ptr<QTemporaryDir> m_directory;
};

namespace
{
const QVector<QCryptographicHash::Algorithm> all = {QCryptographicHash::Md5, QCryptographicHash::Sha1,
                                                    QCryptographicHash::Sha256};

QVector<QString> qtHex(const QByteArray& data)
{
    QVector<QString> hex;
    for (const QCryptographicHash::Algorithm algorithm : all) {
        hex.append(QString::fromLatin1(QCryptographicHash::hash(data, algorithm).toHex()));
    }
    return hex;
}

QByteArray patterned(int size)
{
    QByteArray data(size, '\0');
    for (int i = 0; i < size; ++i) {
        data[i] = static_cast<char>(i * 31 + i / 251);
    }
    return data;
}
} // namespace

void TestFileDigests::init()
{
    FakeFiles::reset();
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
}

void TestFileDigests::cleanup()
{
    FakeFiles::reset();
}

QByteArray TestFileDigests::path(const char* name) const
{
    return QFile::encodeName(m_directory->path()) + '/' + name;
}

QByteArray TestFileDigests::makeFile(const char* name, const QByteArray& content) const
{
    QByteArray where = path(name);
    QFile file(QFile::decodeName(where));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("cannot write %s", where.constData());
    }
    return where;
}

void TestFileDigests::agreesWithQt_data()
{
    QTest::addColumn<int>("size");
    constexpr int piece = 64 * 1024;
    for (const int size : {0, 1, 55, 56, 63, 64, 65, 4095, 4096, 4097, piece - 1, piece, piece + 1, 2 * piece,
                           3 * piece + 17, 100 * piece + 1}) {
        QTest::addRow("%d", size) << size;
    }
}

void TestFileDigests::agreesWithQt()
{
    QFETCH(int, size);
    const QByteArray data = patterned(size);
    const FileDigests digests = digestsOfFile(makeFile("a", data), all);
    QCOMPARE(digests.hex, qtHex(data));
    QVERIFY(digests.lasting);
}

void TestFileDigests::answersInTheOrderAsked()
{
    const QByteArray file = makeFile("a", "abc");
    const QVector<QString> expected = qtHex("abc");
    const FileDigests digests = digestsOfFile(
        file, {QCryptographicHash::Sha256, QCryptographicHash::Md5, QCryptographicHash::Sha256});
    QCOMPARE(digests.hex, QVector<QString>({expected.at(2), expected.at(0), expected.at(2)}));
}

void TestFileDigests::readsOnceInBoundedPieces()
{
    const QByteArray file = makeFile("a", patterned(5 * 1024 * 1024));
    FakeFiles::reset();
    digestsOfFile(file, all);
    QCOMPARE(FakeFiles::opened, 1);
    QCOMPARE(FakeFiles::reads, 80);
    QCOMPARE(FakeFiles::largestRead, size_t(64 * 1024));
}

void TestFileDigests::readsNoMoreThanThereWasWhenOpened()
{
    // The kernel's files claim to be empty and still have something to read, some of them without end.
    const FileDigests digests = digestsOfFile("/proc/self/status", all);
    QCOMPARE(digests.hex, qtHex(QByteArray()));
    QCOMPARE(FakeFiles::reads, 0);
}

void TestFileDigests::followsLinks()
{
    const QByteArray file = makeFile("a", "abc");
    QCOMPARE(::symlink(file.constData(), path("link").constData()), 0);
    QCOMPARE(digestsOfFile(path("link"), all).hex, qtHex("abc"));
}

void TestFileDigests::neverOpensWhatIsNoRegularFile_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("FIFO") << QByteArray("fifo");
    QTest::newRow("link to a FIFO") << QByteArray("fifolink");
    QTest::newRow("socket") << QByteArray("socket");
    QTest::newRow("dangling link") << QByteArray("dangling");
    QTest::newRow("loop of links") << QByteArray("loop");
    QTest::newRow("directory") << QByteArray("/");
    QTest::newRow("device") << QByteArray("/dev/zero");
    QTest::newRow("missing") << QByteArray("/nonexistent/file");
    QTest::newRow("below a file") << QByteArray("/dev/null/file");
    QTest::newRow("no path") << QByteArray();
    QTest::newRow("too long a name") << '/' + QByteArray(4096, 'n');
}

void TestFileDigests::neverOpensWhatIsNoRegularFile()
{
    QCOMPARE(::mkfifo(path("fifo").constData(), 0600), 0);
    QCOMPARE(::symlink("fifo", path("fifolink").constData()), 0);
    QCOMPARE(::mknod(path("socket").constData(), S_IFSOCK | 0600, 0), 0);
    QCOMPARE(::symlink("nothing", path("dangling").constData()), 0);
    QCOMPARE(::symlink("loop", path("loop").constData()), 0);

    QFETCH(QByteArray, path);
    const bool isMade = !path.isEmpty() && !path.startsWith('/');
    const FileDigests digests = digestsOfFile(isMade ? this->path(path.constData()) : path, all);
    QCOMPARE(digests.hex, QVector<QString>(3));
    QVERIFY(digests.lasting);
    QCOMPARE(FakeFiles::opened, 0);
}

void TestFileDigests::tellsPassingFailuresFromLastingOnes_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<bool>("lasting");
    QTest::newRow("ENOENT") << ENOENT << true;
    QTest::newRow("ENOTDIR") << ENOTDIR << true;
    QTest::newRow("EACCES") << EACCES << true;
    QTest::newRow("EPERM") << EPERM << true;
    QTest::newRow("ELOOP") << ELOOP << true;
    QTest::newRow("ENAMETOOLONG") << ENAMETOOLONG << true;
    QTest::newRow("EMFILE") << EMFILE << false;
    QTest::newRow("ENFILE") << ENFILE << false;
    QTest::newRow("ENOMEM") << ENOMEM << false;
    QTest::newRow("EIO") << EIO << false;
    QTest::newRow("EWOULDBLOCK") << EWOULDBLOCK << false;
    QTest::newRow("EINTR") << EINTR << false;
    QTest::newRow("ESTALE") << ESTALE << false;
    QTest::newRow("ETXTBSY") << ETXTBSY << false;
}

void TestFileDigests::tellsPassingFailuresFromLastingOnes()
{
    QFETCH(int, error);
    QFETCH(bool, lasting);
    const QByteArray file = makeFile("a", "abc");
    FakeFiles::openError = error;
    FileDigests digests = digestsOfFile(file, all);
    QCOMPARE(digests.hex, QVector<QString>(3));
    QCOMPARE(digests.lasting, lasting);

    FakeFiles::reset();
    FakeFiles::lookError = error;
    digests = digestsOfFile(file, all);
    QCOMPARE(digests.hex, QVector<QString>(3));
    QCOMPARE(digests.lasting, lasting);
}

void TestFileDigests::gathersNothingFromAReadingThatFails_data()
{
    QTest::addColumn<int>("failsAt");
    QTest::newRow("at once") << 0;
    QTest::newRow("half-way") << 1;
}

void TestFileDigests::gathersNothingFromAReadingThatFails()
{
    QFETCH(int, failsAt);
    const QByteArray file = makeFile("a", patterned(3 * 1024 * 1024));
    FakeFiles::reset();
    FakeFiles::readError = EIO;
    FakeFiles::readErrorAt = failsAt;
    const FileDigests digests = digestsOfFile(file, all);
    QCOMPARE(digests.hex, QVector<QString>(3));
    QVERIFY(!digests.lasting);
}

void TestFileDigests::gathersNothingWhenLibcryptoFails()
{
    const QByteArray file = makeFile("a", "abc");
    FakeLibcrypto::endsNone = true;
    const FileDigests digests = digestsOfFile(file, all);
    FakeLibcrypto::endsNone = false;
    QCOMPARE(digests.hex, QVector<QString>(3));
    QVERIFY(!digests.lasting);
    QCOMPARE(digestsOfFile(file, all).hex, qtHex("abc"));
}

void TestFileDigests::isRefusedByALease()
{
    const QByteArray file = makeFile("a", "abc");
    const int holder = ::open(file.constData(), O_RDWR | O_CLOEXEC);
    QVERIFY(holder >= 0);
    // A lease is broken by a signal to its holder, which is this process.
    ::signal(SIGIO, SIG_IGN);
    QCOMPARE(::fcntl(holder, F_SETLEASE, F_WRLCK), 0);
    const FileDigests digests = digestsOfFile(file, all);
    ::close(holder);
    QCOMPARE(digests.hex, QVector<QString>(3));
    QVERIFY(!digests.lasting);
}

void TestFileDigests::leavesNoDescriptorOpen()
{
    const QByteArray file = makeFile("a", "abc");
    const int before = ::dup(0);
    ::close(before);
    digestsOfFile(file, all);
    digestsOfFile("/dev/zero", all);
    FakeFiles::readError = EIO;
    digestsOfFile(file, all);
    const int after = ::dup(0);
    ::close(after);
    QCOMPARE(after, before);
}

QTEST_GUILESS_MAIN(TestFileDigests)
#include "tst_filedigests.moc"
