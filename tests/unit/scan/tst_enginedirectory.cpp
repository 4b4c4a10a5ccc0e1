#include "scan/enginedirectory.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <limits>
#include <memory>

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

class TestEngineDirectory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void isPrivate();
    void takesTheNextPlace_data();
    void takesTheNextPlace();
    void isNoneWithoutAPlace();
    void isSharedWithNobody();
    void removesWhatAKilledRunLeft();
    void clearsAllThatIsInIt();
    void clearsNothingThatCannotBeListed();
    void prefersTheGivenPlace();

private:
    QByteArray makePlace(const char* name, mode_t mode = 0700) const;

    std::unique_ptr<QTemporaryDir> m_directory;
};

namespace
{
constexpr quint64 leastRoom = 4096;

/// Of the calls below none works.
bool isDiskUnknown = false;
bool isListingRefused = false;

QStringList contentOf(const QByteArray& path)
{
    return QDir(QString::fromUtf8(path)).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

bool makeFiles(const QByteArray& path)
{
    const QDir directory(QString::fromUtf8(path));
    QFile file(directory.filePath(QStringLiteral("below/deeper/file")));
    return directory.mkpath(QStringLiteral("below/deeper")) && file.open(QFile::WriteOnly) &&
           QFile::link(QStringLiteral("/etc"), directory.filePath(QStringLiteral("link")));
}
} // namespace

extern "C" int fstatvfs(int fd, struct statvfs* disk) noexcept
{
    static const auto next = reinterpret_cast<decltype(&fstatvfs)>(::dlsym(RTLD_NEXT, "fstatvfs"));
    errno = EIO;
    return isDiskUnknown ? -1 : next(fd, disk);
}

extern "C" DIR* fdopendir(int fd)
{
    static const auto next = reinterpret_cast<decltype(&fdopendir)>(::dlsym(RTLD_NEXT, "fdopendir"));
    errno = ENOMEM;
    return isListingRefused ? nullptr : next(fd);
}

void TestEngineDirectory::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
    isDiskUnknown = false;
    isListingRefused = false;
    qunsetenv("TMPDIR");
}

QByteArray TestEngineDirectory::makePlace(const char* name, mode_t mode) const
{
    const QByteArray path = QFile::encodeName(m_directory->filePath(QString::fromLatin1(name)));
    return ::mkdir(path.constData(), 0700) == 0 && ::chmod(path.constData(), mode) == 0 ? path : QByteArray();
}

void TestEngineDirectory::isPrivate()
{
    const QByteArray place = makePlace("sticky", 01777);
    const EngineDirectory directory({{place, leastRoom}});
    QVERIFY(directory.path().startsWith(place + "/tvfilemon-engine-"));
    struct stat status = {};
    QCOMPARE(::stat(directory.path().constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777, mode_t(0700));
    QVERIFY(contentOf(directory.path()).isEmpty());
}

void TestEngineDirectory::takesTheNextPlace_data()
{
    QTest::addColumn<QByteArray>("what");
    for (const char* what : {"missing", "writable for all", "writable for the group", "without room",
                             "of unknown size", "with a file of that name"}) {
        QTest::newRow(what) << QByteArray(what);
    }
}

void TestEngineDirectory::takesTheNextPlace()
{
    QFETCH(QByteArray, what);
    const QByteArray good = makePlace("good");
    EngineDirectory::Place bad = {makePlace("bad"), leastRoom};
    int expectedInBad = 0;
    if (what == "missing") {
        QVERIFY(QDir().rmdir(QFile::decodeName(bad.parent)));
    } else if (what == "writable for all") {
        QCOMPARE(::chmod(bad.parent.constData(), 0777), 0);
    } else if (what == "writable for the group") {
        QCOMPARE(::chmod(bad.parent.constData(), 0770), 0);
    } else if (what == "without room") {
        bad.leastRoom = std::numeric_limits<quint64>::max();
    } else if (what == "of unknown size") {
        isDiskUnknown = true;
    } else {
        // Neither that name nor the other one is free.
        const QByteArray path = EngineDirectory({bad}).path();
        for (const QByteArray& name : {path, path + '-' + QByteArray::number(::getpid())}) {
            QDir().rmdir(QFile::decodeName(name));
            QVERIFY(QFile(QFile::decodeName(name)).open(QFile::WriteOnly));
        }
        expectedInBad = 2;
    }
    const EngineDirectory directory({bad, {good, leastRoom}});
    if (isDiskUnknown) {
        QCOMPARE(directory.path(), QByteArray());
    } else {
        QVERIFY2(directory.path().startsWith(good + '/'), directory.path().constData());
    }
    QCOMPARE(contentOf(bad.parent).size(), expectedInBad);
}

void TestEngineDirectory::isNoneWithoutAPlace()
{
    const EngineDirectory directory((QVector<EngineDirectory::Place>()));
    QCOMPARE(directory.path(), QByteArray());
    directory.clear();
}

void TestEngineDirectory::isSharedWithNobody()
{
    const EngineDirectory::Place place = {makePlace("place"), leastRoom};
    const EngineDirectory first({place});
    QVERIFY(makeFiles(first.path()));
    const EngineDirectory second({place});
    QVERIFY(!second.path().isEmpty());
    QVERIFY(second.path() != first.path());
    QCOMPARE(contentOf(first.path()).size(), 2);
}

void TestEngineDirectory::removesWhatAKilledRunLeft()
{
    const EngineDirectory::Place place = {makePlace("place"), leastRoom};
    const QByteArray path = EngineDirectory({place}).path();
    QVERIFY(makeFiles(path));
    const EngineDirectory next({place});
    QCOMPARE(next.path(), path);
    QVERIFY(contentOf(path).isEmpty());
}

void TestEngineDirectory::clearsAllThatIsInIt()
{
    const EngineDirectory directory({{makePlace("place"), leastRoom}});
    QVERIFY(makeFiles(directory.path()));
    directory.clear();
    QVERIFY(contentOf(directory.path()).isEmpty());
    QVERIFY(QFile::exists(QStringLiteral("/etc/passwd")));
}

void TestEngineDirectory::clearsNothingThatCannotBeListed()
{
    const EngineDirectory directory({{makePlace("place"), leastRoom}});
    QVERIFY(makeFiles(directory.path()));
    isListingRefused = true;
    directory.clear();
    isListingRefused = false;
    QCOMPARE(contentOf(directory.path()).size(), 2);
    directory.clear();
    QVERIFY(contentOf(directory.path()).isEmpty());
}

void TestEngineDirectory::prefersTheGivenPlace()
{
    const QVector<EngineDirectory::Place> places = EngineDirectory::places();
    QCOMPARE(places.first().parent, QByteArrayLiteral("/run"));
    qputenv("TMPDIR", "relative");
    QCOMPARE(EngineDirectory::places().size(), places.size());
    qputenv("TMPDIR", "/private");
    QCOMPARE(EngineDirectory::places().size(), places.size() + 1);
    QCOMPARE(EngineDirectory::places().first().parent, QByteArrayLiteral("/private"));
}

QTEST_GUILESS_MAIN(TestEngineDirectory)
#include "tst_enginedirectory.moc"
