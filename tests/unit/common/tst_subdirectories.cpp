#include "common/subdirectories.h"

#include "common/filename.h"
#include "common/owndevices.h"
#include "common/uniquefd.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

class TestSubdirectories : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listsRealVisibleDirectoriesOnly();
    void listsWhatQtLists();
    void listsWhatTakesManyReads();
    void keepsNamesThatAreNotUtf8();
    void isEmptyForWhatCannotBeRead();
    void leavesNoDescriptorOpen();
    void believesNoForeignDirectoryWhatIsInIt_data();
    void believesNoForeignDirectoryWhatIsInIt();
    void looksAtNoEntryOfAnOwnDirectory();
};

namespace
{
/// What every entry says to be, unless it is -1.
int forgedType = -1;
/// How many entries were looked at themselves.
int looks = 0;

/// /proc is neither this machine's root nor its /home, whatever they are.
const QByteArray foreign = "/proc/self";

template <typename Function> Function* realFunction(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

QVector<QByteArray> sorted(QVector<QByteArray> names)
{
    std::sort(names.begin(), names.end());
    return names;
}

QVector<QByteArray> namesIn(const QByteArray& path)
{
    const UniqueFd directory(::open(path.constData(), O_PATH | O_CLOEXEC));
    return subdirectoriesOf(directory.get(), OwnDevices().hold(directory.get()));
}

void fill(const QString& path)
{
    QDir directory(path);
    for (const char* name : {"plain", "with blank", "a\nb", "%1", "ümlaut", ".hidden", "..double", "a.b"}) {
        QVERIFY(directory.mkdir(QString::fromUtf8(name)));
    }
    QFile file(directory.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(
        QFile::link(directory.filePath(QStringLiteral("plain")), directory.filePath(QStringLiteral("link"))));
    QVERIFY(QFile::link(QStringLiteral("/nowhere"), directory.filePath(QStringLiteral("broken"))));
    QCOMPARE(::mkfifo(QFile::encodeName(directory.filePath(QStringLiteral("fifo"))).constData(), 0600), 0);
}
} // namespace

extern "C" ssize_t getdents64(int directory, void* buffer, size_t size) noexcept
{
    static auto* const real = realFunction<ssize_t(int, void*, size_t)>("getdents64");
    const ssize_t read = real(directory, buffer, size);
    for (ssize_t offset = 0; offset < read && forgedType >= 0;) {
        auto* entry = reinterpret_cast<dirent64*>(static_cast<char*>(buffer) + offset);
        entry->d_type = static_cast<unsigned char>(forgedType);
        offset += entry->d_reclen;
    }
    return read;
}

extern "C" int fstatat(int directory, const char* name, struct stat* status, int flags) noexcept
{
    static auto* const real = realFunction<int(int, const char*, struct stat*, int)>("fstatat");
    ++looks;
    return real(directory, name, status, flags);
}

void TestSubdirectories::listsRealVisibleDirectoriesOnly()
{
    const QTemporaryDir home;
    fill(home.path());
    QCOMPARE(sorted(namesIn(home.path().toUtf8())),
             sorted({"plain", "with blank", "a\nb", "%1", "ümlaut", "a.b"}));
}

void TestSubdirectories::listsWhatQtLists()
{
    const QTemporaryDir home;
    fill(home.path());
    QVector<QByteArray> expected;
    const auto entries = QDir(home.path()).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QFileInfo& entry : entries) {
        if (!entry.isSymLink()) {
            expected.append(entry.fileName().toUtf8());
        }
    }
    QCOMPARE(sorted(namesIn(home.path().toUtf8())), sorted(expected));
}

void TestSubdirectories::listsWhatTakesManyReads()
{
    const QTemporaryDir home;
    QVector<QByteArray> expected;
    for (int i = 0; i < 600; ++i) {
        expected.append(QByteArray::number(i) + QByteArray(200, 'n'));
        QCOMPARE(::mkdir((home.path().toUtf8() + '/' + expected.last()).constData(), 0700), 0);
    }
    QCOMPARE(sorted(namesIn(home.path().toUtf8())), sorted(expected));
}

void TestSubdirectories::keepsNamesThatAreNotUtf8()
{
    const QTemporaryDir home;
    const QByteArray path = home.path().toUtf8();
    QCOMPARE(::mkdir((path + "/bad\xff").constData(), 0700), 0);
    QCOMPARE(namesIn(path), QVector<QByteArray>{"bad\xff"});
    QCOMPARE(::rmdir((path + "/bad\xff").constData()), 0);
}

void TestSubdirectories::isEmptyForWhatCannotBeRead()
{
    const QTemporaryDir home;
    QCOMPARE(namesIn(home.path().toUtf8() + "/missing"), QVector<QByteArray>());
    QFile file(home.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(namesIn(home.path().toUtf8() + "/file"), QVector<QByteArray>());
}

void TestSubdirectories::leavesNoDescriptorOpen()
{
    const QTemporaryDir home;
    fill(home.path());
    const auto openDescriptors = [] {
        return QDir(QStringLiteral("/proc/self/fd")).entryList().size();
    };
    const int before = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        namesIn(home.path().toUtf8());
    }
    QCOMPARE(openDescriptors(), before);
}

void TestSubdirectories::believesNoForeignDirectoryWhatIsInIt_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("unknown") << int(DT_UNKNOWN);
    QTest::newRow("file") << int(DT_REG);
    QTest::newRow("directory") << int(DT_DIR);
    QTest::newRow("link") << int(DT_LNK);
    QTest::newRow("socket") << int(DT_SOCK);
    QTest::newRow("no kind") << 15;
}

void TestSubdirectories::believesNoForeignDirectoryWhatIsInIt()
{
    QFETCH(int, type);
    const QVector<QByteArray> expected = sorted(namesIn(foreign));
    QVERIFY(expected.contains("fd"));
    QVERIFY(!expected.contains("status"));
    forgedType = type;
    const QVector<QByteArray> names = sorted(namesIn(foreign));
    forgedType = -1;
    QCOMPARE(names, expected);
}

void TestSubdirectories::looksAtNoEntryOfAnOwnDirectory()
{
    // Only what lies on this machine's own disks: there a look at each of a million files would take minutes.
    looks = 0;
    namesIn("/");
    QCOMPARE(looks, 0);
    namesIn(foreign);
    QVERIFY(looks > 0);
}

QTEST_GUILESS_MAIN(TestSubdirectories)
#include "tst_subdirectories.moc"
