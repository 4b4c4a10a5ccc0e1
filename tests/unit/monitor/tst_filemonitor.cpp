#include "monitor/filemonitor.h"

#include "common/common.h"
#include "common/filename.h"
#include "fakeresponse.h"
#include "logger/clogger.h"
#include "support/fakeinotify.h"
#include "support/logreader.h"
#include "support/standarderror.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QPointer>
#include <QSocketNotifier>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <functional>
#include <memory>

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

/// The monitor over a fake kernel and fake scanners.
class TestFileMonitor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void reportsAKernelWithoutInotify();
    void watchesBothRootsAndSaysSo();
    void saysItWatchesARootThatItCannotWatch();
    void opensADescriptorThatProgramsDoNotInherit();
    void leavesTheDescriptorToTheEndOfTheProcess();
    void watchesFiveLevels();
    void passesOverLinksAndHiddenDirectories();
    void goesOnWithTheSiblingsOfADirectoryThatFails();
    void keepsTheCallersDepth_data();
    void keepsTheCallersDepth();
    void doesNothingBeyondTheDeepestLevel();
    void looksIntoEachDirectoryFromTheOneAboveIt();
    void watchesAllTheSameWhereItCannotWork();
    void followsNoLinkThatIsPutInTheWayOfAWalk_data();
    void followsNoLinkThatIsPutInTheWayOfAWalk();
    void keepsOnlyTheLastNameOfADirectory();
    void endsInADirectoryThatHoldsItselfUnderManyNames();
    void watchesADirectoryThatIsMountedTwiceByItsLastName();
    void watchesAllOfADirectoryThatIsMountedOften();
    void watchesANewDirectoryAndOneLevelBelow();
    void countsANewDirectoryFromItselfAndNotFromTheRoot();
    void watchesANewHiddenDirectory();
    void namesTheNewDirectoryWalkInItsError();
    void doesNotFollowALinkInThePlaceOfANewDirectory_data();
    void doesNotFollowALinkInThePlaceOfANewDirectory();
    void startsEachNewDirectoryOfABatchAtTheSameDepth();
    void forgetsByPrefix();
    void forgetsOnlyWhatIsBelowWhenTheNameIsEmpty();
    void doesNotAskTheKernelToForget();
    void treatsCreationBeforeRemoval();
    void sortsDirectoryEvents_data();
    void sortsDirectoryEvents();
    void fillsPlaceholdersOfADirectoryInTurn();

    void scansOnTheseEventsOnly_data();
    void scansOnTheseEventsOnly();
    void scansUnderAnEmptyDirectoryWhatAForgottenOneReports();
    void keepsNothingOfWhatForgottenDirectoriesReport();
    void appendsTheNameOfAFileAsItIs();
    void carriesAnyNameToTheScanner_data();
    void carriesAnyNameToTheScanner();
    void waitsAMomentBeforeItReads();
    void readsOneBufferANotification();
    void losesNothingOfALongBatch();
    void saysThatReadingFailed();
    void returnsQuietlyAtTheEndOfTheDescriptor();
    void ignoresAnOverflow();

    void staysSilentWithProtectionOff();
    void asksForProtectionOnEveryEvent();
    void skips_data();
    void skips();
    void logsNothingOfACleanFile();
    void namesEachFileAtTheDebugLevel();
    void logsAnEngineError_data();
    void logsAnEngineError();
    void answersADetection_data();
    void answersADetection();
    void tellsADetectionInOrder();
    void goesOnWhenTheRecordIsNotStored();
    void fillsThePopupInTurn();
    void showsTheLocalTime();
    void writesTimesInTheCLocale_data();
    void writesTimesInTheCLocale();
    void repeatsEverythingForEachEventOfAReportedFile();
    void showsANameThatIsNotUtf8Escaped();
    void scansALeasedFileAgainWhenItIsFree();
    void scansNoFileAgainThatIsNotLeased();
    void saysOnceThatTooManyFilesAreLeased();

private:
    void makeTree(const QString& path);
    void start();
    void deliver(const QByteArray& records);
    void deliverFile(uint32_t mask = IN_MODIFY, const QByteArray& name = "x.bin");

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<FileMonitor> m_monitor;
    std::unique_ptr<LogReader> m_log;
    int m_home = 0;
};

namespace
{
/// What is opened in another directory, while `isRecording`.
QVector<QByteArray> opened;
bool isRecording = false;
bool canEnterDirectories = true;
/// Whether every directory is on a device that others may have written.
bool isOnAMedium = false;

QVector<useconds_t> pauses;
std::function<void()> onPause;

const char* const onActivated = "FileMonitor::onActivated";
const char* const scanFile = "FileMonitor::scanFile";

QVector<QByteArray> sorted(QVector<QByteArray> paths)
{
    std::sort(paths.begin(), paths.end());
    return paths;
}

/// `time` as a popup has it, put together without Qt's dates.
QString localTime(time_t time)
{
    std::array<char, 32> text = {};
    struct tm parts = {};
    ::tzset();
    ::localtime_r(&time, &parts);
    ::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
    return QString::fromLatin1(text.data());
}
} // namespace

extern "C" int usleep(useconds_t microseconds)
{
    pauses.append(microseconds);
    if (onPause) {
        onPause();
    }
    return 0;
}

extern "C" int openat(int directory, const char* name, int flags, ...)
{
    using OpenAt = int (*)(int, const char*, int, ...);
    static const auto real = reinterpret_cast<OpenAt>(::dlsym(RTLD_NEXT, "openat"));
    if ((flags & O_CREAT) != 0) {
        qFatal("made in another directory");
    }
    if (isRecording) {
        opened.append(name);
    }
    return real(directory, name, flags);
}

extern "C" int fstat(int file, struct stat* status) noexcept
{
    static const auto real = reinterpret_cast<int (*)(int, struct stat*)>(::dlsym(RTLD_NEXT, "fstat"));
    const int result = real(file, status);
    // Whatever the test's own directory is on.
    struct stat root = {};
    ::stat("/", &root);
    status->st_dev = isOnAMedium ? ~root.st_dev : root.st_dev;
    return result;
}

extern "C" int fchdir(int directory) noexcept
{
    static const auto real = reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "fchdir"));
    if (!canEnterDirectories) {
        errno = EACCES;
        return -1;
    }
    return real(directory);
}

void TestFileMonitor::init()
{
    opened.clear();
    isRecording = false;
    canEnterDirectories = true;
    isOnAMedium = false;
    QLocale::setDefault(QLocale::c());
    FakeResponse::reset();
    pauses.clear();
    onPause = nullptr;
    m_root = std::make_unique<QTemporaryDir>();
    FakeInotify::reset(m_root->path());
    QDir(m_root->path()).mkdir(QStringLiteral("home"));
    QDir(m_root->path()).mkdir(QStringLiteral("media"));
    m_monitor = std::make_unique<FileMonitor>();
    LOGGER::CLogger::getInstance()->Info("next", "%s", QTest::currentTestFunction());
    m_log = std::make_unique<LogReader>();
}

void TestFileMonitor::cleanup()
{
    qunsetenv("TZ");
    m_monitor.reset();
    m_root.reset();
}

void TestFileMonitor::makeTree(const QString& path)
{
    QVERIFY(QDir(m_root->path()).mkpath(path.mid(1)));
}

void TestFileMonitor::start()
{
    QVERIFY(m_monitor->startMonitoring());
    m_home = FakeInotify::descriptorOf("/home");
    m_log->takeNew();
}

void TestFileMonitor::deliver(const QByteArray& records)
{
    FakeInotify::deliver(records);
    m_monitor->onActivated();
}

void TestFileMonitor::deliverFile(uint32_t mask, const QByteArray& name)
{
    deliver(FakeInotify::record(m_home, mask, name));
}

void TestFileMonitor::reportsAKernelWithoutInotify()
{
    FakeInotify::initError = EMFILE;
    StandardError standardError;
    QVERIFY(!m_monitor->startMonitoring());
    QCOMPARE(standardError.text(), QByteArray("inotify_init: Too many open files\n"));
    QCOMPARE(FakeInotify::watches.size(), 0);
    QVERIFY(m_monitor->children().isEmpty());
    QCOMPARE(m_log->takeNew(), QVector<LogLine>());
}

void TestFileMonitor::watchesBothRootsAndSaysSo()
{
    QVERIFY(m_monitor->startMonitoring());
    QCOMPARE(FakeInotify::watchedPaths(), QVector<QByteArray>({"/home", "/media"}));
    for (const auto& watch : qAsConst(FakeInotify::watches)) {
        QCOMPARE(watch.mask, 0xFCAU);
    }
    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>({{"INFO", "FileMonitor::startMonitoring", "Watching: /home"},
                               {"INFO", "FileMonitor::startMonitoring", "Watching: /media"}}));
}

void TestFileMonitor::saysItWatchesARootThatItCannotWatch()
{
    FakeInotify::watchErrors["/media"] = ENOENT;
    StandardError standardError;
    QVERIFY(m_monitor->startMonitoring());
    QCOMPARE(standardError.text(), QByteArray("inotify_add_watch: No such file or directory\n"));
    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>({{"INFO", "FileMonitor::startMonitoring", "Watching: /home"},
                               {"ERROR", "FileMonitor::addToWatchRecursive",
                                errorCode(ENOENT) + "Failed to add path for watch: /media"},
                               {"INFO", "FileMonitor::startMonitoring", "Watching: /media"}}));
}

void TestFileMonitor::opensADescriptorThatProgramsDoNotInherit()
{
    start();
    const int flags = ::fcntl(FakeInotify::watches.first().fd, F_GETFD);
    QVERIFY((flags & FD_CLOEXEC) != 0);
}

void TestFileMonitor::leavesTheDescriptorToTheEndOfTheProcess()
{
    start();
    QCOMPARE(m_monitor->findChildren<QSocketNotifier*>().size(), 1);
    const QPointer<QSocketNotifier> notifier = m_monitor->findChild<QSocketNotifier*>();
    m_monitor.reset();
    QVERIFY(notifier.isNull());
    QVERIFY(::fcntl(FakeInotify::watches.first().fd, F_GETFD) >= 0);
    QCOMPARE(FakeInotify::removals, 0);
}

void TestFileMonitor::watchesFiveLevels()
{
    makeTree(QStringLiteral("/home/l2/l3/l4/l5/l6/l7"));
    makeTree(QStringLiteral("/media/l2"));
    start();
    QCOMPARE(FakeInotify::watchedPaths(),
             QVector<QByteArray>({"/home", "/home/l2", "/home/l2/l3", "/home/l2/l3/l4", "/home/l2/l3/l4/l5",
                                  "/media", "/media/l2"}));
    // Level six is not passed over with an error: it is not looked at.
    QCOMPARE(m_log->takeNew(), QVector<LogLine>());
}

void TestFileMonitor::passesOverLinksAndHiddenDirectories()
{
    makeTree(QStringLiteral("/home/a"));
    makeTree(QStringLiteral("/home/.hidden/below"));
    makeTree(QStringLiteral("/home/a/.hidden"));
    makeTree(QStringLiteral("/elsewhere/below"));
    QVERIFY(QFile::link(m_root->filePath(QStringLiteral("elsewhere")),
                        m_root->filePath(QStringLiteral("home/link"))));
    start();
    QCOMPARE(FakeInotify::watchedPaths(), QVector<QByteArray>({"/home", "/home/a", "/media"}));
}

void TestFileMonitor::goesOnWithTheSiblingsOfADirectoryThatFails()
{
    makeTree(QStringLiteral("/home/a/below"));
    makeTree(QStringLiteral("/home/b/below"));
    makeTree(QStringLiteral("/home/c"));
    FakeInotify::watchErrors["/home/b"] = ENOSPC;
    QVERIFY(m_monitor->startMonitoring());
    QCOMPARE(sorted(FakeInotify::watchedPaths()),
             sorted({"/home", "/home/a", "/home/a/below", "/home/c", "/media"}));
    QCOMPARE(m_log->takeNew().first(),
             (LogLine{"ERROR", "FileMonitor::addToWatchRecursive",
                      errorCode(ENOSPC) + "Failed to add path for watch: /home/b"}));
}

void TestFileMonitor::keepsTheCallersDepth_data()
{
    QTest::addColumn<int>("depth");
    QTest::addColumn<bool>("fails");
    for (int depth = 0; depth <= 6; ++depth) {
        QTest::addRow("%d", depth) << depth << false;
        QTest::addRow("%d failing", depth) << depth << true;
    }
}

void TestFileMonitor::keepsTheCallersDepth()
{
    QFETCH(int, depth);
    QFETCH(bool, fails);
    makeTree(QStringLiteral("/home/a/b/c/d/e/f"));
    if (fails) {
        FakeInotify::watchErrors["/home"] = EACCES;
        FakeInotify::watchErrors["/home/a/b"] = EACCES;
    }
    int counter = depth;
    m_monitor->addToWatchRecursive(9, QStringLiteral("/home"), counter);
    QCOMPARE(counter, depth);
    m_monitor->addNewDirToWatchRecursive(9, QStringLiteral("/home/a"), counter);
    QCOMPARE(counter, depth);
}

void TestFileMonitor::doesNothingBeyondTheDeepestLevel()
{
    int counter = 5;
    m_monitor->addToWatchRecursive(9, QStringLiteral("/home"), counter);
    m_monitor->addNewDirToWatchRecursive(9, QStringLiteral("/home"), counter);
    QCOMPARE(FakeInotify::watches.size(), 0);
    counter = 4;
    m_monitor->addToWatchRecursive(9, QStringLiteral("/home"), counter);
    m_monitor->addNewDirToWatchRecursive(9, QStringLiteral("/media"), counter);
    QCOMPARE(FakeInotify::watchedPaths(), QVector<QByteArray>({"/home", "/media"}));
    QCOMPARE(FakeInotify::watches.first().fd, 9);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>());
}

void TestFileMonitor::looksIntoEachDirectoryFromTheOneAboveIt()
{
    makeTree(QStringLiteral("/home/l2/l3/l4/l5/l6"));
    isRecording = true;
    start();
    isRecording = false;
    // Each is held, and read. Those of the deepest level are neither.
    QCOMPARE(opened, QVector<QByteArray>({".", "l2", ".", "l3", ".", "l4", ".", "."}));
}

void TestFileMonitor::watchesAllTheSameWhereItCannotWork()
{
    makeTree(QStringLiteral("/home/l2/l3/l4/l5/l6"));
    makeTree(QStringLiteral("/media/l2/l3/l4/l5"));
    makeTree(QStringLiteral("/media/l2/l3/l4/other"));
    const QString workingDirectory = QDir::currentPath();
    start();
    QCOMPARE(QDir::currentPath(), workingDirectory);
    const QVector<QByteArray> watched = FakeInotify::watchedPaths();
    QCOMPARE(watched.size(), 5 + 6);
    FakeInotify::watches.clear();
    canEnterDirectories = false;
    int depth = 0;
    m_monitor->addToWatchRecursive(9, QStringLiteral("/home"), depth);
    m_monitor->addToWatchRecursive(9, QStringLiteral("/media"), depth);
    QCOMPARE(FakeInotify::watchedPaths(), watched);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>());
}

void TestFileMonitor::followsNoLinkThatIsPutInTheWayOfAWalk_data()
{
    QTest::addColumn<QByteArray>("siblings");
    QTest::addColumn<QByteArray>("exchanged");
    QTest::newRow("of the deepest level") << QByteArray("/a/b") << QByteArray();
    QTest::newRow("above the deepest level") << QByteArray("/a") << QByteArray();
    QTest::newRow("at the top") << QByteArray("") << QByteArray();
    QTest::newRow("what holds it") << QByteArray("/a/b") << QByteArray("/a/b");
    QTest::newRow("what holds it, above the deepest level") << QByteArray("/a") << QByteArray("/a");
    QTest::newRow("further above") << QByteArray("/a/b") << QByteArray("/a");
    QTest::newRow("all of it") << QByteArray("/a/b") << QByteArray("");
}

void TestFileMonitor::followsNoLinkThatIsPutInTheWayOfAWalk()
{
    // One of two directories is watched, and the other one, or what holds both, becomes a link to somebody
    // else's. That one must stay known by its own path only.
    QFETCH(QByteArray, siblings);
    QFETCH(QByteArray, exchanged);
    for (const char* owner : {"/home/mallory", "/home/victim"}) {
        for (const char* name : {"/x", "/y"}) {
            makeTree(QString::fromLatin1(owner + siblings + name));
        }
    }
    const QByteArray mine = "/home/mallory" + siblings;
    QByteArray other;
    FakeInotify::onWatch = [&](const QByteArray& path) {
        if (other.isEmpty() && (path == mine + "/x" || path == mine + "/y")) {
            other = mine + (path.endsWith('x') ? "/y" : "/x");
            const QString replaced =
                m_root->path() +
                QString::fromLatin1(exchanged.isNull() ? other : "/home/mallory" + exchanged);
            QVERIFY(QDir().rename(replaced, m_root->filePath(QStringLiteral("moved"))));
            QVERIFY(QFile::link(QString(replaced).replace(QLatin1String("mallory"), QLatin1String("victim")),
                                replaced));
        }
    };
    start();
    QVERIFY(!other.isEmpty());
    const QVector<QByteArray> watched = FakeInotify::watchedPaths();
    for (const char* name : {"", "/x", "/y"}) {
        const QByteArray path = "/home/victim" + siblings + name;
        QCOMPARE(watched.count(path), 1);
        FakeResponse::scanned.clear();
        deliver(FakeInotify::record(FakeInotify::descriptorOf(path), IN_MODIFY, "f"));
        QCOMPARE(FakeResponse::scanned, QStringList{QString::fromLatin1(path) + QStringLiteral("/f")});
    }
    QVERIFY(!watched.contains(other));
}

void TestFileMonitor::keepsOnlyTheLastNameOfADirectory()
{
    // The kernel gives one descriptor to a directory that is reached under two names.
    makeTree(QStringLiteral("/home/first"));
    start();
    const int first = FakeInotify::descriptorOf("/home/first");
    makeTree(QStringLiteral("/home/second"));
    FakeInotify::chosenDescriptors["/home/second"] = first;
    deliver(FakeInotify::record(m_home, IN_CREATE | IN_ISDIR, "second"));
    deliver(FakeInotify::record(first, IN_MODIFY, "f"));
    QCOMPARE(FakeResponse::scanned, QStringList{QStringLiteral("/home/second/f")});
}

void TestFileMonitor::endsInADirectoryThatHoldsItselfUnderManyNames()
{
    // What the kernel gives the same descriptor is the same directory.
    isOnAMedium = true;
    for (int first = 0; first < 10; ++first) {
        for (int second = 0; second < 10; ++second) {
            const QByteArray path = "/media/" + QByteArray::number(first) + '/' + QByteArray::number(second);
            makeTree(QString::fromLatin1(path));
            FakeInotify::chosenDescriptors[path] = 77;
            FakeInotify::chosenDescriptors[path.left(8)] = 77;
        }
    }
    start();
    // Both roots, all of the first level, and what is in the first of them.
    QCOMPARE(FakeInotify::watches.size(), 2 + 10 + 10);
}

void TestFileMonitor::watchesADirectoryThatIsMountedTwiceByItsLastName()
{
    makeTree(QStringLiteral("/home/first/below"));
    makeTree(QStringLiteral("/home/second/below"));
    FakeInotify::chosenDescriptors["/home/first"] = 77;
    FakeInotify::chosenDescriptors["/home/second"] = 77;
    FakeInotify::chosenDescriptors["/home/first/below"] = 78;
    FakeInotify::chosenDescriptors["/home/second/below"] = 78;
    start();
    // In no certain order, then /media.
    const QVector<QByteArray> watched = FakeInotify::watchedPaths();
    QCOMPARE(watched.size(), 6);
    deliver(FakeInotify::record(78, IN_MODIFY, "f"));
    QCOMPARE(FakeResponse::scanned, QStringList{QString::fromUtf8(watched.at(4)) + QStringLiteral("/f")});
}

void TestFileMonitor::watchesAllOfADirectoryThatIsMountedOften()
{
    // By the last of its names, here as well as below.
    for (int number = 0; number < 10; ++number) {
        const QByteArray path = "/home/" + QByteArray::number(number);
        makeTree(QString::fromLatin1(path + "/below"));
        FakeInotify::chosenDescriptors[path] = 77;
        FakeInotify::chosenDescriptors[path + "/below"] = 78;
    }
    start();
    const QVector<QByteArray> watched = FakeInotify::watchedPaths();
    QCOMPARE(watched.size(), 2 + 10 + 10);
    deliver(FakeInotify::record(77, IN_MODIFY, "f") + FakeInotify::record(78, IN_MODIFY, "f"));
    // Then /media.
    const QString last = QString::fromUtf8(watched.at(watched.size() - 3));
    QCOMPARE(FakeResponse::scanned,
             QStringList({last + QStringLiteral("/f"), last + QStringLiteral("/below/f")}));
}

void TestFileMonitor::watchesANewDirectoryAndOneLevelBelow()
{
    start();
    makeTree(QStringLiteral("/home/new/below/deeper"));
    makeTree(QStringLiteral("/home/new/.hidden"));
    QVERIFY(QFile::link(m_root->path(), m_root->filePath(QStringLiteral("home/new/link"))));
    QFile file(m_root->filePath(QStringLiteral("home/new/file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    FakeInotify::watches.clear();
    deliver(FakeInotify::record(m_home, IN_CREATE | IN_ISDIR, "new"));
    QCOMPARE(FakeInotify::watchedPaths(), QVector<QByteArray>({"/home/new", "/home/new/below"}));
    for (const auto& watch : qAsConst(FakeInotify::watches)) {
        QCOMPARE(watch.mask, 0xFCAU);
    }
    // Its files are not scanned: each is by its own events.
    QCOMPARE(FakeResponse::scanned, QStringList());
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"TRACE", onActivated, "New Directory added: /home/new"}}));
}

void TestFileMonitor::countsANewDirectoryFromItselfAndNotFromTheRoot()
{
    makeTree(QStringLiteral("/home/l2/l3/l4/l5"));
    start();
    makeTree(QStringLiteral("/home/l2/l3/l4/l5/l6/l7/l8"));
    FakeInotify::watches.clear();
    deliver(FakeInotify::record(5, IN_CREATE | IN_ISDIR, "l6"));
    QCOMPARE(FakeInotify::watchedPaths(),
             QVector<QByteArray>({"/home/l2/l3/l4/l5/l6", "/home/l2/l3/l4/l5/l6/l7"}));
}

void TestFileMonitor::watchesANewHiddenDirectory()
{
    start();
    makeTree(QStringLiteral("/home/.new/below"));
    FakeInotify::watches.clear();
    deliver(FakeInotify::record(m_home, IN_CREATE | IN_ISDIR, ".new"));
    QCOMPARE(FakeInotify::watchedPaths(), QVector<QByteArray>({"/home/.new", "/home/.new/below"}));
}

void TestFileMonitor::namesTheNewDirectoryWalkInItsError()
{
    start();
    makeTree(QStringLiteral("/home/new/below"));
    FakeInotify::watchErrors["/home/new/below"] = EACCES;
    FakeInotify::watchErrors["/home/gone"] = ENOENT;
    StandardError standardError;
    deliver(FakeInotify::record(m_home, IN_CREATE | IN_ISDIR, "new") +
            FakeInotify::record(m_home, IN_CREATE | IN_ISDIR, "gone"));
    QCOMPARE(standardError.text(), QByteArray("inotify_add_watch: Permission denied\n"
                                              "inotify_add_watch: No such file or directory\n"));
    const QByteArray walk = "FileMonitor::addNewDirToWatchRecursive";
    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>(
                 {{"TRACE", onActivated, "New Directory added: /home/new"},
                  {"ERROR", walk, errorCode(EACCES) + "Failed to add path for watch: /home/new/below"},
                  {"TRACE", onActivated, "New Directory added: /home/gone"},
                  {"ERROR", walk, errorCode(ENOENT) + "Failed to add path for watch: /home/gone"}}));
}

void TestFileMonitor::doesNotFollowALinkInThePlaceOfANewDirectory_data()
{
    QTest::addColumn<QString>("link");
    QTest::newRow("the directory itself") << "home/mallory/new";
    QTest::newRow("the directory above it") << "home/mallory";
}

void TestFileMonitor::doesNotFollowALinkInThePlaceOfANewDirectory()
{
    QFETCH(QString, link);
    makeTree(QStringLiteral("/home/victim/new/below"));
    makeTree(QStringLiteral("/home/mallory"));
    start();
    const int mallory = FakeInotify::descriptorOf("/home/mallory");
    if (link == QLatin1String("home/mallory")) {
        QVERIFY(QDir(m_root->path()).rmdir(link));
    }
    QVERIFY(QFile::link(m_root->filePath(QStringLiteral("home/victim")), m_root->filePath(link)));
    FakeInotify::watches.clear();
    StandardError standardError;
    deliver(FakeInotify::record(mallory, IN_CREATE | IN_ISDIR, "new"));
    QCOMPARE(FakeInotify::watchedPaths(), QVector<QByteArray>());
    QCOMPARE(standardError.text(), QByteArray("inotify_add_watch: Not a directory\n"));
    QCOMPARE(m_log->takeNew().last(),
             (LogLine{"ERROR", "FileMonitor::addNewDirToWatchRecursive",
                      errorCode(ENOTDIR) + "Failed to add path for watch: /home/mallory/new"}));
}

void TestFileMonitor::startsEachNewDirectoryOfABatchAtTheSameDepth()
{
    start();
    makeTree(QStringLiteral("/home/a/below"));
    makeTree(QStringLiteral("/home/b/below"));
    FakeInotify::watchErrors["/home/fails"] = ENOENT;
    FakeInotify::watches.clear();
    deliver(FakeInotify::record(m_home, IN_CREATE | IN_ISDIR, "a") +
            FakeInotify::record(m_home, IN_CREATE | IN_ISDIR, "fails") +
            FakeInotify::record(m_home, IN_CREATE | IN_ISDIR, "b"));
    QCOMPARE(FakeInotify::watchedPaths(),
             QVector<QByteArray>({"/home/a", "/home/a/below", "/home/b", "/home/b/below"}));
}

void TestFileMonitor::forgetsByPrefix()
{
    makeTree(QStringLiteral("/home/a/b"));
    makeTree(QStringLiteral("/home/ab/c"));
    makeTree(QStringLiteral("/home/A"));
    start();
    deliver(FakeInotify::record(m_home, IN_DELETE | IN_ISDIR, "a"));
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"TRACE", onActivated, "Directory Removed: /home/a"}}));
    for (const char* path : {"/home/a", "/home/a/b", "/home/ab", "/home/ab/c"}) {
        FakeResponse::scanned.clear();
        deliver(FakeInotify::record(FakeInotify::descriptorOf(path), IN_MODIFY, "f"));
        QCOMPARE(FakeResponse::scanned, QStringList{QStringLiteral("/f")});
    }
    for (const char* path : {"/home", "/home/A", "/media"}) {
        FakeResponse::scanned.clear();
        deliver(FakeInotify::record(FakeInotify::descriptorOf(path), IN_MODIFY, "f"));
        QCOMPARE(FakeResponse::scanned, QStringList{QString::fromLatin1(path) + QStringLiteral("/f")});
    }
}

void TestFileMonitor::forgetsOnlyWhatIsBelowWhenTheNameIsEmpty()
{
    makeTree(QStringLiteral("/home/a/b"));
    start();
    const int a = FakeInotify::descriptorOf("/home/a");
    const int b = FakeInotify::descriptorOf("/home/a/b");
    deliver(FakeInotify::record(a, IN_DELETE_SELF | IN_ISDIR));
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"TRACE", onActivated, "Directory Removed: /home/a/"}}));
    deliver(FakeInotify::record(a, IN_MODIFY, "f") + FakeInotify::record(b, IN_MODIFY, "f"));
    QCOMPARE(FakeResponse::scanned, QStringList({QStringLiteral("/home/a/f"), QStringLiteral("/f")}));
}

void TestFileMonitor::doesNotAskTheKernelToForget()
{
    makeTree(QStringLiteral("/home/a"));
    start();
    deliver(FakeInotify::record(m_home, IN_DELETE | IN_ISDIR, "a"));
    QCOMPARE(FakeInotify::removals, 0);
}

void TestFileMonitor::treatsCreationBeforeRemoval()
{
    start();
    makeTree(QStringLiteral("/home/both"));
    deliver(FakeInotify::record(m_home, IN_CREATE | IN_DELETE | IN_ISDIR, "both"));
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"TRACE", onActivated, "New Directory added: /home/both"}}));
}

void TestFileMonitor::sortsDirectoryEvents_data()
{
    QTest::addColumn<uint>("mask");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("created") << uint(IN_CREATE) << QByteArray("New Directory added: /home/d");
    QTest::newRow("deleted") << uint(IN_DELETE) << QByteArray("Directory Removed: /home/d");
    QTest::newRow("deleted itself") << uint(IN_DELETE_SELF) << QByteArray("Directory Removed: /home/d");
    QTest::newRow("unmounted") << uint(IN_UNMOUNT) << QByteArray("Directory Removed: /home/d");
    QTest::newRow("moved in") << uint(IN_MOVED_TO) << QByteArray("Directory changed: [1073741952] /home/d");
    QTest::newRow("moved out") << uint(IN_MOVED_FROM)
                               << QByteArray("Directory changed: [1073741888] /home/d");
    QTest::newRow("moved itself") << uint(IN_MOVE_SELF)
                                  << QByteArray("Directory changed: [1073743872] /home/d");
    QTest::newRow("ignored") << uint(IN_IGNORED) << QByteArray("Directory changed: [1073774592] /home/d");
    QTest::newRow("modified") << uint(IN_MODIFY) << QByteArray("Directory changed: [1073741826] /home/d");
}

void TestFileMonitor::sortsDirectoryEvents()
{
    QFETCH(uint, mask);
    QFETCH(QByteArray, message);
    start();
    makeTree(QStringLiteral("/home/d"));
    FakeInotify::watches.clear();
    deliver(FakeInotify::record(m_home, mask | IN_ISDIR, "d"));
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"TRACE", onActivated, message}}));
    QCOMPARE(FakeInotify::watches.size(), mask == IN_CREATE ? 1 : 0);
    QCOMPARE(FakeResponse::scanned, QStringList());
}

void TestFileMonitor::fillsPlaceholdersOfADirectoryInTurn()
{
    makeTree(QStringLiteral("/home/%2"));
    start();
    const int odd = FakeInotify::descriptorOf("/home/%2");
    makeTree(QStringLiteral("/home/new/new"));
    FakeInotify::watches.clear();
    deliver(FakeInotify::record(odd, IN_CREATE | IN_ISDIR, "new"));
    // The name goes wherever the text now says so; the log line is not made that way.
    QCOMPARE(FakeInotify::watchedPaths(), QVector<QByteArray>({"/home/new/new"}));
    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>({{"TRACE", onActivated, "New Directory added: /home/%2/new"}}));
}

void TestFileMonitor::scansOnTheseEventsOnly_data()
{
    QTest::addColumn<uint>("mask");
    QTest::addColumn<bool>("scanned");
    for (uint bit = 0; bit < 30; ++bit) {
        const uint mask = 1U << bit;
        QTest::addRow("0x%x", mask) << mask << ((mask & 0x1C2U) != 0);
    }
    QTest::newRow("written and closed") << uint(IN_MODIFY | IN_CLOSE_WRITE) << true;
    QTest::newRow("none") << 0U << false;
}

void TestFileMonitor::scansOnTheseEventsOnly()
{
    QFETCH(uint, mask);
    QFETCH(bool, scanned);
    start();
    deliverFile(mask, "f");
    const QStringList expected{QStringLiteral("/home/f")};
    QCOMPARE(FakeResponse::scanned, scanned ? expected : QStringList());
    QCOMPARE(m_log->takeNew(), QVector<LogLine>());
}

void TestFileMonitor::scansUnderAnEmptyDirectoryWhatAForgottenOneReports()
{
    start();
    deliver(FakeInotify::record(4711, IN_MODIFY, "f"));
    QCOMPARE(FakeResponse::scanned, QStringList{QStringLiteral("/f")});
    makeTree(QStringLiteral("/new"));
    deliver(FakeInotify::record(4712, IN_CREATE | IN_ISDIR, "new"));
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"TRACE", onActivated, "New Directory added: /new"}}));
    QCOMPARE(FakeInotify::watches.last().path, QByteArray("/new"));
}

void TestFileMonitor::keepsNothingOfWhatForgottenDirectoriesReport()
{
    start();
    // Nothing but the table would grow by this.
    FakeResponse::protectionOn = false;
    const auto report = [this](int first) {
        for (int i = first; i < first + 10000; ++i) {
            pauses.clear();
            deliver(FakeInotify::record(i, IN_MODIFY, "f") +
                    FakeInotify::record(i, IN_ATTRIB | IN_ISDIR, "d"));
        }
    };
    report(10000);
    const size_t before = ::mallinfo2().uordblks;
    report(20000);
    QVERIFY2(::mallinfo2().uordblks < before + 100000, qPrintable(QString::number(::mallinfo2().uordblks)));
}

void TestFileMonitor::appendsTheNameOfAFileAsItIs()
{
    makeTree(QStringLiteral("/home/%1%2"));
    start();
    deliver(FakeInotify::record(FakeInotify::descriptorOf("/home/%1%2"), IN_MODIFY, "%2"));
    QCOMPARE(FakeResponse::scanned, QStringList{QStringLiteral("/home/%1%2/%2")});
}

void TestFileMonitor::carriesAnyNameToTheScanner_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("byte-order mark") << QByteArray("\xEF\xBB\xBFx");
    QTest::newRow("newline") << QByteArray("a\nb");
    QTest::newRow("percent") << QByteArray("%s%n%1");
    QTest::newRow("255 bytes") << QByteArray(255, 'y');
    QTest::newRow("not UTF-8") << QByteArray("bad\xff.exe");
    QTest::newRow("beyond the BMP") << QByteArray("\xF0\x9F\x98\x80");
}

void TestFileMonitor::carriesAnyNameToTheScanner()
{
    QFETCH(QByteArray, name);
    start();
    deliverFile(IN_CREATE, name);
    QCOMPARE(FakeResponse::scanned.size(), 1);
    QCOMPARE(FileName::toBytes(FakeResponse::scanned.first()), "/home/" + name);
}

void TestFileMonitor::waitsAMomentBeforeItReads()
{
    start();
    onPause = [this] {
        FakeInotify::deliver(FakeInotify::record(m_home, IN_MODIFY, "second"));
    };
    deliverFile(IN_MODIFY, "first");
    QCOMPARE(pauses, QVector<useconds_t>{100});
    // What the kernel adds to a pause of this thread, in nanoseconds.
    QCOMPARE(::prctl(PR_GET_TIMERSLACK), 1);
    QCOMPARE(FakeResponse::scanned,
             QStringList({QStringLiteral("/home/first"), QStringLiteral("/home/second")}));
}

void TestFileMonitor::readsOneBufferANotification()
{
    start();
    QByteArray batch;
    for (int i = 0; i < 100; ++i) {
        batch += FakeInotify::record(m_home, IN_MODIFY, "f" + QByteArray::number(i));
    }
    FakeInotify::deliver(batch);
    m_monitor->onActivated();
    QCOMPARE(FakeResponse::scanned.size(), 1024 / 32);
}

void TestFileMonitor::losesNothingOfALongBatch()
{
    start();
    QStringList expected;
    QByteArray batch;
    for (int i = 0; i < 1000; ++i) {
        const QByteArray name = "f" + QByteArray::number(i);
        batch += FakeInotify::record(m_home, IN_MODIFY, name);
        expected.append(QStringLiteral("/home/") + QString::fromLatin1(name));
    }
    FakeInotify::deliver(batch);
    // The notifier goes on firing while something is left.
    QTRY_COMPARE(FakeResponse::scanned.size(), expected.size());
    QCOMPARE(FakeResponse::scanned, expected);
}

void TestFileMonitor::saysThatReadingFailed()
{
    start();
    FakeInotify::breakDescriptor();
    m_monitor->onActivated();
    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>(
                 {{"ERROR", onActivated, errorCode(EBADF) + "Failed to read from file descriptor!"}}));
    QCOMPARE(FakeResponse::scanned, QStringList());
}

void TestFileMonitor::returnsQuietlyAtTheEndOfTheDescriptor()
{
    start();
    // A pipe whose writing end is closed reads as zero bytes.
    const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::dup2(null, FakeInotify::watches.first().fd);
    ::close(null);
    m_monitor->onActivated();
    QCOMPARE(m_log->takeNew(), QVector<LogLine>());
    QCOMPARE(FakeResponse::calls, QStringList());
}

void TestFileMonitor::ignoresAnOverflow()
{
    start();
    FakeInotify::watches.clear();
    deliver(FakeInotify::record(-1, IN_Q_OVERFLOW));
    QCOMPARE(FakeResponse::calls, QStringList());
    QCOMPARE(FakeInotify::watches.size(), 0);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>());
}

void TestFileMonitor::staysSilentWithProtectionOff()
{
    start();
    FakeResponse::protectionOn = false;
    FakeResponse::scanResult = 1;
    deliverFile();
    QCOMPARE(FakeResponse::calls, QStringList());
    QCOMPARE(m_log->takeNew(), QVector<LogLine>());
}

void TestFileMonitor::asksForProtectionOnEveryEvent()
{
    start();
    deliverFile();
    FakeResponse::protectionOn = false;
    deliverFile();
    FakeResponse::protectionOn = true;
    deliverFile();
    QCOMPARE(FakeResponse::protectionAsked, 3);
    QCOMPARE(FakeResponse::scanned.size(), 2);
}

void TestFileMonitor::skips_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("skipped");
    const QString logs = Common::getLogsPath();
    const QString settings = Common::getSettingsPath();
    QTest::newRow("log") << logs + QStringLiteral("/x.log") << true;
    QTest::newRow("beside the logs, same beginning") << logs + QStringLiteral("-of-mine/x") << true;
    QTest::newRow("logs in capitals") << logs.toUpper() + QStringLiteral("/x") << false;
    QTest::newRow("settings") << settings + QStringLiteral("/tvcore.db") << true;
    QTest::newRow("settings in capitals") << settings.toUpper() + QStringLiteral("/x") << false;
    QTest::newRow("part") << QStringLiteral("/home/setup.exe.part") << true;
    QTest::newRow("only part") << QStringLiteral("/home/.part") << true;
    QTest::newRow("PART") << QStringLiteral("/home/setup.exe.PART") << false;
    QTest::newRow("part in the middle") << QStringLiteral("/home/a.part.exe") << false;
    QTest::newRow("quarantine copies are the exclusions' business") << QStringLiteral("/home/a.tvq") << false;
}

void TestFileMonitor::skips()
{
    QFETCH(QString, path);
    QFETCH(bool, skipped);
    FakeResponse::scanResult = 1;
    m_monitor->scanFile(path, QStringLiteral("x"));
    QCOMPARE(FakeResponse::calls.isEmpty(), skipped);
    QCOMPARE(m_log->takeNew().isEmpty(), skipped);
}

void TestFileMonitor::logsNothingOfACleanFile()
{
    start();
    deliverFile();
    QCOMPARE(FakeResponse::calls, QStringList{QStringLiteral("scan /home/x.bin")});
    QCOMPARE(FakeResponse::virusNamesPassedIn, QStringList{QString()});
    QCOMPARE(m_log->takeNew(), QVector<LogLine>());
}

void TestFileMonitor::namesEachFileAtTheDebugLevel()
{
    start();
    LOGGER::CLogger::getInstance()->EnaleLog();
    deliverFile(IN_CREATE, "a.part");
    deliverFile();
    FakeResponse::protectionOn = false;
    deliverFile();
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_TRACE);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"DEBUG", scanFile, "Scanning file /home/x.bin"}}));
}

void TestFileMonitor::logsAnEngineError_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<int>("error");
    QTest::newRow("open") << 8 << ENOENT;
    QTest::newRow("no engine") << 2 << 0;
    QTest::newRow("negative") << -1 << EIO;
    QTest::newRow("temporary directory") << 18 << EACCES;
}

void TestFileMonitor::logsAnEngineError()
{
    QFETCH(int, result);
    QFETCH(int, error);
    start();
    FakeResponse::scanResult = result;
    FakeResponse::scanErrno = error;
    deliverFile();
    QCOMPARE(FakeResponse::calls.size(), 1);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"ERROR", scanFile,
                                                  errorCode(error) + "Error File Scanning | Error:" +
                                                      QByteArray::number(result) + " | /home/x.bin"}}));
}

void TestFileMonitor::answersADetection_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("text");
    QTest::newRow("cleaned") << 0 << QStringLiteral("Cleaned");
    QTest::newRow("report only") << -1 << QStringLiteral("Report Only");
    QTest::newRow("user allowed") << -2 << QStringLiteral("User Allowed");
    QTest::newRow("failed") << 1 << QStringLiteral("Error");
    QTest::newRow("unknown") << -3 << QStringLiteral("Error");
    QTest::newRow("unknown positive") << 2 << QStringLiteral("Error");
}

void TestFileMonitor::answersADetection()
{
    QFETCH(int, status);
    QFETCH(QString, text);
    start();
    FakeResponse::scanResult = 1;
    FakeResponse::virusName = QStringLiteral("Test-Virus");
    FakeResponse::cleanResult = status;
    const QDateTime before = QDateTime::currentDateTime();
    deliverFile(IN_CREATE, "a b.exe");
    const QDateTime after = QDateTime::currentDateTime();

    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>(
                 {{"TRACE", scanFile, "Found infected file | Status:1 | /home/a b.exe"},
                  {"TRACE", scanFile,
                   "Cleaned infected file | Status:" + QByteArray::number(status) + " | /home/a b.exe"}}));

    QCOMPARE(FakeResponse::records.size(), 1);
    const VirusReport record = FakeResponse::records.first();
    QCOMPARE(record.getFileName(), QStringLiteral("a b.exe"));
    QCOMPARE(record.getFilePath(), QStringLiteral("/home/a b.exe"));
    QCOMPARE(record.getVirusName(), QStringLiteral("Test-Virus"));
    QCOMPARE(record.getCleanStatus(), status);
    QCOMPARE(record.getModuleName(), QStringLiteral("tvfilemon"));
    QCOMPARE(record.getModuleVersion(), Common::getBuildDateTime());
    QVERIFY(record.getDateTime() >= before && record.getDateTime() <= after);

    QCOMPARE(FakeResponse::popups.size(), 1);
    const FakeResponse::Popup popup = FakeResponse::popups.first();
    QCOMPARE(popup.title, QStringLiteral("Infected File Found"));
    QCOMPARE(popup.message, QStringLiteral("<b>File Name:</b> a b.exe<br/><b>Virus Name:</b> Test-Virus<br/>"
                                           "<b>Clean Status:</b> ") +
                                text + QStringLiteral("<br/><b>File Path:</b> /home/a b.exe"));
    QCOMPARE(popup.third, QStringLiteral("4"));
    QCOMPARE(popup.icon, Common::getRootPath() + QStringLiteral("/icons/ip_block.png"));
    QCOMPARE(popup.fifth, QString());
    QCOMPARE(popup.sixth, QString());
    QCOMPARE(popup.seventh, 3);
    QCOMPARE(popup.module, QStringLiteral("tvfilemon"));
    const auto stamp = QDateTime::fromString(popup.stamp, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    QVERIFY2(stamp >= before.addSecs(59) && stamp <= after.addSecs(60), qPrintable(popup.stamp));
}

void TestFileMonitor::tellsADetectionInOrder()
{
    start();
    FakeResponse::scanResult = 1;
    deliverFile();
    QCOMPARE(FakeResponse::calls,
             QStringList({QStringLiteral("scan /home/x.bin"), QStringLiteral("clean /home/x.bin"),
                          QStringLiteral("record"), QStringLiteral("popup")}));
}

void TestFileMonitor::goesOnWhenTheRecordIsNotStored()
{
    start();
    FakeResponse::scanResult = 1;
    FakeResponse::recordResult = false;
    deliverFile();
    QCOMPARE(FakeResponse::popups.size(), 1);
    QCOMPARE(m_log->takeNew().size(), 2);
}

void TestFileMonitor::fillsThePopupInTurn()
{
    start();
    FakeResponse::scanResult = 1;
    FakeResponse::virusName = QStringLiteral("V");
    deliverFile(IN_CREATE, "%4%2");
    QCOMPARE(FakeResponse::popups.first().message,
             QStringLiteral("<b>File Name:</b> /home/%4%2V<br/><b>Virus Name:</b> V<br/>"
                            "<b>Clean Status:</b> Cleaned<br/><b>File Path:</b> /home/%4%2"));
}

void TestFileMonitor::showsTheLocalTime()
{
    // In UTC nothing would tell local time from universal time.
    qputenv("TZ", "TVT-5:30");
    start();
    FakeResponse::scanResult = 1;
    const QString earliest = localTime(::time(nullptr) + 60);
    deliverFile();
    const QString latest = localTime(::time(nullptr) + 60);
    const QString stamp = FakeResponse::popups.first().stamp;
    QVERIFY2(stamp >= earliest && stamp <= latest, qPrintable(stamp));
}

void TestFileMonitor::writesTimesInTheCLocale_data()
{
    QTest::addColumn<QString>("locale");
    QTest::newRow("German") << QStringLiteral("de_DE");
    QTest::newRow("Egyptian Arabic") << QStringLiteral("ar_EG");
}

void TestFileMonitor::writesTimesInTheCLocale()
{
    QFETCH(QString, locale);
    start();
    QLocale::setDefault(QLocale(locale));
    FakeResponse::scanResult = 1;
    deliverFile();
    const QString stamp = FakeResponse::popups.first().stamp;
    for (const QChar character : stamp) {
        QVERIFY2(character.unicode() < 0x80, qPrintable(stamp));
    }
    QCOMPARE(stamp.size(), 19);
    QCOMPARE(FakeResponse::records.first().getModuleVersion().size(), 19);
}

void TestFileMonitor::repeatsEverythingForEachEventOfAReportedFile()
{
    start();
    FakeResponse::scanResult = 1;
    FakeResponse::cleanResult = -1;
    deliver(FakeInotify::record(m_home, IN_CREATE, "x") + FakeInotify::record(m_home, IN_MODIFY, "x"));
    QCOMPARE(FakeResponse::records.size(), 2);
    QCOMPARE(FakeResponse::popups.size(), 2);
}

void TestFileMonitor::showsANameThatIsNotUtf8Escaped()
{
    start();
    FakeResponse::scanResult = 1;
    deliverFile(IN_CREATE, "bad\xff.exe");
    QCOMPARE(FakeResponse::records.first().getFileName(), QStringLiteral("bad\\xff.exe"));
    QCOMPARE(FakeResponse::records.first().getFilePath(), QStringLiteral("/home/bad\\xff.exe"));
    QVERIFY(FakeResponse::popups.first().message.endsWith(QStringLiteral("/home/bad\\xff.exe")));
}

void TestFileMonitor::scansALeasedFileAgainWhenItIsFree()
{
    start();
    QFile file(m_root->filePath(QStringLiteral("x")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    FakeResponse::scanResult = 8;
    FakeResponse::scanErrno = EAGAIN;
    const QString missing = m_root->filePath(QStringLiteral("missing"));
    m_monitor->scanFile(missing, QStringLiteral("missing"));
    m_monitor->scanFile(file.fileName(), QStringLiteral("x"));
    QCOMPARE(m_log->takeNew().size(), 2);
    FakeResponse::reset();
    FakeResponse::scanResult = 1;
    QTRY_COMPARE_WITH_TIMEOUT(FakeResponse::popups.size(), 1, 10000);
    QCOMPARE(FakeResponse::calls, QStringList({QStringLiteral("scan ") + file.fileName(),
                                               QStringLiteral("clean ") + file.fileName(),
                                               QStringLiteral("record"), QStringLiteral("popup")}));
    QCOMPARE(FakeResponse::records.first().getFileName(), QStringLiteral("x"));
    QCOMPARE(m_log->takeNew().size(), 2);
}

void TestFileMonitor::scansNoFileAgainThatIsNotLeased()
{
    start();
    QFile file(m_root->filePath(QStringLiteral("x")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    const QString later = m_root->filePath(QStringLiteral("later"));
    QVERIFY(file.copy(later));
    FakeResponse::scanResult = 8;
    FakeResponse::scanErrno = EAGAIN;
    m_monitor->scanFile(file.fileName(), QStringLiteral("x"));
    m_monitor->scanFile(later, QStringLiteral("later"));
    FakeResponse::scanResult = 0;
    m_monitor->scanFile(file.fileName(), QStringLiteral("x"));
    // Neither another reason why a file cannot be opened nor another error is a lease.
    for (const auto& [result, error] : {std::pair(8, ENOENT), std::pair(9, EAGAIN)}) {
        FakeResponse::scanResult = result;
        FakeResponse::scanErrno = error;
        m_monitor->scanFile(file.fileName(), QStringLiteral("x"));
    }
    FakeResponse::scanned.clear();
    QTRY_COMPARE_WITH_TIMEOUT(FakeResponse::scanned, QStringList{later}, 10000);
}

void TestFileMonitor::saysOnceThatTooManyFilesAreLeased()
{
    start();
    FakeResponse::scanResult = 8;
    FakeResponse::scanErrno = EAGAIN;
    for (int i = 0; i < LeasedFiles::limit; ++i) {
        m_monitor->scanFile(QStringLiteral("/missing/%1").arg(i), QString::number(i));
    }
    m_log->takeNew();
    m_monitor->scanFile(QStringLiteral("/missing/x"), QStringLiteral("x"));
    m_monitor->scanFile(QStringLiteral("/missing/y"), QStringLiteral("y"));
    const auto failure = [](const char* path) {
        return LogLine{"ERROR", scanFile,
                       errorCode(EAGAIN) + "Error File Scanning | Error:8 | " + QByteArray(path)};
    };
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"INFO", "FileMonitor::keepForLater",
                                                  "Too many files under lease, not all are scanned again."},
                                                 failure("/missing/x"),
                                                 failure("/missing/y")}));
}

QTEST_GUILESS_MAIN(TestFileMonitor)
#include "tst_filemonitor.moc"
