#include "common/common.h"
#include "common/filename.h"
#include "common/uniquefd.h"
#include "scan/cscanfile.h"
#include "scan/scansettings.h"
#include "support/fakeclamav.h"
#include "support/testsignatures.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using Setter = void (ScanSettings::*)(bool);
Q_DECLARE_METATYPE(Setter)

namespace
{
const QString testFiles = QStringLiteral("/usr/share/clamav-testfiles/");
const QString eicarName = QStringLiteral("Eicar-Test-Signature");
const QString programName = QStringLiteral("Clamav.Test.File-6");
const QString klezName = QStringLiteral("Win.Worm.Klez-1");
const QString untouched = QStringLiteral("as it was");

const std::array<Setter, 6> engineSwitches = {
    &ScanSettings::setScanForArchives, &ScanSettings::setScanForHeuristics, &ScanSettings::setScanForHTML_XML,
    &ScanSettings::setScanForDoc_Xls,  &ScanSettings::setScanForSWF,        &ScanSettings::setScanForPDF,
};

void switchAll(bool on)
{
    for (const Setter set : engineSwitches) {
        (ScanSettings::getInstance()->*set)(on);
    }
}

struct Outcome
{
    int result;
    QString virusName;

    bool operator==(const Outcome& other) const
    {
        return result == other.result && virusName == other.virusName;
    }
};

char* toString(const Outcome& outcome)
{
    return qstrdup((QByteArray::number(outcome.result) + ' ' + outcome.virusName.toUtf8()).constData());
}

Outcome scan(const QString& path)
{
    Outcome outcome = {0, untouched};
    outcome.result = CScanFile::getInstance()->scanFile(path, outcome.virusName);
    return outcome;
}

/// What libclamav itself answers for the path, with the options of the last scan.
Outcome plainScan(const QByteArray& path)
{
    cl_scan_options options = FakeClamav::scans.constLast().options;
    const char* name = nullptr;
    const int result =
        cl_scanfile(path.constData(), &name, nullptr, FakeClamav::engines.constFirst(), &options);
    return {result, result == CL_VIRUS ? QString::fromUtf8(name) : untouched};
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Tells whether somebody opened what is at a path.
class OpenWatch
{
public:
    explicit OpenWatch(const QByteArray& path) : m_inotify(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        m_watching = ::inotify_add_watch(m_inotify.get(), path.constData(), IN_OPEN) >= 0;
    }
    bool isWatching() const
    {
        return m_watching;
    }
    /// Since the last call; the kernel reports within the call that opens.
    bool sawOpen()
    {
        std::array<char, 4096> records;
        return ::read(m_inotify.get(), records.data(), records.size()) > 0;
    }

private:
    UniqueFd m_inotify;
    bool m_watching = false;
};

/// Is nobody in particular while it lives, when the test runs as root.
class Unprivileged
{
public:
    Unprivileged()
    {
        constexpr uid_t nobody = 65534;
        m_changed = ::geteuid() == 0 && ::seteuid(nobody) == 0;
    }
    ~Unprivileged()
    {
        if (m_changed && ::seteuid(0) != 0) {
            qFatal("cannot be root again");
        }
    }

private:
    bool m_changed = false;
};
} // namespace

Q_DECLARE_METATYPE(Outcome)

/// What the engine finds and where, with real signatures.
class TestCScanFileDetection : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void findsWhatTheSignaturesName_data();
    void findsWhatTheSignaturesName();
    void findsTextsToo_data();
    void findsTextsToo();
    void looksInsideOnlyWhenTold_data();
    void looksInsideOnlyWhenTold();
    void looksInsideProgramsAlways();
    void tellsBrokenProgramsByHeuristicsOnly();
    void answersAsTheLibraryDoesForTestFiles_data();
    void answersAsTheLibraryDoesForTestFiles();
    void answersAsTheLibraryDoesForOddObjects_data();
    void answersAsTheLibraryDoesForOddObjects();
    void answersAsTheLibraryDoesWithoutPermission_data();
    void answersAsTheLibraryDoesWithoutPermission();
    void findsFilesOfAnyName_data();
    void findsFilesOfAnyName();
    void scansWhatALinkLeadsTo();
    void scansRelativePaths();
    void neverOpensAFifo_data();
    void neverOpensAFifo();
    void neverOpensADevice();
    void callsADirectoryClean();
    void refusesAFileUnderLeaseAtOnce();

private:
    QString write(const QByteArray& name, const QByteArray& content)
    {
        const QByteArray path = pathOf(name);
        const UniqueFd fd(::open(path.constData(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644));
        if (::write(fd.get(), content.constData(), static_cast<size_t>(content.size())) != content.size()) {
            qFatal("cannot write %s", path.constData());
        }
        return FileName::toText(path);
    }
    QByteArray pathOf(const QByteArray& name) const
    {
        return QFile::encodeName(m_directory->path()) + '/' + name;
    }

    QScopedPointer<QTemporaryDir> m_directory;
};

void TestCScanFileDetection::initTestCase()
{
    QVERIFY(TestSignatures::removeAll());
    QVERIFY(TestSignatures::install(QStringLiteral("test-6.cvd"), QStringLiteral("test.cvd")));
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QVERIFY2(QFile::exists(testFiles + QStringLiteral("clam.exe")),
             "the package clamav-testfiles is missing");
}

void TestCScanFileDetection::init()
{
    switchAll(true);
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    m_directory->setAutoRemove(false);
}

void TestCScanFileDetection::cleanup()
{
    // QTemporaryDir leaves behind what has a name that is not UTF-8.
    QVERIFY(std::filesystem::remove_all(m_directory->path().toStdString()) > 0);
}

void TestCScanFileDetection::cleanupTestCase()
{
    QVERIFY(TestSignatures::removeAll());
    CScanFile::releaseInstance();
    ScanSettings::releaseInstance();
}

void TestCScanFileDetection::findsWhatTheSignaturesName_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<Outcome>("expected");
    QTest::newRow("EICAR") << TestSignatures::eicar() << Outcome{1, eicarName};
    QTest::newRow("test program") << contentOf(testFiles + QStringLiteral("clam.exe"))
                                  << Outcome{1, programName};
    QTest::newRow("worm") << TestSignatures::klez() << Outcome{1, klezName};
    QTest::newRow("worm inside") << QByteArray("before") + TestSignatures::klez() + "after"
                                 << Outcome{1, klezName};
    QTest::newRow("text") << QByteArray("Nothing wrong with this.\n") << Outcome{0, untouched};
    QTest::newRow("nearly EICAR") << TestSignatures::eicar().replace('!', '?') << Outcome{0, untouched};
    QTest::newRow("half of EICAR") << TestSignatures::eicar().left(34) << Outcome{0, untouched};
    QTest::newRow("empty") << QByteArray() << Outcome{0, untouched};
    QTest::newRow("one byte") << QByteArray("x") << Outcome{0, untouched};
}

void TestCScanFileDetection::findsWhatTheSignaturesName()
{
    QFETCH(QByteArray, content);
    QTEST(scan(write("file", content)), "expected");
    // Without any switch too: none of these is inside something.
    switchAll(false);
    QTEST(scan(write("file", content)), "expected");
}

void TestCScanFileDetection::findsTextsToo_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<Outcome>("expected");
    QTest::newRow("EICAR") << QString::fromLatin1(TestSignatures::eicar()) << Outcome{1, eicarName};
    QTest::newRow("URL") << QStringLiteral("http://localhost/index.html") << Outcome{0, untouched};
    // By the address nothing is fetched and nothing opened.
    QTest::newRow("path of an infected file")
        << testFiles + QStringLiteral("clam.exe") << Outcome{0, untouched};
    QTest::newRow("empty") << QStringLiteral("") << Outcome{0, untouched};
    QTest::newRow("null") << QString() << Outcome{0, untouched};
    QTest::newRow("not ASCII") << QString::fromUtf8("http://localhost/\xC3\xA9") << Outcome{0, untouched};
}

void TestCScanFileDetection::findsTextsToo()
{
    QFETCH(QString, text);
    Outcome outcome = {0, untouched};
    outcome.result = CScanFile::getInstance()->scanUrl(text, outcome.virusName);
    QTEST(outcome, "expected");
}

void TestCScanFileDetection::looksInsideOnlyWhenTold_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<Setter>("set");
    QTest::addColumn<QString>("virusName");
    const auto addFile = [](const char* name, Setter set) {
        QTest::newRow(name) << contentOf(testFiles + QString::fromLatin1(name)) << set << programName;
    };
    for (const char* name : {"clam.zip", "clam.7z", "clam.arj", "clam.cab", "clam.tar.gz", "clam.exe.bz2",
                             "clam.newc.cpio", "clam.chm", "clam.exe.rtf", "clam.exe.szdd"}) {
        addFile(name, &ScanSettings::setScanForArchives);
    }
    addFile("clam.ole.doc", &ScanSettings::setScanForDoc_Xls);
    addFile("clam.ppt", &ScanSettings::setScanForDoc_Xls);
    addFile("clam.pdf", &ScanSettings::setScanForPDF);

    const QByteArray program = contentOf(testFiles + QStringLiteral("clam.exe"));
    QTest::newRow("HTML") << "<html><head><style>a{background:url(\"data:image/png;base64," +
                                 program.toBase64() + "\")}</style></head><body>x</body></html>"
                          << Setter(&ScanSettings::setScanForHTML_XML) << programName;
    const QByteArray flash = TestSignatures::klez() + QByteArray(200, '\0');
    // Qt puts four bytes of its own before what zlib makes.
    QTest::newRow("SWF") << QByteArray("CWS\x06\x2f\x01\0\0", 8) + qCompress(flash).mid(4)
                         << Setter(&ScanSettings::setScanForSWF) << klezName;
}

void TestCScanFileDetection::looksInsideOnlyWhenTold()
{
    QFETCH(QByteArray, content);
    QFETCH(Setter, set);
    QFETCH(QString, virusName);
    QVERIFY(!content.isEmpty());
    const QString path = write("file", content);
    ScanSettings& settings = *ScanSettings::getInstance();
    for (int round = 0; round < 2; ++round) {
        // The one switch alone finds it, all the others do not: on the very next scan, every time.
        switchAll(false);
        QCOMPARE(scan(path), (Outcome{0, untouched}));
        (settings.*set)(true);
        QCOMPARE(scan(path), (Outcome{1, virusName}));
        switchAll(true);
        QCOMPARE(scan(path), (Outcome{1, virusName}));
        (settings.*set)(false);
        QCOMPARE(scan(path), (Outcome{0, untouched}));
    }
}

void TestCScanFileDetection::looksInsideProgramsAlways()
{
    switchAll(false);
    QCOMPARE(scan(testFiles + QStringLiteral("clam-upx.exe")), (Outcome{1, programName}));
}

void TestCScanFileDetection::tellsBrokenProgramsByHeuristicsOnly()
{
    const QString path = write("file", contentOf(testFiles + QStringLiteral("clam.exe")).left(300));
    QCOMPARE(scan(path), (Outcome{1, QStringLiteral("Heuristics.Broken.Executable")}));
    ScanSettings::getInstance()->setScanForHeuristics(false);
    QCOMPARE(scan(path), (Outcome{0, untouched}));
}

void TestCScanFileDetection::answersAsTheLibraryDoesForTestFiles_data()
{
    QTest::addColumn<QString>("path");
    const QStringList names = QDir(testFiles).entryList(QDir::Files);
    for (const QString& name : names) {
        QTest::newRow(qPrintable(name)) << testFiles + name;
    }
}

void TestCScanFileDetection::answersAsTheLibraryDoesForTestFiles()
{
    QFETCH(QString, path);
    for (const bool on : {true, false}) {
        switchAll(on);
        const Outcome outcome = scan(path);
        QCOMPARE(outcome, plainScan(QFile::encodeName(path)));
    }
}

void TestCScanFileDetection::answersAsTheLibraryDoesForOddObjects_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("expected");
    QTest::newRow("directory") << QByteArray("directory") << 0;
    QTest::newRow("directory with a slash") << QByteArray("directory/") << 0;
    QTest::newRow("link to a directory") << QByteArray("dirlink") << 0;
    QTest::newRow("socket") << QByteArray("socket") << 8;
    QTest::newRow("link to a socket") << QByteArray("socketlink") << 8;
    QTest::newRow("missing") << QByteArray("missing") << 8;
    QTest::newRow("missing directory") << QByteArray("missing/file") << 8;
    QTest::newRow("below a file") << QByteArray("empty/file") << 8;
    QTest::newRow("file with a slash") << QByteArray("infected/") << 8;
    QTest::newRow("link that leads nowhere") << QByteArray("dangling") << 8;
    QTest::newRow("link to itself") << QByteArray("loop") << 8;
    QTest::newRow("name too long") << QByteArray(256, 'x') << 8;
    QTest::newRow("path too long") << QByteArray("directory/../").repeated(400) + "empty" << 8;
    QTest::newRow("empty file") << QByteArray("empty") << 0;
    QTest::newRow("infected file") << QByteArray("infected") << 1;
    QTest::newRow("link to an infected file") << QByteArray("link") << 1;
    QTest::newRow("the path itself") << QByteArray() << 0;
    QTest::newRow("/dev/null") << QByteArray("null") << 0;
    QTest::newRow("/dev/zero") << QByteArray("zero") << 0;
}

void TestCScanFileDetection::answersAsTheLibraryDoesForOddObjects()
{
    QFETCH(QByteArray, name);
    write("empty", "");
    write("infected", TestSignatures::eicar());
    QCOMPARE(::mkdir(pathOf("directory").constData(), 0700), 0);
    QCOMPARE(::symlink("directory", pathOf("dirlink").constData()), 0);
    QCOMPARE(::symlink("nowhere", pathOf("dangling").constData()), 0);
    QCOMPARE(::symlink("loop", pathOf("loop").constData()), 0);
    QCOMPARE(::symlink("infected", pathOf("link").constData()), 0);
    QCOMPARE(::symlink("socket", pathOf("socketlink").constData()), 0);
    QCOMPARE(::symlink("/dev/null", pathOf("null").constData()), 0);
    QCOMPARE(::symlink("/dev/zero", pathOf("zero").constData()), 0);
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, pathOf("socket").constData(), sizeof(address.sun_path));
    QCOMPARE(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);

    // So that the options of a scan are known.
    scan(FileName::toText(pathOf("infected")));
    const Outcome outcome = scan(FileName::toText(pathOf(name)));
    QTEST(outcome.result, "expected");
    QCOMPARE(outcome, plainScan(pathOf(name)));
}

void TestCScanFileDetection::answersAsTheLibraryDoesWithoutPermission_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("file") << QByteArray("unreadable");
    QTest::newRow("link to a file") << QByteArray("link");
    QTest::newRow("directory") << QByteArray("closed");
    QTest::newRow("file in a directory") << QByteArray("closed/file");
}

void TestCScanFileDetection::answersAsTheLibraryDoesWithoutPermission()
{
    QFETCH(QByteArray, name);
    QCOMPARE(::mkdir(pathOf("closed").constData(), 0700), 0);
    write("closed/file", TestSignatures::eicar());
    write("unreadable", TestSignatures::eicar());
    QCOMPARE(::chmod(pathOf("unreadable").constData(), 0), 0);
    QCOMPARE(::chmod(pathOf("closed").constData(), 0), 0);
    QCOMPARE(::chmod(pathOf("").constData(), 0755), 0);
    QCOMPARE(::symlink("unreadable", pathOf("link").constData()), 0);
    scan(QStringLiteral("/etc/passwd"));
    Outcome outcome = {};
    Outcome plain = {};
    {
        const Unprivileged nobody;
        outcome = scan(FileName::toText(pathOf(name)));
        plain = plainScan(pathOf(name));
    }
    QCOMPARE(::chmod(pathOf("closed").constData(), 0700), 0);
    QCOMPARE(plain.result, static_cast<int>(CL_EACCES));
    QCOMPARE(outcome, plain);
}

void TestCScanFileDetection::findsFilesOfAnyName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("blank") << QByteArray("a b");
    QTest::newRow("UTF-8") << QByteArray("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    QTest::newRow("leading U+FEFF") << QByteArray("\xEF\xBB\xBF"
                                                  "file");
    QTest::newRow("U+FFFD") << QByteArray("\xEF\xBF\xBD");
    QTest::newRow("Latin-1") << QByteArray("caf\xE9");
    QTest::newRow("bytes of no encoding") << QByteArray("\x80\xFF\xC0\x80\xED\xA0\x80");
    QTest::newRow("newline") << QByteArray("a\nb\r\n");
    QTest::newRow("percent sequences") << QByteArray("%s%n%1%2%%");
    QTest::newRow("255 bytes") << QByteArray(255, 'n');
    QTest::newRow("255 bytes that are not UTF-8") << QByteArray(255, '\xFF');
    QTest::newRow("backslash and quotes") << QByteArray("\\\"'`$(x)");
}

void TestCScanFileDetection::findsFilesOfAnyName()
{
    QFETCH(QByteArray, name);
    QCOMPARE(scan(write(name, TestSignatures::eicar())), (Outcome{1, eicarName}));
}

void TestCScanFileDetection::scansWhatALinkLeadsTo()
{
    write("target", TestSignatures::eicar());
    QCOMPARE(::symlink("target", pathOf("first").constData()), 0);
    QCOMPARE(::symlink("first", pathOf("second").constData()), 0);
    QCOMPARE(scan(FileName::toText(pathOf("second"))), (Outcome{1, eicarName}));
}

void TestCScanFileDetection::scansRelativePaths()
{
    // Here U+FEFF leads the whole text.
    write("\xEF\xBB\xBF"
          "file",
          TestSignatures::eicar());
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(m_directory->path()));
    const Outcome outcome = scan(FileName::toText("\xEF\xBB\xBF"
                                                  "file"));
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(outcome, (Outcome{1, eicarName}));
}

void TestCScanFileDetection::neverOpensAFifo_data()
{
    QTest::addColumn<bool>("byLink");
    QTest::newRow("by its own path") << false;
    QTest::newRow("by a link") << true;
}

void TestCScanFileDetection::neverOpensAFifo()
{
    QFETCH(bool, byLink);
    const QByteArray fifo = pathOf("fifo");
    QCOMPARE(::mkfifo(fifo.constData(), 0600), 0);
    QCOMPARE(::symlink("fifo", pathOf("link").constData()), 0);
    // A writer waits for somebody to read.
    const pid_t writer = ::fork();
    QVERIFY(writer >= 0);
    if (writer == 0) {
        ::_exit(::open(fifo.constData(), O_WRONLY | O_CLOEXEC) >= 0 ? 0 : 1);
    }
    OpenWatch watch(fifo);
    QVERIFY(watch.isWatching());

    QElapsedTimer timer;
    timer.start();
    QCOMPARE(scan(FileName::toText(byLink ? pathOf("link") : fifo)), (Outcome{0, untouched}));
    QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(!watch.sawOpen());
    QCOMPARE(::waitpid(writer, nullptr, WNOHANG), 0);

    // Both would have shown: the watch sees an opening, and that lets the writer go.
    const UniqueFd reader(::open(fifo.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    QVERIFY(watch.sawOpen());
    int status = -1;
    QCOMPARE(::waitpid(writer, &status, 0), writer);
    QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

void TestCScanFileDetection::callsADirectoryClean()
{
    for (const char* path : {"/", "/etc", "/proc/self"}) {
        QCOMPARE(scan(QString::fromLatin1(path)), (Outcome{0, untouched}));
    }
}

void TestCScanFileDetection::neverOpensADevice()
{
    // A terminal of our own: nobody else opens it.
    const UniqueFd terminal(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    QVERIFY(terminal.isValid());
    QCOMPARE(::grantpt(terminal.get()), 0);
    QCOMPARE(::unlockpt(terminal.get()), 0);
    const QByteArray device = ::ptsname(terminal.get());
    QCOMPARE(::symlink(device.constData(), pathOf("link").constData()), 0);
    OpenWatch watch(device);
    QVERIFY(watch.isWatching());

    QCOMPARE(scan(FileName::toText(device)), (Outcome{0, untouched}));
    QCOMPARE(scan(FileName::toText(pathOf("link"))), (Outcome{0, untouched}));
    QVERIFY(!watch.sawOpen());

    const UniqueFd opened(::open(device.constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    QVERIFY(watch.sawOpen());
}

void TestCScanFileDetection::refusesAFileUnderLeaseAtOnce()
{
    const QString path = write("leased", TestSignatures::eicar());
    std::array<int, 2> ready = {};
    QCOMPARE(::pipe2(ready.data(), O_CLOEXEC), 0);
    const pid_t holder = ::fork();
    QVERIFY(holder >= 0);
    if (holder == 0) {
        // The kernel asks for the lease back by this signal, which would end the holder.
        ::signal(SIGIO, SIG_IGN);
        const int fd = ::open(FileName::toBytes(path).constData(), O_RDWR | O_CLOEXEC);
        const char answer = ::fcntl(fd, F_SETLEASE, F_WRLCK) == 0 ? 'y' : 'n';
        if (::write(ready[1], &answer, 1) == 1) {
            ::pause();
        }
        ::_exit(0);
    }
    char answer = 0;
    const ssize_t got = ::read(ready[0], &answer, 1);
    QElapsedTimer timer;
    timer.start();
    const Outcome outcome = scan(path);
    const qint64 elapsed = timer.elapsed();
    ::kill(holder, SIGKILL);
    ::waitpid(holder, nullptr, 0);
    ::close(ready[0]);
    ::close(ready[1]);
    QCOMPARE(got, ssize_t(1));
    QCOMPARE(answer, 'y');
    QCOMPARE(outcome, (Outcome{8, untouched}));
    // The holder would be given 45 seconds.
    QVERIFY2(elapsed < 1000, qPrintable(QString::number(elapsed)));
    QCOMPARE(scan(path), (Outcome{1, eicarName}));
}

QTEST_GUILESS_MAIN(TestCScanFileDetection)
#include "tst_cscanfile_detection.moc"
