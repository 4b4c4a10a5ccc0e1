#include "tvctl/files/treewalker.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{
/// A directory of this name cannot be opened, a name in one of the second kind not looked at, the third not
/// read to its end: whoever runs the tests may be root.
constexpr const char* locked = "locked";
constexpr const char* unreadable = "unreadable";
/// The entries of directories of this name all say to be of the kind.
struct
{
    QByteArray directory;
    unsigned char type = DT_UNKNOWN;
} forged;
/// Directories of this name are all the same one, of another file system.
QByteArray manyNamesOfOne;

QByteArray pathOf(int descriptor)
{
    const QByteArray self = "/proc/self/fd/" + QByteArray::number(descriptor);
    char path[4096] = {};
    return ::readlink(self.constData(), path, sizeof(path) - 1) > 0 ? QByteArray(path) : QByteArray();
}

void forge(void* buffer, ssize_t size)
{
    for (ssize_t at = 0; at < size;) {
        auto* entry = reinterpret_cast<dirent64*>(static_cast<char*>(buffer) + at);
        entry->d_type = forged.type;
        at += entry->d_reclen;
    }
}
} // namespace

extern "C" int fstat(int descriptor, struct stat* status) noexcept
{
    using Function = int (*)(int, struct stat*);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "fstat"));
    const int result = real(descriptor, status);
    if (!manyNamesOfOne.isEmpty() && pathOf(descriptor).endsWith('/' + manyNamesOfOne)) {
        status->st_dev = 1;
        status->st_ino = 1;
    }
    return result;
}

extern "C" int openat(int directory, const char* name, int flags, ...)
{
    using Function = int (*)(int, const char*, int, mode_t);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "openat"));
    if (qstrcmp(name, locked) == 0) {
        errno = EACCES;
        return -1;
    }
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return real(directory, name, flags, mode);
}

extern "C" ssize_t getdents64(int directory, void* buffer, size_t size)
{
    using Function = ssize_t (*)(int, void*, size_t);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "getdents64"));
    const ssize_t got = real(directory, buffer, size);
    if (got == 0 && pathOf(directory).endsWith(unreadable)) {
        errno = EIO;
        return -1;
    }
    if (!forged.directory.isEmpty() && pathOf(directory).endsWith('/' + forged.directory)) {
        forge(buffer, got);
    }
    return got;
}

using Kind = TreeWalker::Kind;

class TestTreeWalker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void walksInTheOrderOfBytes();
    void tellsWhatIsNoFile();
    void walksARootThatIsAFile();
    void tellsARootThatIsNotThere();
    void followsNoLinkToTheRoot();
    void leavesOutWhatIsSkipped();
    void tellsWhatCannotBeRead();
    void resumesBehind_data();
    void resumesBehind();
    void resumesBehindTheRoot();
    void resumesAt_data();
    void resumesAt();
    void entersNoPseudoFileSystemUnlessNamed();
    void tellsTheFileSystem();
    void passesOverWhatVanishes();
    void believesNoDirectoryWhatIsInIt_data();
    void believesNoDirectoryWhatIsInIt();
    void entersADirectoryOfManyNamesOnce();
    void isNotLedAstray();
    void goesOnWhenADirectoryIsMovedAway();
    void tellsWhereTheWayBackIsLost();
    void tellsDepthAndName();
    void opensTheFile();
    void opensNothingButAFile();
    void walksDeepTreesWithFewDescriptors();

private:
    void make(const QByteArray& name);

    QByteArray m_root;
};

namespace
{

QByteArray letterOf(Kind kind)
{
    switch (kind) {
    case Kind::File:
        return "F ";
    case Kind::Directory:
        return "D ";
    case Kind::Skipped:
        return "S ";
    case Kind::Other:
        return "O ";
    default:
        return "U ";
    }
}

QByteArray told(const TreeWalker& walker, const QByteArray& root)
{
    return letterOf(walker.kind()) + walker.path().mid(root.size());
}

QList<QByteArray> rest(TreeWalker& walker, const QByteArray& root)
{
    QList<QByteArray> seen;
    while (walker.next()) {
        seen += told(walker, root);
    }
    return seen;
}

void skipTo(TreeWalker& walker, const QByteArray& path)
{
    while (walker.next() && walker.path() != path) {
    }
}

/// So deep below `directory` that this one has been closed when the walk is there.
QByteArray deeperThanIsOpen(const QByteArray& directory)
{
    return directory + QByteArray("d/").repeated(2 * static_cast<int>(TreeWalker::openDirectories));
}

int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System).size();
}
} // namespace

void TestTreeWalker::init()
{
    QTemporaryDir directory;
    directory.setAutoRemove(false);
    m_root = QFile::encodeName(directory.path());
}

void TestTreeWalker::cleanup()
{
    // Qt removes neither names that are no UTF-8 nor paths that no call takes.
    QCOMPARE(QProcess::execute(QStringLiteral("rm"), {QStringLiteral("-rf"), QFile::decodeName(m_root)}), 0);
}

/// A file at `name` below the root; a directory when it ends in a slash.
void TestTreeWalker::make(const QByteArray& name)
{
    const QByteArray path = m_root + '/' + name;
    for (int slash = path.indexOf('/', m_root.size() + 1); slash > 0; slash = path.indexOf('/', slash + 1)) {
        ::mkdir(path.left(slash).constData(), 0700);
    }
    if (!path.endsWith('/')) {
        const UniqueFd file(::open(path.constData(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        QVERIFY(file.isValid());
    }
}

void TestTreeWalker::walksInTheOrderOfBytes()
{
    for (const char* name :
         {"b", "B", ".hidden/x", "a/z", "a/a/a", "a.b", "a-b", "\xff", "\xc3\xa4", "empty/", "a\nb"}) {
        make(name);
    }
    TreeWalker walker(m_root);
    const QList<QByteArray> expected = {"D ",     "D /.hidden", "F /.hidden/x", "F /B",        "D /a",
                                        "D /a/a", "F /a/a/a",   "F /a/z",       "F /a\nb",     "F /a-b",
                                        "F /a.b", "F /b",       "D /empty",     "F /\xc3\xa4", "F /\xff"};
    QCOMPARE(rest(walker, m_root), expected);
    QVERIFY(!walker.next());
}

void TestTreeWalker::tellsWhatIsNoFile()
{
    make("d/f");
    QCOMPARE(::mkfifo((m_root + "/fifo").constData(), 0600), 0);
    QCOMPARE(::symlink("d", (m_root + "/link").constData()), 0);
    QCOMPARE(::symlink("nowhere", (m_root + "/broken").constData()), 0);
    TreeWalker walker(m_root);
    const QList<QByteArray> expected = {"D ", "O /broken", "D /d", "F /d/f", "O /fifo", "O /link"};
    QCOMPARE(rest(walker, m_root), expected);
    TreeWalker again(m_root);
    skipTo(again, m_root + "/fifo");
    QVERIFY(S_ISFIFO(again.status().st_mode));
}

void TestTreeWalker::walksARootThatIsAFile()
{
    make("f");
    TreeWalker walker(m_root + "/f");
    QVERIFY(walker.next());
    QCOMPARE(told(walker, m_root), QByteArray("F /f"));
    QCOMPARE(walker.status().st_size, 0);
    QVERIFY(walker.openFile().isValid());
    QVERIFY(!walker.next());
}

void TestTreeWalker::tellsARootThatIsNotThere()
{
    make("f");
    for (const QByteArray& root : {m_root + "/none", m_root + "/none/deeper"}) {
        TreeWalker walker(root);
        QVERIFY(walker.next());
        QCOMPARE(walker.kind(), Kind::Unreadable);
        QCOMPARE(walker.error(), ENOENT);
        QCOMPARE(walker.path(), root);
        QVERIFY(!walker.next());
    }
    TreeWalker walker(m_root + "/f/below");
    QVERIFY(walker.next());
    QCOMPARE(walker.error(), ENOTDIR);
}

void TestTreeWalker::followsNoLinkToTheRoot()
{
    make("d/f");
    QCOMPARE(::symlink("d", (m_root + "/link").constData()), 0);
    TreeWalker walker(m_root + "/link");
    QCOMPARE(rest(walker, m_root), QList<QByteArray>{"O /link"});
    // On the way to the root links are followed.
    TreeWalker below(m_root + "/link/f");
    QCOMPARE(rest(below, m_root), QList<QByteArray>{"F /link/f"});
}

void TestTreeWalker::leavesOutWhatIsSkipped()
{
    for (const char* name : {"a/f", "ab/f", "b/a/f", "f"}) {
        make(name);
    }
    const QByteArray root = m_root;
    const auto rule = [root](const QByteArray& path) {
        return path == root + "/a" || path == root + "/b/a" || path == root + "/f";
    };
    TreeWalker walker(m_root, rule);
    const QList<QByteArray> expected = {"D ", "S /a", "D /ab", "F /ab/f", "D /b", "S /b/a", "F /f"};
    QCOMPARE(rest(walker, m_root), expected);
    TreeWalker skipped(m_root + "/a", rule);
    QCOMPARE(rest(skipped, m_root), QList<QByteArray>{"S /a"});
}

void TestTreeWalker::tellsWhatCannotBeRead()
{
    for (const char* name : {"a/locked/f", "a/x", "unreadable/f", "z"}) {
        make(name);
    }
    TreeWalker walker(m_root);
    const QList<QByteArray> expected = {
        "D ", "D /a", "U /a/locked", "F /a/x", "D /unreadable", "U /unreadable", "F /unreadable/f", "F /z"};
    QCOMPARE(rest(walker, m_root), expected);
    TreeWalker errors(m_root);
    skipTo(errors, m_root + "/a/locked");
    QCOMPARE(errors.error(), EACCES);
    skipTo(errors, m_root + "/unreadable");
    QVERIFY(errors.next());
    QCOMPARE(errors.error(), EIO);
}

void TestTreeWalker::resumesBehind_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QList<QByteArray>>("expected");
    using List = QList<QByteArray>;
    QTest::newRow("file") << QByteArray("/b/d/2")
                          << List{"D ", "D /b", "D /b/d", "F /b/d/3", "F /b/e", "F /c"};
    QTest::newRow("last file") << QByteArray("/b/d/3") << List{"D ", "D /b", "D /b/d", "F /b/e", "F /c"};
    QTest::newRow("directory") << QByteArray("/b/d")
                               << List{"D ", "D /b", "D /b/d", "F /b/d/2", "F /b/d/3", "F /b/e", "F /c"};
    QTest::newRow("very last") << QByteArray("/c") << List{"D "};
    QTest::newRow("file that went") << QByteArray("/b/d/2a")
                                    << List{"D ", "D /b", "D /b/d", "F /b/d/3", "F /b/e", "F /c"};
    QTest::newRow("directory that went")
        << QByteArray("/aa/x/y") << List{"D ", "D /b", "D /b/d", "F /b/d/2", "F /b/d/3", "F /b/e", "F /c"};
    QTest::newRow("directory that became a file")
        << QByteArray("/b/e/1") << List{"D ", "D /b", "F /b/e", "F /c"};
    QTest::newRow("file that became a directory")
        << QByteArray("/b") << List{"D ", "D /b", "D /b/d", "F /b/d/2", "F /b/d/3", "F /b/e", "F /c"};
    QTest::newRow("behind all") << QByteArray("/zz") << List{"D "};
}

void TestTreeWalker::resumesBehind()
{
    QFETCH(QByteArray, path);
    for (const char* name : {"a", "b/d/2", "b/d/3", "b/e", "c"}) {
        make(name);
    }
    TreeWalker walker(m_root);
    walker.resumeBehind(m_root + path);
    QTEST(rest(walker, m_root), "expected");
}

void TestTreeWalker::resumesBehindTheRoot()
{
    make("f");
    TreeWalker directory(m_root);
    directory.resumeBehind(m_root);
    const QList<QByteArray> all = {"D ", "F /f"};
    QCOMPARE(rest(directory, m_root), all);
    TreeWalker file(m_root + "/f");
    file.resumeBehind(m_root + "/f");
    QVERIFY(!file.next());
}

void TestTreeWalker::resumesAt_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QList<QByteArray>>("expected");
    using List = QList<QByteArray>;
    QTest::newRow("file") << QByteArray("/b/2") << List{"D ", "D /b", "F /b/2", "F /c"};
    QTest::newRow("directory") << QByteArray("/b") << List{"D ", "D /b", "F /b/1", "F /b/2", "F /c"};
    QTest::newRow("file that went") << QByteArray("/b/1a") << List{"D ", "D /b", "F /b/2", "F /c"};
    QTest::newRow("root") << QByteArray() << List{"D ", "F /a", "D /b", "F /b/1", "F /b/2", "F /c"};
}

void TestTreeWalker::resumesAt()
{
    QFETCH(QByteArray, path);
    for (const char* name : {"a", "b/1", "b/2", "c"}) {
        make(name);
    }
    TreeWalker walker(m_root);
    walker.resumeAt(m_root + path);
    QTEST(rest(walker, m_root), "expected");
}

void TestTreeWalker::entersNoPseudoFileSystemUnlessNamed()
{
    const auto skipTop = [](const QByteArray& path) {
        return path.count('/') == 1 && path != "/" && path != "/proc";
    };
    TreeWalker walker("/", skipTop);
    bool isPassed = false;
    while (walker.next()) {
        QVERIFY2(!walker.path().startsWith("/proc/"), walker.path().constData());
        isPassed = isPassed || (walker.path() == "/proc" && walker.kind() == Kind::Other);
    }
    QVERIFY(isPassed);
    TreeWalker named("/proc/self/attr");
    QVERIFY(named.next());
    QCOMPARE(named.kind(), Kind::Directory);
    QVERIFY(named.next());
    TreeWalker proc("/proc");
    QVERIFY(proc.next() && proc.next());
    QVERIFY(proc.path().startsWith("/proc/"));
}

void TestTreeWalker::tellsTheFileSystem()
{
    TreeWalker walker("/proc/self/attr");
    QVERIFY(walker.next());
    QCOMPARE(walker.fileSystem(), long(PROC_SUPER_MAGIC));
    QVERIFY(walker.next());
    QCOMPARE(walker.fileSystem(), long(PROC_SUPER_MAGIC));
}

void TestTreeWalker::passesOverWhatVanishes()
{
    for (const char* name : {"a", "b/f", "c"}) {
        make(name);
    }
    TreeWalker walker(m_root);
    QVERIFY(walker.next());
    QCOMPARE(::unlink((m_root + "/a").constData()), 0);
    QVERIFY(QDir(QFile::decodeName(m_root + "/b")).removeRecursively());
    QCOMPARE(rest(walker, m_root), QList<QByteArray>{"F /c"});
}

void TestTreeWalker::believesNoDirectoryWhatIsInIt_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("unknown") << int(DT_UNKNOWN);
    QTest::newRow("file") << int(DT_REG);
    QTest::newRow("directory") << int(DT_DIR);
    QTest::newRow("link") << int(DT_LNK);
    QTest::newRow("socket") << int(DT_SOCK);
    QTest::newRow("FIFO") << int(DT_FIFO);
    QTest::newRow("character device") << int(DT_CHR);
    QTest::newRow("block device") << int(DT_BLK);
    QTest::newRow("no kind") << 15;
}

void TestTreeWalker::believesNoDirectoryWhatIsInIt()
{
    QFETCH(int, type);
    make("forged/d/f");
    make("forged/f");
    QCOMPARE(::symlink("d", (m_root + "/forged/link").constData()), 0);
    QCOMPARE(::mkfifo((m_root + "/forged/pipe").constData(), 0600), 0);
    forged = {"forged", static_cast<unsigned char>(type)};
    TreeWalker walker(m_root + "/forged");
    const QList<QByteArray> seen = rest(walker, m_root + "/forged");
    forged = {};
    const QList<QByteArray> expected = {"D ", "D /d", "F /d/f", "F /f", "O /link", "O /pipe"};
    QCOMPARE(seen, expected);
}

void TestTreeWalker::entersADirectoryOfManyNamesOnce()
{
    for (const char* name : {"a/same/f", "b/same/f", "c/same/f", "z"}) {
        make(name);
    }
    const QList<QByteArray> expected = {"D ",        "D /a", "D /a/same", "F /a/same/f", "D /b",
                                        "O /b/same", "D /c", "O /c/same", "F /z"};
    for (int i = 0; i < 2; ++i) {
        manyNamesOfOne = "same";
        TreeWalker walker(m_root);
        const QList<QByteArray> seen = rest(walker, m_root);
        manyNamesOfOne.clear();
        QCOMPARE(seen, expected);
    }
}

void TestTreeWalker::isNotLedAstray()
{
    for (const char* name : {"outside/secret", "top/a/f", "top/b", "top/c"}) {
        make(name);
    }
    TreeWalker walker(m_root + "/top");
    QVERIFY(walker.next());
    // A directory becomes a link, a file a FIFO, another a link: after the names were read.
    QVERIFY(QDir(QFile::decodeName(m_root + "/top/a")).removeRecursively());
    QCOMPARE(::symlink("../outside", (m_root + "/top/a").constData()), 0);
    QCOMPARE(::unlink((m_root + "/top/b").constData()), 0);
    QCOMPARE(::mkfifo((m_root + "/top/b").constData(), 0600), 0);
    QCOMPARE(::unlink((m_root + "/top/c").constData()), 0);
    QCOMPARE(::symlink("../outside/secret", (m_root + "/top/c").constData()), 0);
    const QList<QByteArray> expected = {"O /top/a", "O /top/b", "O /top/c"};
    QCOMPARE(rest(walker, m_root), expected);
}

void TestTreeWalker::goesOnWhenADirectoryIsMovedAway()
{
    // So deep that the one that is moved has been closed meanwhile.
    const QByteArray deep = deeperThanIsOpen("top/moved/");
    make(deep);
    make("top/moved/z");
    make("top/z");
    TreeWalker walker(m_root + "/top");
    skipTo(walker, m_root + '/' + deep.left(deep.size() - 1));
    QCOMPARE(std::rename((m_root + "/top/moved").constData(), (m_root + "/elsewhere").constData()), 0);
    // Others that look the same in their place.
    make(deep);
    make("top/moved/other");
    // The way up leads to the directory that was begun, wherever it is by now, and from there to the root's.
    const QList<QByteArray> expected = {"F /top/moved/z", "F /top/z"};
    QCOMPARE(rest(walker, m_root), expected);
}

void TestTreeWalker::tellsWhereTheWayBackIsLost()
{
    // Upwards it leads elsewhere, and downwards to nothing.
    const QByteArray deep = deeperThanIsOpen("top/a/b/moved/");
    make(deep);
    make("top/a/b/z");
    make("top/a/z");
    make("top/z");
    TreeWalker walker(m_root + "/top");
    skipTo(walker, m_root + '/' + deep.left(deep.size() - 1));
    QCOMPARE(std::rename((m_root + "/top/a/b/moved").constData(), (m_root + "/elsewhere").constData()), 0);
    QCOMPARE(std::rename((m_root + "/top/a").constData(), (m_root + "/top/other").constData()), 0);
    QVERIFY(walker.next());
    // Once, for all that is below.
    QCOMPARE(told(walker, m_root), QByteArray("U /top/a"));
    QCOMPARE(walker.error(), ESTALE);
    QCOMPARE(walker.depth(), size_t(1));
    QCOMPARE(rest(walker, m_root), QList<QByteArray>{"F /top/z"});
}

void TestTreeWalker::tellsDepthAndName()
{
    make("top/a/f");
    TreeWalker walker(m_root + "/top");
    const struct
    {
        size_t depth;
        const char* name;
    } expected[] = {{0, "top"}, {1, "a"}, {2, "f"}};
    for (const auto& object : expected) {
        QVERIFY(walker.next());
        QCOMPARE(walker.depth(), object.depth);
        QCOMPARE(walker.name(), QByteArray(object.name));
    }
    struct stat status = {};
    QCOMPARE(::fstatat(walker.directory(), "f", &status, 0), 0);
    QCOMPARE(status.st_ino, walker.status().st_ino);
    QVERIFY(!walker.isMounted());
}

void TestTreeWalker::opensTheFile()
{
    make("d/f");
    QFile file(QFile::decodeName(m_root + "/d/f"));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("content") == 7);
    file.close();
    TreeWalker walker(m_root);
    skipTo(walker, m_root + "/d/f");
    const UniqueFd opened = walker.openFile();
    QVERIFY(opened.isValid());
    char content[16] = {};
    QCOMPARE(::read(opened.get(), content, sizeof(content)), ssize_t(7));
    QCOMPARE(content, "content");
}

void TestTreeWalker::opensNothingButAFile()
{
    make("f");
    const QByteArray path = m_root + "/f";
    TreeWalker walker(m_root);
    skipTo(walker, path);
    QCOMPARE(::unlink(path.constData()), 0);
    QVERIFY(!walker.openFile().isValid());
    QCOMPARE(errno, ENOENT);
    QCOMPARE(::mkfifo(path.constData(), 0600), 0);
    QVERIFY(!walker.openFile().isValid());
    QCOMPARE(errno, EINVAL);
    QCOMPARE(::unlink(path.constData()), 0);
    QCOMPARE(::symlink("/etc/passwd", path.constData()), 0);
    QVERIFY(!walker.openFile().isValid());
    QCOMPARE(errno, EINVAL);
}

void TestTreeWalker::walksDeepTreesWithFewDescriptors()
{
    // Names of a length that brings the path far beyond what any call takes.
    make("deep/");
    const QByteArray name(200, 'd');
    constexpr int depth = 400;
    UniqueFd directory(::open((m_root + "/deep").constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < depth; ++i) {
        QCOMPARE(::mkdirat(directory.get(), name.constData(), 0700), 0);
        const UniqueFd file(::openat(directory.get(), "file", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        QVERIFY(file.isValid());
        directory = UniqueFd(::openat(directory.get(), name.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        QVERIFY(directory.isValid());
    }
    directory.reset();

    const int before = openDescriptors();
    int files = 0;
    int directories = 0;
    int most = 0;
    int longest = 0;
    bool isOpened = true;
    QByteArray inTheMiddle;
    {
        TreeWalker walker(m_root + "/deep");
        while (walker.next()) {
            QVERIFY2(walker.kind() == Kind::File || walker.kind() == Kind::Directory, "no errors");
            files += walker.kind() == Kind::File ? 1 : 0;
            directories += walker.kind() == Kind::Directory ? 1 : 0;
            isOpened = isOpened && (walker.kind() != Kind::File || walker.openFile().isValid());
            most = qMax(most, openDescriptors() - before);
            longest = qMax(longest, walker.path().size());
            if (files == depth / 2 && walker.kind() == Kind::File) {
                inTheMiddle = walker.path();
            }
        }
    }
    QCOMPARE(files, depth);
    QCOMPARE(directories, depth + 1);
    QVERIFY(isOpened);
    QVERIFY2(most <= int(TreeWalker::openDirectories), QByteArray::number(most).constData());
    QVERIFY(longest > depth * 200);
    QCOMPARE(openDescriptors(), before);

    TreeWalker resumed(m_root + "/deep");
    resumed.resumeBehind(inTheMiddle);
    int left = 0;
    while (resumed.next()) {
        left += resumed.kind() == Kind::File ? 1 : 0;
    }
    QCOMPARE(left, depth / 2);
}

QTEST_GUILESS_MAIN(TestTreeWalker)
#include "tst_treewalker.moc"
