#include "scan/quarantinecopy.h"

#include "common/filename.h"
#include "common/heldfile.h"
#include "common/uniquefd.h"
#include "support/fakeattributes.h"
#include "support/fakefiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
constexpr int bufferSize = 128 * 1024;
const QVector<QByteArray> steps = {"openat create", "fsync file", "renameat2", "fsync directory"};

/// Content that is nowhere the same.
QByteArray content(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 7 + i / 251 + i / 65521) & 0xFF);
    }
    return bytes;
}

bool diskIsFull = false;
} // namespace

extern "C" int fstatvfs(int fd, struct statvfs* disk) noexcept
{
    using Fstatvfs = int (*)(int, struct statvfs*);
    static const auto real = reinterpret_cast<Fstatvfs>(::dlsym(RTLD_NEXT, "fstatvfs"));
    const int result = real(fd, disk);
    disk->f_bfree = diskIsFull ? 0 : disk->f_bfree;
    return result;
}

class TestQuarantineCopy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void copiesEveryByte_data();
    void copiesEveryByte();
    void leavesTheSourceAlone();
    void isReadableByItsOwnerAlone_data();
    void isReadableByItsOwnerAlone();
    void isOnDiskBeforeItReturns();
    void remembersWhatTheSourceWas_data();
    void remembersWhatTheSourceWas();
    void forgetsWhatALinkLedTo_data();
    void forgetsWhatALinkLedTo();
    void needsNoAttributes_data();
    void needsNoAttributes();
    void copiesWhatALinkLeadsTo();
    void takesSourcesOfAnyName();
    void neverReplaces_data();
    void neverReplaces();
    void refusesWhatIsNoRegularFile_data();
    void refusesWhatIsNoRegularFile();
    void refusesAFileUnderLease();
    void needsAQuarantineDirectory_data();
    void needsAQuarantineDirectory();

    void keepsHoles_data();
    void keepsHoles();
    void doesNotBeginWhatDoesNotFit();
    void goesOnAfterAShortWrite();
    void goesOnAfterAnInterruption_data();
    void goesOnAfterAnInterruption();
    void copiesNoMoreThanTheSourceHeld();
    void copiesWhatIsLeftOfASourceThatShrinks();

    void leavesNothingAfterAFailure_data();
    void leavesNothingAfterAFailure();
    void growsUnderAPassingName();
    void linksThePassingNameWhereItCannotBeRenamed();

private:
    QString path(const char* name) const
    {
        return m_directory->filePath(QString::fromUtf8(name));
    }
    QByteArray bytePath(const char* name) const
    {
        return path(name).toUtf8();
    }
    void write(const char* name, const QByteArray& bytes) const
    {
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(bytes), qint64(bytes.size()));
    }
    QByteArray read(const char* name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be read");
    }
    QStringList quarantined() const
    {
        return QDir(path("quarantine"))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    int copy() const
    {
        return copyIntoQuarantine(HeldFile(bytePath("source")), path("quarantine/copy.tvq"));
    }
    static QStringList openDescriptors()
    {
        return QDir(QStringLiteral("/proc/self/fd"))
            .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    }

    QScopedPointer<QTemporaryDir> m_directory;
    QStringList m_descriptors;
};

void TestQuarantineCopy::init()
{
    FakeFiles::reset();
    FakeAttributes::reset();
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    m_directory->setAutoRemove(false);
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("quarantine")));
    m_descriptors = openDescriptors();
}

void TestQuarantineCopy::cleanup()
{
    FakeFiles::reset();
    QCOMPARE(openDescriptors(), m_descriptors);
    // QTemporaryDir leaves behind what has a name that is not UTF-8.
    QVERIFY(std::filesystem::remove_all(m_directory->path().toStdString()) > 0);
}

void TestQuarantineCopy::copiesEveryByte_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {0, 1, 68, 4096, bufferSize - 1, bufferSize, bufferSize + 1, 3 * bufferSize + 17}) {
        QTest::addRow("%d bytes", size) << size;
    }
}

void TestQuarantineCopy::copiesEveryByte()
{
    QFETCH(int, size);
    write("source", content(size));
    QCOMPARE(copy(), 0);
    QVERIFY(read("quarantine/copy.tvq") == content(size));
    QCOMPARE(quarantined(), {QStringLiteral("copy.tvq")});
    QCOMPARE(FakeFiles::calls, steps);
}

void TestQuarantineCopy::leavesTheSourceAlone()
{
    write("source", content(1000));
    QCOMPARE(::chmod(bytePath("source").constData(), 0604), 0);
    QCOMPARE(copy(), 0);
    QCOMPARE(read("source"), content(1000));
    struct stat status = {};
    QCOMPARE(::stat(bytePath("source").constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777U, 0604U);
}

void TestQuarantineCopy::isReadableByItsOwnerAlone_data()
{
    QTest::addColumn<uint>("sourceMode");
    QTest::addColumn<uint>("mask");
    QTest::newRow("program") << 0777U << 022U;
    QTest::newRow("program that changes user") << 06755U << 022U;
    QTest::newRow("open mask") << 0666U << 0U;
    QTest::newRow("narrow mask") << 0400U << 077U;
}

void TestQuarantineCopy::isReadableByItsOwnerAlone()
{
    QFETCH(uint, sourceMode);
    QFETCH(uint, mask);
    write("source", content(100));
    QCOMPARE(::chmod(bytePath("source").constData(), sourceMode), 0);
    const mode_t before = ::umask(mask);
    const int result = copy();
    ::umask(before);
    QCOMPARE(result, 0);
    struct stat status = {};
    QCOMPARE(::stat(bytePath("quarantine/copy.tvq").constData(), &status), 0);
    QCOMPARE(status.st_mode, static_cast<mode_t>(S_IFREG | 0400));
    QCOMPARE(status.st_nlink, nlink_t(1));
}

void TestQuarantineCopy::isOnDiskBeforeItReturns()
{
    write("source", content(1000));
    bool wasVisible = false;
    FakeFiles::onCall = [&](const QByteArray& call) {
        wasVisible = wasVisible || (call != "fsync directory" && QFile::exists(path("quarantine/copy.tvq")));
    };
    QCOMPARE(copy(), 0);
    // The name comes after the bytes, and the directory that holds the name last.
    QCOMPARE(FakeFiles::calls, steps);
    QVERIFY(!wasVisible);
}

void TestQuarantineCopy::remembersWhatTheSourceWas_data()
{
    QTest::addColumn<uint>("mode");
    QTest::newRow("plain") << 0640U;
    QTest::newRow("program that changes user") << 06755U;
    QTest::newRow("unreadable") << 0U;
}

void TestQuarantineCopy::remembersWhatTheSourceWas()
{
    QFETCH(uint, mode);
    write("source", content(100));
    QCOMPARE(::chmod(bytePath("source").constData(), mode), 0);
    const timespec times[] = {{1000000000, 5}, {1234567890, 12345678}};
    QCOMPARE(::utimensat(AT_FDCWD, bytePath("source").constData(), times, 0), 0);
    struct stat passing = {};
    QByteArray whenSynced;
    FakeFiles::onCall = [&](const QByteArray& call) {
        if (call == "fsync file") {
            const QByteArray name = path("quarantine/").toUtf8() + quarantined().value(0).toUtf8();
            QCOMPARE(::stat(name.constData(), &passing), 0);
            whenSynced = FakeAttributes::value(passing, "user.tvfilemon.original");
        }
    };
    QCOMPARE(copy(), 0);
    const QByteArray expected = "mode=" + QByteArray::number(mode, 8).rightJustified(4, '0') +
                                " uid=" + QByteArray::number(::getuid()) +
                                " gid=" + QByteArray::number(::getgid()) + " mtime=1234567890.012345678";
    QCOMPARE(whenSynced, expected);
    struct stat status = {};
    QCOMPARE(::stat(bytePath("quarantine/copy.tvq").constData(), &status), 0);
    QCOMPARE(FakeAttributes::value(status, "user.tvfilemon.original"), expected);
    // The copy itself is nobody's but the service's.
    QCOMPARE(status.st_mode, static_cast<mode_t>(S_IFREG | 0400));
    QVERIFY(status.st_mtime > 1234567890);
}

void TestQuarantineCopy::forgetsWhatALinkLedTo_data()
{
    QTest::addColumn<QString>("link");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("source");
    QTest::newRow("a link to a file") << "link"
                                      << "real/file" << QByteArray("link");
    QTest::newRow("a link to its directory") << "link"
                                             << "real" << QByteArray("link/file");
}

void TestQuarantineCopy::forgetsWhatALinkLedTo()
{
    QFETCH(QString, link);
    QFETCH(QString, target);
    QFETCH(QByteArray, source);
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("real")));
    write("real/file", content(100));
    QVERIFY(QFile::link(target, m_directory->filePath(link)));
    QCOMPARE(copyIntoQuarantine(HeldFile(bytePath(source.constData())), path("quarantine/copy.tvq")), 0);
    struct stat status = {};
    QCOMPARE(::stat(bytePath("quarantine/copy.tvq").constData(), &status), 0);
    QVERIFY2(FakeAttributes::value(status, "user.tvfilemon.original").isNull(),
             "it would be given back, where the link was, with the permissions of another user's file");
    QCOMPARE(read("quarantine/copy.tvq"), content(100));
}

void TestQuarantineCopy::needsNoAttributes_data()
{
    QTest::addColumn<int>("error");
    QTest::newRow("none on this file system") << ENOTSUP;
    QTest::newRow("no room for one") << ENOSPC;
    QTest::newRow("not allowed") << EPERM;
}

void TestQuarantineCopy::needsNoAttributes()
{
    QFETCH(int, error);
    write("source", content(100));
    FakeAttributes::error = error;
    QCOMPARE(copy(), 0);
    QCOMPARE(read("quarantine/copy.tvq"), content(100));
    QCOMPARE(FakeFiles::calls, steps);
}

void TestQuarantineCopy::copiesWhatALinkLeadsTo()
{
    write("target", content(500));
    QVERIFY(QFile::link(QStringLiteral("target"), path("source")));
    QCOMPARE(copy(), 0);
    QCOMPARE(read("quarantine/copy.tvq"), content(500));
    QVERIFY(!QFileInfo(path("quarantine/copy.tvq")).isSymLink());
    QVERIFY(QFileInfo(path("source")).isSymLink());
}

void TestQuarantineCopy::takesSourcesOfAnyName()
{
    write("source", content(50));
    const QByteArray source = bytePath("") + "/\xFF\xE9 %s\n";
    QCOMPARE(::rename(bytePath("source").constData(), source.constData()), 0);
    QCOMPARE(copyIntoQuarantine(HeldFile(source), path("quarantine/copy.tvq")), 0);
    QCOMPARE(read("quarantine/copy.tvq"), content(50));
}

void TestQuarantineCopy::neverReplaces_data()
{
    QTest::addColumn<QByteArray>("kind");
    for (const char* kind : {"file", "directory", "link to a file", "link that leads nowhere"}) {
        QTest::addRow("%s", kind) << QByteArray(kind);
    }
}

void TestQuarantineCopy::neverReplaces()
{
    QFETCH(QByteArray, kind);
    write("source", content(100));
    write("other", "other");
    if (kind == "file") {
        write("quarantine/copy.tvq", "earlier");
    } else if (kind == "directory") {
        QVERIFY(QDir().mkdir(path("quarantine/copy.tvq")));
    } else {
        QVERIFY(
            QFile::link(path(kind == "link to a file" ? "other" : "nowhere"), path("quarantine/copy.tvq")));
    }
    QCOMPARE(copy(), EEXIST);
    QCOMPARE(quarantined(), {QStringLiteral("copy.tvq")});
    if (kind == "file") {
        QCOMPARE(read("quarantine/copy.tvq"), QByteArray("earlier"));
    }
    QCOMPARE(read("other"), QByteArray("other"));
    QVERIFY(!QFile::exists(path("nowhere")));
}

void TestQuarantineCopy::refusesWhatIsNoRegularFile_data()
{
    QTest::addColumn<QByteArray>("source");
    QTest::addColumn<int>("error");
    QTest::newRow("missing") << QByteArray("missing") << ENOENT;
    QTest::newRow("empty path") << QByteArray() << ENOENT;
    QTest::newRow("link that leads nowhere") << QByteArray("dangling") << ENOENT;
    QTest::newRow("below a file") << QByteArray("file/x") << ENOTDIR;
    QTest::newRow("directory") << QByteArray("directory") << EISDIR;
    QTest::newRow("FIFO") << QByteArray("fifo") << EINVAL;
    QTest::newRow("link to a FIFO") << QByteArray("fifolink") << EINVAL;
    QTest::newRow("device") << QByteArray("device") << EINVAL;
    QTest::newRow("socket") << QByteArray("socket") << EINVAL;
    QTest::newRow("link to itself") << QByteArray("loop") << ELOOP;
}

void TestQuarantineCopy::refusesWhatIsNoRegularFile()
{
    QFETCH(QByteArray, source);
    write("file", "x");
    QVERIFY(QDir().mkdir(path("directory")));
    QCOMPARE(::mkfifo(bytePath("fifo").constData(), 0600), 0);
    QCOMPARE(::symlink("nowhere", bytePath("dangling").constData()), 0);
    QCOMPARE(::symlink("fifo", bytePath("fifolink").constData()), 0);
    QCOMPARE(::symlink("/dev/zero", bytePath("device").constData()), 0);
    QCOMPARE(::symlink("loop", bytePath("loop").constData()), 0);
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, bytePath("socket").constData(), sizeof(address.sun_path));
    QCOMPARE(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);

    const QByteArray full = source.isEmpty() ? QByteArray() : bytePath(source.constData());
    QTEST(copyIntoQuarantine(HeldFile(full), path("quarantine/copy.tvq")), "error");
    QCOMPARE(quarantined(), QStringList());
    QVERIFY(FakeFiles::calls.isEmpty());
}

void TestQuarantineCopy::refusesAFileUnderLease()
{
    write("source", content(10));
    ::signal(SIGIO, SIG_IGN);
    UniqueFd holder(::open(bytePath("source").constData(), O_RDWR | O_CLOEXEC));
    QCOMPARE(::fcntl(holder.get(), F_SETLEASE, F_WRLCK), 0);
    QCOMPARE(copy(), EWOULDBLOCK);
    QCOMPARE(quarantined(), QStringList());
    holder.reset();
    QCOMPARE(copy(), 0);
}

void TestQuarantineCopy::needsAQuarantineDirectory_data()
{
    QTest::addColumn<QString>("destination");
    QTest::addColumn<int>("error");
    QTest::newRow("missing") << "missing/copy.tvq" << ENOENT;
    QTest::newRow("plain file in its place") << "file/copy.tvq" << ENOTDIR;
    QTest::newRow("link to a plain file") << "link/copy.tvq" << ENOTDIR;
}

void TestQuarantineCopy::needsAQuarantineDirectory()
{
    QFETCH(QString, destination);
    write("source", content(10));
    write("file", "in its place");
    QVERIFY(QFile::link(QStringLiteral("file"), path("link")));
    QTEST(copyIntoQuarantine(HeldFile(bytePath("source")), m_directory->filePath(destination)), "error");
    QCOMPARE(read("file"), QByteArray("in its place"));
    QVERIFY(!QFile::exists(path("missing")));
}

void TestQuarantineCopy::keepsHoles_data()
{
    QTest::addColumn<QVector<qint64>>("places");
    QTest::newRow("a hole only") << QVector<qint64>();
    QTest::newRow("data first") << QVector<qint64>{0};
    QTest::newRow("data last") << QVector<qint64>{(qint64(1) << 40) - 1000};
    QTest::newRow("data in between") << QVector<qint64>{qint64(1) << 30, (qint64(1) << 35) + 12345};
}

void TestQuarantineCopy::keepsHoles()
{
    QFETCH(QVector<qint64>, places);
    constexpr qint64 size = qint64(1) << 40;
    QFile source(path("source"));
    QVERIFY(source.open(QIODevice::WriteOnly));
    QVERIFY(source.resize(size));
    for (const qint64 place : places) {
        QVERIFY(source.seek(place));
        QCOMPARE(source.write(content(1000)), qint64(1000));
    }
    source.close();
    // It would take hours otherwise.
    QCOMPARE(copy(), 0);
    QFile copied(path("quarantine/copy.tvq"));
    QVERIFY(copied.open(QIODevice::ReadOnly));
    QCOMPARE(copied.size(), size);
    for (const qint64 place : places) {
        QVERIFY(copied.seek(place));
        QCOMPARE(copied.read(1000), content(1000));
    }
    struct stat status = {};
    QCOMPARE(::fstat(copied.handle(), &status), 0);
    QVERIFY(status.st_blocks < 1024);
}

void TestQuarantineCopy::doesNotBeginWhatDoesNotFit()
{
    write("source", content(10));
    int writes = 0;
    FakeFiles::onCall = [&writes](const QByteArray& call) {
        writes += call == "write" ? 1 : 0;
    };
    diskIsFull = true;
    const int result = copy();
    diskIsFull = false;
    QCOMPARE(result, ENOSPC);
    QCOMPARE(writes, 0);
    QCOMPARE(quarantined(), QStringList());
}

void TestQuarantineCopy::goesOnAfterAShortWrite()
{
    write("source", content(bufferSize + 1000));
    FakeFiles::longestWrite = 777;
    QCOMPARE(copy(), 0);
    QVERIFY(read("quarantine/copy.tvq") == content(bufferSize + 1000));
}

void TestQuarantineCopy::goesOnAfterAnInterruption_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::newRow("read") << QByteArray("read");
    QTest::newRow("write") << QByteArray("write");
}

void TestQuarantineCopy::goesOnAfterAnInterruption()
{
    QFETCH(QByteArray, call);
    write("source", content(2 * bufferSize));
    FakeFiles::failures.insert(call, {EINTR, 1, 3});
    QCOMPARE(copy(), 0);
    QVERIFY(read("quarantine/copy.tvq") == content(2 * bufferSize));
    QCOMPARE(FakeFiles::failures.value(call).count, 0);
}

void TestQuarantineCopy::copiesNoMoreThanTheSourceHeld()
{
    write("source", content(bufferSize + 10));
    QFile growing(path("source"));
    QVERIFY(growing.open(QIODevice::Append | QIODevice::Unbuffered));
    FakeFiles::onCall = [&growing](const QByteArray& call) {
        if (call == "read") {
            growing.write(content(bufferSize));
        }
    };
    QCOMPARE(copy(), 0);
    FakeFiles::onCall = nullptr;
    QVERIFY(growing.size() > qint64(2) * bufferSize);
    QVERIFY(read("quarantine/copy.tvq") == content(bufferSize + 10));
}

void TestQuarantineCopy::copiesWhatIsLeftOfASourceThatShrinks()
{
    write("source", content(2 * bufferSize));
    FakeFiles::onCall = [this](const QByteArray& call) {
        if (call == "write") {
            QVERIFY(QFile::resize(path("source"), bufferSize + 5));
        }
    };
    QCOMPARE(copy(), 0);
    QVERIFY(read("quarantine/copy.tvq") == content(bufferSize + 5));
}

void TestQuarantineCopy::leavesNothingAfterAFailure_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<int>("after");
    QTest::addColumn<int>("error");
    QTest::newRow("not to be made") << QByteArray("openat create") << 0 << EDQUOT;
    QTest::newRow("no space at once") << QByteArray("write") << 0 << ENOSPC;
    QTest::newRow("no space half-way") << QByteArray("write") << 2 << ENOSPC;
    QTest::newRow("source unreadable at once") << QByteArray("read") << 0 << EIO;
    QTest::newRow("source unreadable half-way") << QByteArray("read") << 2 << EIO;
    QTest::newRow("not to be synced") << QByteArray("fsync file") << 0 << EIO;
    QTest::newRow("not to be renamed") << QByteArray("renameat2") << 0 << EACCES;
    QTest::newRow("directory not to be synced") << QByteArray("fsync directory") << 0 << EIO;
}

void TestQuarantineCopy::leavesNothingAfterAFailure()
{
    QFETCH(QByteArray, call);
    QFETCH(int, after);
    QFETCH(int, error);
    write("source", content(4 * bufferSize));
    FakeFiles::failures.insert(call, {error, after});
    QCOMPARE(copy(), error);
    // It did come to the failure.
    QCOMPARE(FakeFiles::failures.value(call).count, 0);
    QCOMPARE(quarantined(), QStringList());
    QVERIFY(read("source") == content(4 * bufferSize));
}

void TestQuarantineCopy::growsUnderAPassingName()
{
    write("source", content(2 * bufferSize));
    QStringList duringTheCopy;
    FakeFiles::onCall = [&](const QByteArray& call) {
        if (call == "write") {
            duringTheCopy = quarantined();
        }
    };
    QCOMPARE(copy(), 0);
    QCOMPARE(quarantined(), {QStringLiteral("copy.tvq")});
    QCOMPARE(duringTheCopy.size(), 1);
    QVERIFY(duringTheCopy.constFirst() != QStringLiteral("copy.tvq"));
    // No scan takes it for a user's file.
    QVERIFY(duringTheCopy.constFirst().endsWith(QStringLiteral(".tvq")));
}

void TestQuarantineCopy::linksThePassingNameWhereItCannotBeRenamed()
{
    write("source", content(100));
    FakeFiles::failures.insert("renameat2", {EINVAL, 0, 2});
    QCOMPARE(copy(), 0);
    QCOMPARE(read("quarantine/copy.tvq"), content(100));
    QCOMPARE(quarantined(), {QStringLiteral("copy.tvq")});
    // That replaces nothing either.
    QCOMPARE(copy(), EEXIST);
    QCOMPARE(quarantined(), {QStringLiteral("copy.tvq")});
}

QTEST_GUILESS_MAIN(TestQuarantineCopy)
#include "tst_quarantinecopy.moc"
