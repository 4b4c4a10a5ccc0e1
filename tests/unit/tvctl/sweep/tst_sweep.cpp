#include "tvctl/sweep/sweep.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace
{
/// The kind that all file systems are said to be, 0 for the truth: the tests may run in memory.
long pretendedFileSystem = EXT4_SUPER_MAGIC;
bool failsToSync = false;
int syncs = 0;
/// What lies in directories of this name is said to be on another device; nothing when empty.
QByteArray pretendedMount;

void pretendDevice(int descriptor, struct stat* status)
{
    char path[4096] = {};
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(descriptor);
    if (!pretendedMount.isEmpty() && ::readlink(link.constData(), path, sizeof(path) - 1) > 0 &&
        QByteArray(path).endsWith('/' + pretendedMount)) {
        ++status->st_dev;
    }
}
} // namespace

extern "C" int fstat(int descriptor, struct stat* status) noexcept
{
    using Function = int (*)(int, struct stat*);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "fstat"));
    const int result = real(descriptor, status);
    pretendDevice(descriptor, status);
    return result;
}

extern "C" int fstatat(int directory, const char* name, struct stat* status, int flags) noexcept
{
    using Function = int (*)(int, const char*, struct stat*, int);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "fstatat"));
    const int result = real(directory, name, status, flags);
    pretendDevice(directory, status);
    return result;
}

extern "C" int fstatfs(int descriptor, struct statfs* about) noexcept
{
    using Function = int (*)(int, struct statfs*);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "fstatfs"));
    const int result = real(descriptor, about);
    if (pretendedFileSystem != 0) {
        about->f_type = pretendedFileSystem;
    }
    return result;
}

extern "C" int syncfs(int descriptor) noexcept
{
    using Function = int (*)(int);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "syncfs"));
    ++syncs;
    if (failsToSync) {
        errno = EIO;
        return -1;
    }
    return real(descriptor);
}

using Verdict = Sweep::Visitor::Verdict;

class TestSweep : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void scansEverythingAtFirst();
    void scansNothingThatIsUnchanged();
    void scansWhatChanged();
    void scansWhatIsBelowANewDirectory();
    void scansWhatIsBelowAnotherDirectoryInItsPlace();
    void scansAllWhereChangeTimesMeanNothing();
    void scansWhatIsWrittenByAMapping();
    void scansAllThatCouldNotBeSynced();
    void scansAgainWhatWasNotDone();
    void scansBelowADirectoryThatWasNotReadToItsEnd();
    void scansWhatWasSkippedBefore();
    void scansEverythingWhenAsked();
    void scansEverythingWhenTheStateIsDamaged();
    void keepsAStateForEachSetOfRoots();
    void goesOnWhereItWasStopped();
    void goesOnWhereItWasKilled();
    void goesOnAboveWhatHasALongPath();
    void goesOnInTheRightRoot();
    void countsFromItsFirstBeginning();
    void doesNotGoOnInAnotherDirectory();
    void begetsAFullSweepInPlaceOfAnInterruptedOne();
    void goesOnWithAFullSweep();
    void doesNotResumeWhatIsFinished();
    void passesByWhatTwoSweepsEndAt();
    void waitsForWhatIsWithheld();
    void waitsForNothingForEver();
    void blamesNoFileForAnInterruption();
    void scansAllThatIsMountedBelow();
    void scansAllThatIsMountedAtTheRoot();
    void costsTheSameAtAnyDepth();
    void tellsWhenNothingCanBeKept();

private:
    void make(const QByteArray& name);
    QByteArray path(const QByteArray& name) const
    {
        return m_root + '/' + name;
    }

    QScopedPointer<QTemporaryDir> m_directory;
    QByteArray m_root;
    QScopedPointer<StateDirectory> m_state;
};

namespace
{
constexpr qint64 marginMs = 2000;

/// The time of a sweep after which everything that is there now counts as unchanged.
SweepTime soon()
{
    SweepTime time = SweepTime::now();
    time.msecsSinceEpoch += marginMs + 100;
    time.msecsSinceBoot += marginMs + 100;
    return time;
}

/// Waits until what is done now counts as changed after a sweep that began at `time`.
void waitBehind(const SweepTime& time)
{
    QTRY_VERIFY(SweepTime::now().msecsSinceEpoch > time.msecsSinceEpoch - marginMs + 20);
}

/// The time of the processor that this process has taken.
double processorSeconds()
{
    constexpr double nsecsPerSecond = 1e9;
    struct timespec time = {};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / nsecsPerSecond;
}

/// One directory in the other, and a file in the last.
bool makeDeep(const QByteArray& root, int depth)
{
    if (::mkdir(root.constData(), 0700) != 0) {
        return false;
    }
    UniqueFd directory(::open(root.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (int i = 1; i < depth && ::mkdirat(directory.get(), "d", 0700) == 0; ++i) {
        directory = UniqueFd(::openat(directory.get(), "d", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    return UniqueFd(::openat(directory.get(), "f", O_CREAT | O_WRONLY | O_CLOEXEC, 0600)).isValid();
}

/// Notes what it is given.
class Notes : public Sweep::Visitor
{
public:
    explicit Notes(const QByteArray& root) : m_root(root)
    {
    }

    bool isStopped(const TreeWalker& walker) override
    {
        timesAtRoot += walker.path() == m_root ? 1 : 0;
        return walker.path() == m_root + stopAt || timesAtRoot == stopAgainAt;
    }
    Verdict changed(const TreeWalker& walker) override
    {
        const QByteArray path = walker.path().mid(m_root.size() + 1);
        if (path == killAt) {
            return killVerdict;
        }
        if (withheld.value(path) > 0) {
            --withheld[path];
            return Verdict::Withheld;
        }
        files += path;
        return path == notDone ? Verdict::Again : Verdict::Done;
    }
    void passed(const TreeWalker& walker) override
    {
        passedBy += walker.path().mid(m_root.size() + 1);
    }
    void leftWithheld(const TreeWalker& walker) override
    {
        stillWithheld += walker.path().mid(m_root.size() + 1);
    }
    int patienceMs() const override
    {
        return 500;
    }
    void stumbled(const TreeWalker& walker) override
    {
        stumbledAt += walker.path().mid(m_root.size() + 1);
    }
    void notKept(const QString& problem) override
    {
        problems += problem;
    }

    QList<QByteArray> files;
    QList<QByteArray> passedBy;
    QList<QByteArray> stumbledAt;
    QList<QByteArray> stillWithheld;
    /// How many times these are withheld.
    QMap<QByteArray, int> withheld;
    QStringList problems;
    QByteArray stopAt = "never";
    int stopAgainAt = -1;
    int timesAtRoot = 0;
    QByteArray killAt = "never";
    QByteArray notDone = "never";
    Verdict killVerdict = Verdict::Stop;

private:
    const QByteArray m_root;
};
} // namespace

void TestSweep::init()
{
    m_directory.reset(new QTemporaryDir);
    m_root = QFile::encodeName(m_directory->path()) + "/tree";
    QVERIFY(QDir(m_directory->path()).mkpath(QStringLiteral("settings")));
    m_state.reset(new StateDirectory(QFile::encodeName(m_directory->path()) + "/settings"));
}

/// A file at `name` below the root, written anew.
void TestSweep::make(const QByteArray& name)
{
    const QString file = QFile::decodeName(path(name));
    QVERIFY(QDir().mkpath(file.section(QLatin1Char('/'), 0, -2)));
    QFile content(file);
    QVERIFY(content.open(QIODevice::WriteOnly));
    QVERIFY(content.write("x") == 1);
}

void TestSweep::scansEverythingAtFirst()
{
    make("a/b/f");
    make(".hidden/f");
    make("f");
    QCOMPARE(::symlink("f", path("link").constData()), 0);
    Sweep sweep(*m_state, {m_root}, false, {});
    QVERIFY(sweep.isFull());
    QVERIFY(!sweep.since());
    QVERIFY(sweep.resumedAt().isEmpty());
    QVERIFY(!sweep.isStateDamaged());
    Notes notes(m_root);
    QVERIFY(sweep.run(notes));
    const QList<QByteArray> expected = {".hidden/f", "a/b/f", "f"};
    QCOMPARE(notes.files, expected);
    QCOMPARE(notes.passedBy, QList<QByteArray>{"link"});
    QVERIFY(notes.problems.isEmpty());
}

void TestSweep::scansNothingThatIsUnchanged()
{
    make("a/f");
    make("f");
    const SweepTime first = soon();
    Notes notes(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, first).run(notes));
    for (int i = 0; i < 2; ++i) {
        Notes none(m_root);
        Sweep sweep(*m_state, {m_root}, false, {}, soon());
        QVERIFY(!sweep.isFull());
        QVERIFY(sweep.run(none));
        QVERIFY(none.files.isEmpty());
    }
    // Reading a file changes nothing.
    Sweep sweep(*m_state, {m_root}, false, {}, first);
    QVERIFY(*sweep.since() <= first.msecsSinceEpoch);
}

void TestSweep::scansWhatChanged()
{
    for (const char* name : {"a/f", "a/g", "content", "mode", "moved", "same"}) {
        make(name);
    }
    const SweepTime first = soon();
    Notes all(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, first).run(all));
    waitBehind(first);
    make("content");
    make("a/new");
    QCOMPARE(::chmod(path("mode").constData(), 0700), 0);
    QCOMPARE(std::rename(path("moved").constData(), path("a/moved").constData()), 0);
    // As old as anybody wants, but not its change time.
    const struct timespec old[] = {{1, 0}, {1, 0}};
    QCOMPARE(::utimensat(AT_FDCWD, path("content").constData(), old, 0), 0);
    Notes notes(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}).run(notes));
    const QList<QByteArray> expected = {"a/moved", "a/new", "content", "mode"};
    QCOMPARE(notes.files, expected);
}

void TestSweep::scansWhatIsBelowANewDirectory()
{
    make("here/f");
    make("../outside/moved/deep/f");
    make("../outside/moved/f");
    const SweepTime first = soon();
    Notes all(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, first).run(all));
    QCOMPARE(std::rename(path("../outside/moved").constData(), path("here/moved").constData()), 0);
    Notes notes(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(notes));
    const QList<QByteArray> expected = {"here/moved/deep/f", "here/moved/f"};
    QCOMPARE(notes.files, expected);
    Notes none(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(none));
    QVERIFY(none.files.isEmpty());
    // Within the roots too: it may have been moved before it was its turn.
    QCOMPARE(std::rename(path("here").constData(), path("there").constData()), 0);
    Notes renamed(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(renamed));
    QCOMPARE(renamed.files.size(), 3);
}

void TestSweep::scansWhatIsBelowAnotherDirectoryInItsPlace()
{
    make("a/sub/f");
    make("a/f");
    make("z/f");
    Notes all(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(all));
    // The subdirectory is the same at the same path, what is above it is not.
    QCOMPARE(std::rename(path("a").constData(), path("../old").constData()), 0);
    QCOMPARE(::mkdir(path("a").constData(), 0700), 0);
    QCOMPARE(std::rename(path("../old/sub").constData(), path("a/sub").constData()), 0);
    Notes notes(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(notes));
    QCOMPARE(notes.files, QList<QByteArray>{"a/sub/f"});
}

void TestSweep::scansAllWhereChangeTimesMeanNothing()
{
    make("a/f");
    for (int i = 0; i < 2; ++i) {
        pretendedFileSystem = MSDOS_SUPER_MAGIC;
        Notes notes(m_root);
        const bool isFinished = Sweep(*m_state, {m_root}, false, {}, soon()).run(notes);
        pretendedFileSystem = EXT4_SUPER_MAGIC;
        QVERIFY(isFinished);
        QCOMPARE(notes.files, QList<QByteArray>{"a/f"});
    }
}

void TestSweep::scansWhatIsWrittenByAMapping()
{
    make("f");
    pretendedFileSystem = 0;
    const UniqueFd file(::open(path("f").constData(), O_RDWR | O_CLOEXEC));
    void* const mapping = ::mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    QVERIFY(mapping != MAP_FAILED);
    auto* const content = static_cast<volatile char*>(mapping);
    *content = '1';
    const SweepTime first = soon();
    Notes before(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, first).run(before));
    waitBehind(first);
    *content = '2';
    Notes after(m_root);
    const bool isFinished = Sweep(*m_state, {m_root}, false, {}, soon()).run(after);
    pretendedFileSystem = EXT4_SUPER_MAGIC;
    ::munmap(mapping, 1);
    QVERIFY(isFinished);
    QCOMPARE(after.files, QList<QByteArray>{"f"});
}

void TestSweep::scansAllThatCouldNotBeSynced()
{
    make("a/f");
    make("f");
    syncs = 0;
    failsToSync = true;
    Notes first(m_root);
    const bool isFinished = Sweep(*m_state, {m_root}, false, {}, soon()).run(first);
    failsToSync = false;
    QVERIFY(isFinished && syncs > 0);
    Notes again(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(again));
    QCOMPARE(again.files.size(), 2);
    // Once for each file system.
    syncs = 0;
    Notes none(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(none));
    QVERIFY(none.files.isEmpty());
    QCOMPARE(syncs, 1);
}

void TestSweep::scansAgainWhatWasNotDone()
{
    make("a");
    make("b");
    make("c");
    Notes first(m_root);
    first.notDone = "b";
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(first));
    QCOMPARE(first.files.size(), 3);
    for (int i = 0; i < 2; ++i) {
        Notes again(m_root);
        again.notDone = i == 0 ? "b" : "never";
        QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(again));
        QCOMPARE(again.files, QList<QByteArray>{"b"});
    }
    Notes none(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(none));
    QVERIFY(none.files.isEmpty());
}

void TestSweep::scansBelowADirectoryThatWasNotReadToItsEnd()
{
    // So deep that what is above is closed meanwhile, and cannot be found again: neither upwards nor
    // downwards.
    QByteArray deep = "a/";
    for (size_t i = 0; i < 2 * TreeWalker::openDirectories; ++i) {
        deep += "d/";
    }
    make(deep + "f");
    make("a/z");
    class Mover : public Notes
    {
    public:
        using Notes::Notes;
        Verdict changed(const TreeWalker& walker) override
        {
            if (!isMoved) {
                isMoved = true;
                std::rename((root + "/a/d").constData(), (root + "/../outside").constData());
                std::rename((root + "/a").constData(), (root + "/b").constData());
            }
            return Notes::changed(walker);
        }
        bool isMoved = false;
        QByteArray root;
    };
    Mover mover(m_root);
    mover.root = m_root;
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(mover));
    QCOMPARE(mover.passedBy, QList<QByteArray>{"a"});
    QVERIFY(!mover.files.contains("a/z"));
    QVERIFY(mover.files.contains(deep + "f"));
    // Back in its place it looks as if all of it had been seen.
    QFile::rename(QFile::decodeName(path("b")), QFile::decodeName(path("a")));
    Notes again(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(again));
    QVERIFY(again.files.contains("a/z"));
}

void TestSweep::scansWhatWasSkippedBefore()
{
    make("a/f");
    make("b/f");
    const QByteArray skipped = path("a");
    Notes first(m_root);
    QVERIFY(
        Sweep(
            *m_state, {m_root}, false, [skipped](const QByteArray& path) { return path == skipped; }, soon())
            .run(first));
    QCOMPARE(first.files, QList<QByteArray>{"b/f"});
    QCOMPARE(first.passedBy, QList<QByteArray>{"a"});
    Notes second(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(second));
    QCOMPARE(second.files, QList<QByteArray>{"a/f"});
}

void TestSweep::scansEverythingWhenAsked()
{
    make("f");
    Notes first(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(first));
    Sweep sweep(*m_state, {m_root}, true, {}, soon());
    QVERIFY(sweep.isFull());
    Notes second(m_root);
    QVERIFY(sweep.run(second));
    QCOMPARE(second.files, QList<QByteArray>{"f"});
}

void TestSweep::scansEverythingWhenTheStateIsDamaged()
{
    make("f");
    Notes first(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(first));
    const QDir settings(m_directory->filePath(QStringLiteral("settings")));
    QCOMPARE(settings.entryList(QDir::Files).size(), 1);
    QFile state(settings.filePath(settings.entryList(QDir::Files).first()));
    QVERIFY(state.resize(state.size() / 2));
    Sweep sweep(*m_state, {m_root}, false, {}, soon());
    QVERIFY(sweep.isFull());
    QVERIFY(sweep.isStateDamaged());
    Notes second(m_root);
    QVERIFY(sweep.run(second));
    QCOMPARE(second.files, QList<QByteArray>{"f"});
    QVERIFY(!Sweep(*m_state, {m_root}, false, {}, soon()).isFull());
}

void TestSweep::keepsAStateForEachSetOfRoots()
{
    make("a/f");
    make("b/f");
    Notes first(m_root);
    QVERIFY(Sweep(*m_state, {path("a"), path("b")}, false, {}, soon()).run(first));
    QVERIFY(Sweep(*m_state, {path("a")}, false, {}).isFull());
    // The same set in another order.
    QVERIFY(!Sweep(*m_state, {path("b"), path("a"), path("b")}, false, {}).isFull());
}

void TestSweep::goesOnWhereItWasStopped()
{
    for (const char* name : {"a/1", "a/2", "a/3", "b", "c"}) {
        make(name);
    }
    Notes first(m_root);
    first.stopAt = "/a/3";
    QVERIFY(!Sweep(*m_state, {m_root}, false, {}, soon()).run(first));
    QCOMPARE(first.files.size(), 2);
    Sweep second(*m_state, {m_root}, false, {}, soon());
    QCOMPARE(second.resumedAt(), path("a/3"));
    Notes rest(m_root);
    rest.stopAt = "/c";
    QVERIFY(!second.run(rest));
    const QList<QByteArray> expected = {"a/3", "b"};
    QCOMPARE(rest.files, expected);
    Notes last(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(last));
    QCOMPARE(last.files, QList<QByteArray>{"c"});
    // All of it is known now.
    Sweep after(*m_state, {m_root}, false, {}, soon());
    QVERIFY(after.resumedAt().isEmpty() && !after.isFull());
    Notes none(m_root);
    QVERIFY(after.run(none));
    QVERIFY(none.files.isEmpty());
}

void TestSweep::goesOnWhereItWasKilled()
{
    for (const char* name : {"a", "b", "c"}) {
        make(name);
    }
    Notes first(m_root);
    first.killAt = "b";
    QVERIFY(!Sweep(*m_state, {m_root}, false, {}, soon()).run(first));
    QCOMPARE(first.files, QList<QByteArray>{"a"});
    // The last step was being written.
    const QDir settings(m_directory->filePath(QStringLiteral("settings")));
    const QStringList journals = settings.entryList({QStringLiteral("*.progress")}, QDir::Files);
    QCOMPARE(journals.size(), 1);
    QFile journal(settings.filePath(journals.first()));
    QVERIFY(journal.open(QIODevice::Append) && journal.write("half a step") > 0);
    journal.close();
    Sweep sweep(*m_state, {m_root}, false, {}, soon());
    QCOMPARE(sweep.resumedAt(), path("b"));
    Notes rest(m_root);
    rest.killAt = "c";
    QVERIFY(!sweep.run(rest));
    QCOMPARE(rest.files, QList<QByteArray>{"b"});
    // What was half written is not in the way of what comes behind.
    QCOMPARE(Sweep(*m_state, {m_root}, false, {}, soon()).resumedAt(), path("c"));
}

void TestSweep::goesOnAboveWhatHasALongPath()
{
    constexpr int levels = 3000;
    QVERIFY(makeDeep(m_root, levels));
    const QByteArray file = QByteArray("d/").repeated(levels - 1) + 'f';
    make("z");
    const auto sizeOfState = [this] {
        qint64 size = 0;
        const QDir settings(m_directory->filePath(QStringLiteral("settings")));
        for (const QFileInfo& each : settings.entryInfoList({QStringLiteral("*.progress")}, QDir::Files)) {
            size += each.size();
        }
        return size;
    };
    qint64 before = 0;
    for (int i = 0; i < 2; ++i) {
        Notes ended(m_root);
        ended.killAt = file;
        QVERIFY(!Sweep(*m_state, {m_root}, false, {}, soon()).run(ended));
        QVERIFY(ended.files.isEmpty());
        // 16 bytes for each directory.
        QVERIFY2(sizeOfState() - before < levels * 16 + 4096 + 200, QByteArray::number(sizeOfState()));
        before = sizeOfState();
    }
    Sweep sweep(*m_state, {m_root}, false, {}, soon());
    QVERIFY(sweep.resumedAt().size() > 4000 && sweep.resumedAt().size() <= 4096);
    QVERIFY(sweep.resumedAt().endsWith("/d"));
    Notes third(m_root);
    QVERIFY(sweep.run(third));
    QCOMPARE(third.stumbledAt, QList<QByteArray>{file});
    QCOMPARE(third.files, QList<QByteArray>{"z"});
    Notes next(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(next));
    QCOMPARE(next.files, QList<QByteArray>{file});
    QCOMPARE(QProcess::execute(QStringLiteral("rm"), {QStringLiteral("-rf"), QFile::decodeName(m_root)}), 0);
}

void TestSweep::goesOnInTheRightRoot()
{
    for (const char* name : {"a/1", "b/1", "b/2", "c/1"}) {
        make(name);
    }
    const QVector<QByteArray> roots = {path("c"), path("a"), path("b")};
    Notes first(m_root);
    first.stopAt = "/b/2";
    QVERIFY(!Sweep(*m_state, roots, false, {}, soon()).run(first));
    Notes rest(m_root);
    QVERIFY(Sweep(*m_state, roots, false, {}, soon()).run(rest));
    const QList<QByteArray> expected = {"b/2", "c/1"};
    QCOMPARE(rest.files, expected);
}

void TestSweep::countsFromItsFirstBeginning()
{
    for (const char* name : {"a", "b", "c"}) {
        make(name);
    }
    const SweepTime first = soon();
    Notes begin(m_root);
    begin.stopAt = "/b";
    QVERIFY(!Sweep(*m_state, {m_root}, false, {}, first).run(begin));
    waitBehind(first);
    // Changed behind the back of the sweep, which is interrupted.
    make("a");
    Notes rest(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(rest));
    const QList<QByteArray> expected = {"b", "c"};
    QCOMPARE(rest.files, expected);
    Notes next(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(next));
    QCOMPARE(next.files, QList<QByteArray>{"a"});
}

void TestSweep::doesNotGoOnInAnotherDirectory()
{
    for (const char* name : {"a/1", "a/2", "a/3", "../outside/1", "../outside/2"}) {
        make(name);
    }
    Notes first(m_root);
    first.stopAt = "/a/3";
    QVERIFY(!Sweep(*m_state, {m_root}, false, {}, soon()).run(first));
    QCOMPARE(std::rename(path("a").constData(), path("b").constData()), 0);
    QCOMPARE(std::rename(path("../outside").constData(), path("a").constData()), 0);
    Notes rest(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(rest));
    const QList<QByteArray> expected = {"a/1", "a/2", "b/1", "b/2", "b/3"};
    QCOMPARE(rest.files, expected);
}

void TestSweep::begetsAFullSweepInPlaceOfAnInterruptedOne()
{
    for (const char* name : {"a", "b", "c"}) {
        make(name);
    }
    Notes whole(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(whole));
    Notes first(m_root);
    first.stopAt = "/b";
    QVERIFY(!Sweep(*m_state, {m_root}, false, {}, soon()).run(first));
    Sweep full(*m_state, {m_root}, true, {}, soon());
    QVERIFY(full.resumedAt().isEmpty());
    Notes all(m_root);
    QVERIFY(full.run(all));
    QCOMPARE(all.files.size(), 3);
}

void TestSweep::goesOnWithAFullSweep()
{
    for (const char* name : {"a", "b", "c"}) {
        make(name);
    }
    Notes whole(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(whole));
    Notes first(m_root);
    first.stopAt = "/b";
    QVERIFY(!Sweep(*m_state, {m_root}, true, {}, soon()).run(first));
    // Whether or not it is asked for once more.
    Sweep rest(*m_state, {m_root}, false, {}, soon());
    QVERIFY(rest.isFull());
    Notes notes(m_root);
    QVERIFY(rest.run(notes));
    const QList<QByteArray> expected = {"b", "c"};
    QCOMPARE(notes.files, expected);
}

void TestSweep::doesNotResumeWhatIsFinished()
{
    make("a");
    make("b");
    Notes first(m_root);
    first.stopAt = "/b";
    QVERIFY(!Sweep(*m_state, {m_root}, false, {}, soon()).run(first));
    const QDir settings(m_directory->filePath(QStringLiteral("settings")));
    const QString journal =
        settings.filePath(settings.entryList({QStringLiteral("*.progress")}, QDir::Files).value(0));
    QVERIFY(QFile::copy(journal, m_directory->filePath(QStringLiteral("kept"))));
    Notes rest(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(rest));
    QVERIFY(!QFile::exists(journal));
    // Killed in the moment in between.
    QVERIFY(QFile::copy(m_directory->filePath(QStringLiteral("kept")), journal));
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).resumedAt().isEmpty());
}

void TestSweep::tellsWhenNothingCanBeKept()
{
    make("a");
    QVERIFY(QDir(m_directory->path()).rmdir(QStringLiteral("settings")));
    Notes notes(m_root);
    // It is done all the same.
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(notes));
    QCOMPARE(notes.files, QList<QByteArray>{"a"});
    QCOMPARE(notes.problems, QStringList{qt_error_string(ENOENT)});
}

void TestSweep::passesByWhatTwoSweepsEndAt()
{
    for (const char* name : {"a", "b", "c"}) {
        make(name);
    }
    for (int i = 0; i < 2; ++i) {
        Notes ended(m_root);
        ended.killAt = "b";
        QVERIFY(!Sweep(*m_state, {m_root}, false, {}, soon()).run(ended));
        QVERIFY(ended.stumbledAt.isEmpty());
    }
    Notes third(m_root);
    third.killAt = "b";
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(third));
    QCOMPARE(third.stumbledAt, QList<QByteArray>{"b"});
    QCOMPARE(third.files, QList<QByteArray>{"c"});
    // It has its turn again.
    Notes next(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(next));
    QCOMPARE(next.files, QList<QByteArray>{"b"});
}

void TestSweep::waitsForWhatIsWithheld()
{
    for (const char* name : {"a/b/1", "a/b/2", "a/c", "d"}) {
        make(name);
    }
    Notes notes(m_root);
    notes.withheld = {{"a/b/1", 2}, {"a/c", 1}};
    QVERIFY(Sweep(*m_state, {path("d"), path("a")}, false, {}, soon()).run(notes));
    const QList<QByteArray> expected = {"a/b/2", "d", "a/c", "a/b/1"};
    QCOMPARE(notes.files, expected);
    QVERIFY(notes.stillWithheld.isEmpty());
    // In the next sweep as well: this one could have ended while it waited. A root that is a file always is.
    Notes next(m_root);
    QVERIFY(Sweep(*m_state, {path("d"), path("a")}, false, {}, soon()).run(next));
    const QList<QByteArray> again = {"a/b/1", "a/c", "d"};
    QCOMPARE(next.files, again);
}

void TestSweep::waitsForNothingForEver()
{
    QMap<QByteArray, int> withheld;
    for (int i = 0; i < 100; ++i) {
        const QByteArray name = QByteArray::number(i);
        make(name);
        withheld[name] = 1000000;
    }
    Notes notes(m_root);
    notes.withheld = withheld;
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(notes));
    QVERIFY(elapsed.elapsed() >= notes.patienceMs() && elapsed.elapsed() < 20 * notes.patienceMs());
    QVERIFY(notes.files.isEmpty());
    QCOMPARE(notes.stillWithheld.size(), 100);
    // For so many at most; the others are told of at once.
    QCOMPARE(1000000 - notes.withheld.value("99"), 1);
    QVERIFY(1000000 - notes.withheld.value("0") > 1);
    Notes next(m_root);
    QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(next));
    QCOMPARE(next.files.size(), 100);
    // Whoever wants to end need not wait.
    Notes stopped(m_root);
    stopped.withheld = withheld;
    stopped.stopAgainAt = 2;
    QVERIFY(Sweep(*m_state, {m_root}, true, {}).run(stopped));
    QCOMPARE(stopped.timesAtRoot, 2);
}

void TestSweep::blamesNoFileForAnInterruption()
{
    make("a");
    make("b");
    for (int i = 0; i < 3; ++i) {
        Notes ended(m_root);
        ended.killAt = "b";
        ended.killVerdict = Verdict::Interrupted;
        QVERIFY(!Sweep(*m_state, {m_root}, false, {}, soon()).run(ended));
        QVERIFY(ended.stumbledAt.isEmpty());
    }
    // Nor a file in front of which somebody wanted to end.
    for (int i = 0; i < 3; ++i) {
        Notes ended(m_root);
        ended.stopAt = "/b";
        QVERIFY(!Sweep(*m_state, {m_root}, false, {}, soon()).run(ended));
        QVERIFY(ended.stumbledAt.isEmpty());
    }
}

void TestSweep::scansAllThatIsMountedBelow()
{
    make("sub/f");
    make("f");
    for (const bool isMounted : {false, true}) {
        pretendedMount = isMounted ? "sub" : "";
        for (int i = 0; i < 2; ++i) {
            Notes notes(m_root);
            QVERIFY(Sweep(*m_state, {m_root}, false, {}, soon()).run(notes));
            if (i > 0) {
                QCOMPARE(notes.files, isMounted ? QList<QByteArray>{"sub/f"} : QList<QByteArray>());
            }
        }
    }
    pretendedMount.clear();
}

void TestSweep::scansAllThatIsMountedAtTheRoot()
{
    make("sub/f");
    pretendedMount = "sub";
    for (int i = 0; i < 2; ++i) {
        Notes notes(m_root);
        QVERIFY(Sweep(*m_state, {path("sub")}, false, {}, soon()).run(notes));
        QCOMPARE(notes.files, QList<QByteArray>{"sub/f"});
    }
    pretendedMount.clear();
}

void TestSweep::costsTheSameAtAnyDepth()
{
    // In memory where there is any: a disk takes minutes for that many directories.
    const QTemporaryDir memory(QStringLiteral("/dev/shm/tst_sweep-XXXXXX"));
    const QByteArray place = QFile::encodeName(memory.isValid() ? memory.path() : m_directory->path());
    const auto secondsFor = [this, place](int depth) {
        const QByteArray root = place + '/' + QByteArray::number(depth);
        if (!makeDeep(root, depth)) {
            return -1.0;
        }
        Notes notes(root);
        const double before = processorSeconds();
        const bool isFinished = Sweep(*m_state, {root}, false, {}, soon()).run(notes);
        const double after = processorSeconds();
        QProcess::execute(QStringLiteral("rm"), {QStringLiteral("-rf"), QFile::decodeName(root)});
        return isFinished && notes.files.size() == 1 ? after - before : -1.0;
    };
    const double few = secondsFor(10000);
    const double many = secondsFor(40000);
    QVERIFY(few > 0 && many > 0);
    qInfo("10,000 levels take %.2f s, 40,000 take %.2f s", few, many);
    QVERIFY2(many / few < 8, "as many times the work as levels, not the square of that");
    QVERIFY(many < 10);
}

QTEST_GUILESS_MAIN(TestSweep)
#include "tst_sweep.moc"
