#include "tvctl/quarantine/quarantine.h"

#include "support/fakeattributes.h"
#include "support/fakefiles.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
const QByteArray first = "2025-07-15_10-00-00_0123456789abcdef0123456789abcdef.tvq";
const QByteArray second = "2025-07-15_10-00-01_fedcba9876543210fedcba9876543210.tvq";
} // namespace

class TestQuarantine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void listsCopies();
    void listsAgainWhatIsNew();
    void standsForeignFiles();
    void listsManyQuickly();
    void tellsWhyItCannotBeOpened_data();
    void tellsWhyItCannotBeOpened();
    void followsTheLinkOfAPackage();
    void findsOneCopy_data();
    void findsOneCopy();
    void staysWithItsDirectory();

    void removesCopies();
    void removesNothingElse_data();
    void removesNothingElse();
    void tellsWhatCouldNotBeRemoved();
    void syncsWhatItRemoved();

private:
    QByteArray path(const QByteArray& name = QByteArray()) const
    {
        return QFile::encodeName(m_place->path()) + "/quarantine/" + name;
    }
    void write(const QByteArray& name, const QByteArray& content) const
    {
        QFile file(QFile::decodeName(path(name)));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), qint64(content.size()));
    }
    QStringList names() const
    {
        return QDir(QFile::decodeName(path()))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    bool exists(const QByteArray& name) const
    {
        struct stat status = {};
        return ::lstat(path(name).constData(), &status) == 0;
    }

    std::unique_ptr<QTemporaryDir> m_place;
};

void TestQuarantine::initTestCase()
{
    qputenv("TZ", "UTC0");
    ::tzset();
}

void TestQuarantine::init()
{
    FakeFiles::reset();
    FakeAttributes::reset();
    m_place = std::make_unique<QTemporaryDir>();
    QCOMPARE(::mkdir(path().constData(), 0700), 0);
}

void TestQuarantine::listsCopies()
{
    write(second, "second");
    write(first, "");
    struct stat status = {};
    QCOMPARE(::stat(path(second).constData(), &status), 0);
    FakeAttributes::setValue(status, "user.tvfilemon.original",
                             "mode=4755 uid=1000 gid=100 mtime=1700000000.000000001");
    const QuarantineListing listing = Quarantine(path()).list();
    QCOMPARE(listing.error, 0);
    QCOMPARE(listing.entries.size(), 2);
    QCOMPARE(listing.unfinished, size_t(0));
    QCOMPARE(listing.foreign, size_t(0));
    const QuarantineEntry& empty = listing.entries.at(0);
    QCOMPARE(empty.name, first);
    QCOMPARE(empty.size, qint64(0));
    QCOMPARE(empty.pathDigest, QByteArray("0123456789abcdef0123456789abcdef"));
    QCOMPARE(empty.time, QDateTime::fromSecsSinceEpoch(1752573600));
    QVERIFY(!empty.original);
    QCOMPARE(empty.originalPath, QByteArray());
    QCOMPARE(empty.recordId, qint64(0));
    const QuarantineEntry& full = listing.entries.at(1);
    QCOMPARE(full.name, second);
    QCOMPARE(full.size, qint64(6));
    QCOMPARE(full.time, QDateTime::fromSecsSinceEpoch(1752573601));
    QVERIFY(full.original);
    QCOMPARE(full.original->mode, mode_t(04755));
    QCOMPARE(full.original->uid, uid_t(1000));
}

void TestQuarantine::listsAgainWhatIsNew()
{
    const Quarantine quarantine(path());
    QCOMPARE(quarantine.list().entries.size(), 0);
    write(first, "x");
    QCOMPARE(quarantine.list().entries.size(), 1);
    QCOMPARE(quarantine.list().entries.size(), 1);
}

void TestQuarantine::standsForeignFiles()
{
    write(first, "x");
    write("notes.txt", "x");
    write("\xFF\xFE.tvq", "x");
    write(second + ".4711.tvq", "half");
    QCOMPARE(::mkdir(path(second).constData(), 0700), 0);
    const QByteArray link = "2025-07-15_10-00-02_fedcba9876543210fedcba9876543210.tvq";
    QCOMPARE(::symlink(path(first).constData(), path(link).constData()), 0);
    const QByteArray fifo = "2025-07-15_10-00-03_fedcba9876543210fedcba9876543210.tvq";
    QCOMPARE(::mkfifo(path(fifo).constData(), 0600), 0);
    // Were the FIFO opened, this would never end.
    const QuarantineListing listing = Quarantine(path()).list();
    QCOMPARE(listing.error, 0);
    QCOMPARE(listing.entries.size(), 1);
    QCOMPARE(listing.entries.constFirst().name, first);
    QCOMPARE(listing.unfinished, size_t(1));
    QCOMPARE(listing.foreign, size_t(5));
}

void TestQuarantine::listsManyQuickly()
{
    // Looking through all for each of them would take a minute.
    constexpr int count = 20000;
    const UniqueFd directory(::open(path().constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < count; ++i) {
        const QByteArray name =
            "2025-07-15_10-00-00_" + QByteArray::number(i).rightJustified(32, '0') + ".tvq";
        const UniqueFd file(
            ::openat(directory.get(), name.constData(), O_CREAT | O_WRONLY | O_CLOEXEC, 0400));
        QVERIFY(file.isValid());
    }
    const Quarantine quarantine(path());
    QElapsedTimer timer;
    timer.start();
    const QuarantineListing listing = quarantine.list();
    QCOMPARE(listing.entries.size(), count);
    QVERIFY2(timer.elapsed() < 10000, QByteArray::number(timer.elapsed()).constData());
}

void TestQuarantine::tellsWhyItCannotBeOpened_data()
{
    QTest::addColumn<QByteArray>("place");
    QTest::addColumn<int>("error");
    QTest::newRow("missing") << QByteArray("missing") << ENOENT;
    QTest::newRow("a file") << QByteArray("file") << ENOTDIR;
}

void TestQuarantine::tellsWhyItCannotBeOpened()
{
    QFETCH(QByteArray, place);
    QFETCH(int, error);
    write("file", "x");
    const Quarantine quarantine(path(place));
    QCOMPARE(quarantine.error(), error);
    QCOMPARE(quarantine.list().error, error);
    QVERIFY(!quarantine.entry(first));
    QCOMPARE(errno, error);
    QVERIFY(!quarantine.open(first).isValid());
    QCOMPARE(quarantine.remove({first, second}), (QVector<int>{error, error}));
}

void TestQuarantine::followsTheLinkOfAPackage()
{
    write(first, "x");
    const QByteArray link = QFile::encodeName(m_place->filePath(QStringLiteral("link")));
    QCOMPARE(::symlink("quarantine", link.constData()), 0);
    const Quarantine quarantine(link);
    QCOMPARE(quarantine.error(), 0);
    QCOMPARE(quarantine.list().entries.size(), 1);
    QCOMPARE(quarantine.remove({first}), QVector<int>{0});
    QCOMPARE(names(), QStringList());
}

void TestQuarantine::findsOneCopy_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("error");
    QTest::newRow("copy") << first << 0;
    QTest::newRow("missing") << second << ENOENT;
    QTest::newRow("foreign name") << QByteArray("notes.txt") << ENOENT;
    QTest::newRow("path to it") << "../quarantine/" + first << ENOENT;
    QTest::newRow("empty") << QByteArray() << ENOENT;
    QTest::newRow("link") << "2025-07-15_10-00-02" + first.mid(19) << EINVAL;
    QTest::newRow("directory") << "2025-07-15_10-00-03" + first.mid(19) << EINVAL;
    QTest::newRow("FIFO") << "2025-07-15_10-00-04" + first.mid(19) << EINVAL;
}

void TestQuarantine::findsOneCopy()
{
    QFETCH(QByteArray, name);
    QFETCH(int, error);
    write(first, "content");
    write("notes.txt", "x");
    QCOMPARE(::symlink(first.constData(), path("2025-07-15_10-00-02" + first.mid(19)).constData()), 0);
    QCOMPARE(::mkdir(path("2025-07-15_10-00-03" + first.mid(19)).constData(), 0700), 0);
    QCOMPARE(::mkfifo(path("2025-07-15_10-00-04" + first.mid(19)).constData(), 0600), 0);
    const Quarantine quarantine(path());
    errno = 0;
    const auto entry = quarantine.entry(name);
    QCOMPARE(entry ? 0 : errno, error);
    QCOMPARE(entry ? entry->size : 0, qint64(error == 0 ? 7 : 0));
    const UniqueFd file = quarantine.open(name);
    QCOMPARE(file.isValid() ? 0 : errno, error);
}

void TestQuarantine::staysWithItsDirectory()
{
    write(first, "x");
    const Quarantine quarantine(path());
    const QString moved = m_place->filePath(QStringLiteral("moved"));
    QVERIFY(QDir().rename(QFile::decodeName(path()), moved));
    QCOMPARE(::mkdir(path().constData(), 0700), 0);
    write(first, "another");
    QCOMPARE(quarantine.entry(first)->size, qint64(1));
    QCOMPARE(quarantine.remove({first}), QVector<int>{0});
    QVERIFY(exists(first));
}

void TestQuarantine::removesCopies()
{
    write(first, "x");
    write(second, "x");
    const Quarantine quarantine(path());
    QCOMPARE(quarantine.remove({second}), QVector<int>{0});
    QCOMPARE(names(), {QString::fromLatin1(first)});
    QCOMPARE(quarantine.remove({second, first, first}), (QVector<int>{ENOENT, 0, ENOENT}));
    QCOMPARE(names(), QStringList());
    QCOMPARE(quarantine.remove({}), QVector<int>());
}

void TestQuarantine::removesNothingElse_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("foreign file") << QByteArray("notes.txt") << QByteArray("notes.txt");
    QTest::newRow("through the parent") << "../quarantine/" + first << first;
    QTest::newRow("within") << "./" + first << first;
    QTest::newRow("behind a zero byte") << first + QByteArray(1, '\0') << first;
    QTest::newRow("line feed") << first + "\n" << first;
    QTest::newRow("copy being made") << first + ".12.tvq" << first + ".12.tvq";
    QTest::newRow("beside the quarantine") << QByteArray("../beside") << QByteArray("../beside");
    QTest::newRow("empty") << QByteArray() << first;
    QTest::newRow("absolute") << QByteArray("/") << first;
}

void TestQuarantine::removesNothingElse()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, file);
    write(file, "x");
    QCOMPARE(Quarantine(path()).remove({name}), QVector<int>{ENOENT});
    QVERIFY(exists(file));
    QVERIFY(!FakeFiles::calls.contains("unlinkat"));
}

void TestQuarantine::tellsWhatCouldNotBeRemoved()
{
    write(first, "x");
    QCOMPARE(::mkdir(path(second).constData(), 0700), 0);
    FakeFiles::failures.insert("unlinkat", {EROFS});
    const Quarantine quarantine(path());
    QCOMPARE(quarantine.remove({first, second}), (QVector<int>{EROFS, EINVAL}));
    QVERIFY(exists(first));
    QVERIFY(exists(second));
    // Nothing was changed, so nothing has to be synced.
    QVERIFY(!FakeFiles::calls.contains("fsync directory"));
}

void TestQuarantine::syncsWhatItRemoved()
{
    write(first, "x");
    write(second, "x");
    const Quarantine quarantine(path());
    FakeFiles::calls.clear();
    QCOMPARE(quarantine.remove({first, second}), (QVector<int>{0, 0}));
    QCOMPARE(FakeFiles::calls, (QVector<QByteArray>{"unlinkat", "unlinkat", "fsync directory"}));
    write(first, "x");
    FakeFiles::failures.insert("fsync directory", {EIO});
    QCOMPARE(quarantine.remove({first, second}), (QVector<int>{EIO, ENOENT}));
}

QTEST_GUILESS_MAIN(TestQuarantine)
#include "tst_quarantine.moc"
