#include "tvctl/quarantine/quarantinerestore.h"

#include "support/fakeattributes.h"
#include "support/fakefiles.h"
#include "tvctl/quarantine/quarantine.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <functional>
#include <memory>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace
{
const QByteArray copyName = "2025-07-15_10-00-00_0123456789abcdef0123456789abcdef.tvq";
const QByteArray attribute = "user.tvfilemon.original";
const QByteArray accessList = "system.posix_acl_access";

bool diskIsFull = false;
/// Called before the code under test looks at a name.
std::function<void()> onStatus;
int ownerError = 0;
uid_t givenOwner = 0;
gid_t givenGroup = 0;
} // namespace

Q_DECLARE_METATYPE(RestoreOutcome)

extern "C" int fstatvfs(int fd, struct statvfs* disk) noexcept
{
    using Fstatvfs = int (*)(int, struct statvfs*);
    static const auto real = reinterpret_cast<Fstatvfs>(::dlsym(RTLD_NEXT, "fstatvfs"));
    const int result = real(fd, disk);
    disk->f_bfree = diskIsFull ? 0 : disk->f_bfree;
    return result;
}

extern "C" int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept
{
    using Fstatat = int (*)(int, const char*, struct stat*, int);
    static const auto real = reinterpret_cast<Fstatat>(::dlsym(RTLD_NEXT, "fstatat"));
    if (onStatus) {
        onStatus();
    }
    return real(directory, path, status, flags);
}

/// Tests need no privilege: who is to own the file is only noted.
extern "C" int fchown(int /*fd*/, uid_t owner, gid_t group) noexcept
{
    givenOwner = owner;
    givenGroup = group;
    errno = ownerError;
    return ownerError == 0 ? 0 : -1;
}

class TestQuarantineRestore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void givesTheFileBack_data();
    void givesTheFileBack();
    void keepsTheCopyWhenTold();
    void keepsHoles();
    void givesBackWhatTheFileWas_data();
    void givesBackWhatTheFileWas();
    void givesNobodyAnothersFile();
    void opensItToNobodyWithoutItsOwner();
    void isPrivateWhenNothingIsKnown_data();
    void isPrivateWhenNothingIsKnown();
    void dropsWhatTheDirectoryGrants();
    void isNobodyElsesWhileItIsWritten();
    void isDurableBeforeTheCopyGoes();
    void appearsWhenItsNextCopyHasAnotherName();

    void takesTargets_data();
    void takesTargets();
    void refusesTargets_data();
    void refusesTargets();
    void followsNoLink_data();
    void followsNoLink();
    void replacesNothing_data();
    void replacesNothing();
    void replacesNothingThatComesMeanwhile_data();
    void replacesNothingThatComesMeanwhile();
    void needsACopy_data();
    void needsACopy();

    void leavesNothingAfterAFailure_data();
    void leavesNothingAfterAFailure();
    void doesNotBeginWhatDoesNotFit();
    void isNotHinderedByWhatWasLeftBehind();
    void noticesThatItWasTakenAway_data();
    void noticesThatItWasTakenAway();
    void tellsThatTheCopyStays();

private:
    QByteArray path(const QByteArray& name) const
    {
        return QFile::encodeName(m_place->path()) + '/' + name;
    }
    void write(const QByteArray& name, const QByteArray& content) const
    {
        QFile file(QFile::decodeName(path(name)));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), qint64(content.size()));
    }
    QByteArray read(const QByteArray& name) const
    {
        QFile file(QFile::decodeName(path(name)));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be read");
    }
    QStringList names(const QByteArray& directory) const
    {
        return QDir(QFile::decodeName(path(directory)))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    struct stat statusOf(const QByteArray& name) const
    {
        struct stat status = {};
        ::lstat(path(name).constData(), &status);
        return status;
    }
    void setOriginal(const QByteArray& text) const
    {
        FakeAttributes::setValue(statusOf("quarantine/" + copyName), attribute, text);
    }
    /// The owner of all directories here, in the attribute's words.
    static QByteArray mine()
    {
        return " uid=" + QByteArray::number(::geteuid());
    }
    RestoreResult restore(const QByteArray& target, const RestoreOptions& options = {}) const
    {
        return restoreFromQuarantine(Quarantine(path("quarantine")), copyName, path(target), options);
    }
    bool hasCopy() const
    {
        return names("quarantine") == QStringList(QString::fromLatin1(copyName));
    }
    static QStringList openDescriptors()
    {
        return QDir(QStringLiteral("/proc/self/fd"))
            .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    }

    std::unique_ptr<QTemporaryDir> m_place;
    QByteArray m_content;
};

void TestQuarantineRestore::init()
{
    FakeFiles::reset();
    FakeAttributes::reset();
    diskIsFull = false;
    onStatus = nullptr;
    ownerError = 0;
    givenOwner = givenGroup = 12345;
    m_place = std::make_unique<QTemporaryDir>();
    QCOMPARE(::mkdir(path("quarantine").constData(), 0700), 0);
    QVERIFY(QDir(m_place->path()).mkpath(QStringLiteral("home/u")));
    m_content.clear();
    for (int i = 0; m_content.size() < 300000; ++i) {
        m_content += QByteArray::number(i) + ' ';
    }
    write("quarantine/" + copyName, m_content);
    QCOMPARE(::chmod(path("quarantine/" + copyName).constData(), 0400), 0);
}

void TestQuarantineRestore::givesTheFileBack_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("canRename");
    QTest::newRow("empty") << 0 << true;
    QTest::newRow("small") << 68 << true;
    QTest::newRow("large") << 300000 << true;
    QTest::newRow("where names cannot be renamed safely") << 300000 << false;
}

void TestQuarantineRestore::givesTheFileBack()
{
    QFETCH(int, size);
    QFETCH(bool, canRename);
    QCOMPARE(::truncate(path("quarantine/" + copyName).constData(), size), 0);
    if (!canRename) {
        FakeFiles::failures.insert("renameat2", {EINVAL});
    }
    const QStringList descriptors = openDescriptors();
    const RestoreResult result = restore("home/u/a file");
    QCOMPARE(result.outcome, RestoreOutcome::Restored);
    QCOMPARE(result.error, 0);
    QVERIFY(result.isRestored());
    QCOMPARE(result.size, qint64(size));
    QVERIFY(read("home/u/a file") == m_content.left(size));
    QCOMPARE(names("home/u"), {QStringLiteral("a file")});
    QCOMPARE(names("quarantine"), QStringList());
    QCOMPARE(openDescriptors(), descriptors);
}

void TestQuarantineRestore::keepsTheCopyWhenTold()
{
    RestoreOptions options;
    options.keepCopy = true;
    QCOMPARE(restore("home/u/a", options).outcome, RestoreOutcome::Restored);
    QVERIFY(read("home/u/a") == m_content);
    QVERIFY(hasCopy());
    QVERIFY(read("quarantine/" + copyName) == m_content);
}

void TestQuarantineRestore::keepsHoles()
{
    constexpr qint64 size = qint64(1) << 40;
    QCOMPARE(::truncate(path("quarantine/" + copyName).constData(), size), 0);
    // It would take hours otherwise.
    QCOMPARE(restore("home/u/a").outcome, RestoreOutcome::Restored);
    QCOMPARE(statusOf("home/u/a").st_size, off_t(size));
    QVERIFY(statusOf("home/u/a").st_blocks < 1024);
}

void TestQuarantineRestore::givesBackWhatTheFileWas_data()
{
    QTest::addColumn<uint>("mode");
    QTest::addColumn<uint>("expected");
    QTest::newRow("plain") << 0644U << 0644U;
    QTest::newRow("unreadable") << 0U << 0U;
    QTest::newRow("for everybody") << 0777U << 0777U;
    QTest::newRow("changes user") << 04755U << 0755U;
    QTest::newRow("changes group") << 02755U << 0755U;
    QTest::newRow("sticky") << 01644U << 0644U;
}

void TestQuarantineRestore::givesBackWhatTheFileWas()
{
    QFETCH(uint, mode);
    QFETCH(uint, expected);
    setOriginal("mode=" + QByteArray::number(mode, 8).rightJustified(4, '0') + mine() +
                " gid=1002 mtime=1234567890.012345678");
    const mode_t mask = ::umask(077);
    const RestoreResult result = restore("home/u/a");
    ::umask(mask);
    QCOMPARE(result.outcome, RestoreOutcome::Restored);
    QVERIFY(result.isOriginalKnown);
    QVERIFY(result.hasOriginalOwner);
    QVERIFY(result.hasOriginalMode);
    QVERIFY(result.hasOriginalTime);
    QCOMPARE(result.mode, mode_t(expected));
    const struct stat status = statusOf("home/u/a");
    QCOMPARE(status.st_mode, mode_t(S_IFREG | expected));
    QCOMPARE(status.st_mtim.tv_sec, time_t(1234567890));
    QCOMPARE(status.st_mtim.tv_nsec, 12345678L);
    QCOMPARE(givenOwner, ::geteuid());
    QCOMPARE(givenGroup, gid_t(1002));
}

void TestQuarantineRestore::givesNobodyAnothersFile()
{
    setOriginal("mode=0644 uid=" + QByteArray::number(::geteuid() + 1) + " gid=0 mtime=1234567890.000000000");
    const RestoreResult result = restore("home/u/a");
    QCOMPARE(result.outcome, RestoreOutcome::Restored);
    QVERIFY(result.isOriginalKnown);
    QVERIFY(!result.isInOwnersDirectory);
    QVERIFY(!result.hasOriginalOwner);
    QVERIFY(!result.hasOriginalMode);
    QVERIFY(result.hasOriginalTime);
    QCOMPARE(statusOf("home/u/a").st_mode, mode_t(S_IFREG | 0600));
    QCOMPARE(givenOwner, uid_t(12345));
}

void TestQuarantineRestore::opensItToNobodyWithoutItsOwner()
{
    setOriginal("mode=0666" + mine() + " gid=1002 mtime=1234567890.000000000");
    ownerError = EPERM;
    const RestoreResult result = restore("home/u/a");
    QCOMPARE(result.outcome, RestoreOutcome::Restored);
    QVERIFY(result.isOriginalKnown);
    QVERIFY(!result.hasOriginalOwner);
    QVERIFY(!result.hasOriginalMode);
    QVERIFY(result.hasOriginalTime);
    QCOMPARE(statusOf("home/u/a").st_mode, mode_t(S_IFREG | 0600));
}

void TestQuarantineRestore::isPrivateWhenNothingIsKnown_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("no attribute") << QByteArray();
    QTest::newRow("makes no sense") << QByteArray("mode=0777");
}

void TestQuarantineRestore::isPrivateWhenNothingIsKnown()
{
    QFETCH(QByteArray, text);
    if (!text.isNull()) {
        setOriginal(text);
    }
    const RestoreResult result = restore("home/u/a");
    QCOMPARE(result.outcome, RestoreOutcome::Restored);
    QVERIFY(!result.isOriginalKnown);
    QVERIFY(!result.hasOriginalOwner);
    QVERIFY(!result.hasOriginalMode);
    QVERIFY(!result.hasOriginalTime);
    QCOMPARE(result.mode, mode_t(0600));
    QCOMPARE(result.uid, ::geteuid());
    QCOMPARE(statusOf("home/u/a").st_mode, mode_t(S_IFREG | 0600));
    QCOMPARE(givenOwner, uid_t(12345));
}

void TestQuarantineRestore::dropsWhatTheDirectoryGrants()
{
    setOriginal("mode=0640" + mine() + " gid=0 mtime=1.000000000");
    FakeFiles::onCall = [this](const QByteArray& call) {
        if (call == "write") {
            FakeAttributes::setValue(statusOf("home/u/" + names("home/u").constFirst().toUtf8()), accessList,
                                     "what a directory hands down");
        }
    };
    QCOMPARE(restore("home/u/a").outcome, RestoreOutcome::Restored);
    QVERIFY(FakeAttributes::value(statusOf("home/u/a"), accessList).isNull());
}

void TestQuarantineRestore::isNobodyElsesWhileItIsWritten()
{
    setOriginal("mode=0666" + mine() + " gid=0 mtime=1.000000000");
    int writes = 0;
    FakeFiles::onCall = [&](const QByteArray& call) {
        if (call == "write") {
            ++writes;
            QCOMPARE(names("home/u").size(), 1);
            const QByteArray name = names("home/u").constFirst().toUtf8();
            // The file monitor would remove it in the middle otherwise.
            QVERIFY(name.startsWith(".tvctl-") && name.endsWith(".part"));
            QCOMPARE(statusOf("home/u/" + name).st_mode, mode_t(S_IFREG | 0600));
        }
    };
    const mode_t mask = ::umask(0);
    QCOMPARE(restore("home/u/a").outcome, RestoreOutcome::Restored);
    ::umask(mask);
    QVERIFY(writes > 1);
}

void TestQuarantineRestore::isDurableBeforeTheCopyGoes()
{
    const Quarantine quarantine(path("quarantine"));
    const QByteArray target = path("home/u/a");
    FakeFiles::calls.clear();
    bool isGoneTooEarly = false;
    FakeFiles::onCall = [&](const QByteArray& call) {
        isGoneTooEarly = isGoneTooEarly || (!hasCopy() && call != "fsync directory");
    };
    QCOMPARE(restoreFromQuarantine(quarantine, copyName, target).outcome, RestoreOutcome::Restored);
    FakeFiles::onCall = nullptr;
    QCOMPARE(FakeFiles::calls, (QVector<QByteArray>{"openat create", "fsync file", "renameat2",
                                                    "fsync directory", "unlinkat", "fsync directory"}));
    QVERIFY(!isGoneTooEarly);
}

void TestQuarantineRestore::appearsWhenItsNextCopyHasAnotherName()
{
    const auto stamp = [](const QDateTime& time) {
        return time.toString(QStringLiteral("yyyy-MM-dd_hh-mm-ss_")).toLatin1();
    };
    const QByteArray name =
        stamp(QDateTime::currentDateTime().addSecs(1)) + "0123456789abcdef0123456789abcdef.tvq";
    write("quarantine/" + name, "content");
    const Quarantine quarantine(path("quarantine"));
    QCOMPARE(restoreFromQuarantine(quarantine, name, path("home/file")).outcome, RestoreOutcome::Restored);
    QVERIFY(name.left(20) < stamp(QDateTime::currentDateTime()));
}

void TestQuarantineRestore::takesTargets_data()
{
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("plain") << QByteArray("home/u/a") << QByteArray("home/u/a");
    QTest::newRow("double slashes") << QByteArray("home//u///a") << QByteArray("home/u/a");
    QTest::newRow("dots") << QByteArray("./home/./u/./a") << QByteArray("home/u/a");
    QTest::newRow("longest name") << "home/u/" + QByteArray(255, 'n') << "home/u/" + QByteArray(255, 'n');
    QTest::newRow("no UTF-8") << QByteArray("home/u/\xFF\n") << QByteArray("home/u/\xFF\n");
    QTest::newRow("three dots") << QByteArray("home/u/...") << QByteArray("home/u/...");
}

void TestQuarantineRestore::takesTargets()
{
    QFETCH(QByteArray, target);
    QFETCH(QByteArray, file);
    QCOMPARE(restore(target).outcome, RestoreOutcome::Restored);
    QCOMPARE(statusOf(file).st_size, off_t(m_content.size()));
    // QTemporaryDir leaves behind what has a name that is not UTF-8.
    QCOMPARE(::unlink(path(file).constData()), 0);
}

void TestQuarantineRestore::refusesTargets_data()
{
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<RestoreOutcome>("outcome");
    QTest::addColumn<int>("error");
    const auto row = [](const char* what, const QByteArray& target, RestoreOutcome outcome, int error) {
        QTest::newRow(what) << target << outcome << error;
    };
    // "%" is the place of the test.
    row("empty", "", RestoreOutcome::BadTarget, EINVAL);
    row("relative", "home/u/a", RestoreOutcome::BadTarget, EINVAL);
    row("slash at the end", "%/home/u/a/", RestoreOutcome::BadTarget, EINVAL);
    row("dot at the end", "%/home/u/.", RestoreOutcome::BadTarget, EINVAL);
    row("parent at the end", "%/home/u/..", RestoreOutcome::BadTarget, EINVAL);
    row("parent in between", "%/home/u/../u/a", RestoreOutcome::BadTarget, EINVAL);
    row("the root", "/", RestoreOutcome::BadTarget, EINVAL);
    row("zero byte", QByteArray("%/home/u/a\0b", 12), RestoreOutcome::BadTarget, EINVAL);
    row("no directory", "%/home/v/a", RestoreOutcome::NoDirectory, ENOENT);
    row("file for a directory", "%/home/file/a", RestoreOutcome::NoDirectory, ENOTDIR);
    row("file in between", "%/home/file/u/a", RestoreOutcome::NoDirectory, ENOTDIR);
    row("name too long", "%/home/u/" + QByteArray(256, 'n'), RestoreOutcome::NotWritten, ENAMETOOLONG);
}

void TestQuarantineRestore::refusesTargets()
{
    QFETCH(QByteArray, target);
    QFETCH(RestoreOutcome, outcome);
    QFETCH(int, error);
    write("home/file", "x");
    const QByteArray full = target.replace('%', QFile::encodeName(m_place->path()));
    const RestoreResult result = restoreFromQuarantine(Quarantine(path("quarantine")), copyName, full);
    QCOMPARE(result.outcome, outcome);
    QCOMPARE(result.error, error);
    QVERIFY(!result.isRestored());
    QVERIFY(hasCopy());
    QCOMPARE(names("home/u"), QStringList());
    QVERIFY(!FakeFiles::calls.contains("openat create"));
}

void TestQuarantineRestore::followsNoLink_data()
{
    QTest::addColumn<QByteArray>("link");
    QTest::addColumn<RestoreOutcome>("outcome");
    QTest::newRow("first of the user's") << QByteArray("home") << RestoreOutcome::NoDirectory;
    QTest::newRow("in between") << QByteArray("home/u") << RestoreOutcome::NoDirectory;
    QTest::newRow("directory of the file") << QByteArray("home/u/d") << RestoreOutcome::NoDirectory;
    QTest::newRow("the file itself") << QByteArray("home/u/d/a") << RestoreOutcome::TargetExists;
}

void TestQuarantineRestore::followsNoLink()
{
    QFETCH(QByteArray, link);
    QFETCH(RestoreOutcome, outcome);
    QCOMPARE(::mkdir(path("home/u/d").constData(), 0700), 0);
    const bool isFile = outcome == RestoreOutcome::TargetExists;
    if (!isFile) {
        QCOMPARE(::rename(path(link).constData(), path("moved").constData()), 0);
    }
    // The link to a file leads to none yet, which a plain open would make.
    QCOMPARE(::symlink(path("moved").constData(), path(link).constData()), 0);
    const RestoreResult result = restore("home/u/d/a");
    QCOMPARE(result.outcome, outcome);
    QCOMPARE(result.error, isFile ? EEXIST : ENOTDIR);
    QVERIFY(hasCopy());
    QVERIFY(!QFile::exists(QFile::decodeName(path(isFile ? "moved" : "home/u/d/a"))));
}

void TestQuarantineRestore::replacesNothing_data()
{
    QTest::addColumn<QByteArray>("kind");
    for (const char* kind : {"file", "directory", "link", "FIFO"}) {
        QTest::addRow("%s", kind) << QByteArray(kind);
    }
}

namespace
{
/// Puts something of the `kind` at `path`.
void put(const QByteArray& kind, const QByteArray& path)
{
    if (kind == "file") {
        const UniqueFd file(::open(path.constData(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
        QVERIFY(file.isValid());
    } else if (kind == "directory") {
        QCOMPARE(::mkdir(path.constData(), 0700), 0);
    } else if (kind == "link") {
        QCOMPARE(::symlink("nowhere", path.constData()), 0);
    } else {
        QCOMPARE(::mkfifo(path.constData(), 0600), 0);
    }
}
} // namespace

void TestQuarantineRestore::replacesNothing()
{
    QFETCH(QByteArray, kind);
    put(kind, path("home/u/a"));
    const struct stat before = statusOf("home/u/a");
    const RestoreResult result = restore("home/u/a");
    QCOMPARE(result.outcome, RestoreOutcome::TargetExists);
    QCOMPARE(result.error, EEXIST);
    QCOMPARE(statusOf("home/u/a").st_ino, before.st_ino);
    QCOMPARE(statusOf("home/u/a").st_mode, before.st_mode);
    QCOMPARE(names("home/u"), {QStringLiteral("a")});
    QVERIFY(hasCopy());
    // A large file is not written in vain.
    QVERIFY(!FakeFiles::calls.contains("openat create"));
}

void TestQuarantineRestore::replacesNothingThatComesMeanwhile_data()
{
    QTest::addColumn<QByteArray>("kind");
    QTest::addColumn<bool>("canRename");
    for (const char* kind : {"file", "directory", "link"}) {
        QTest::addRow("%s, renaming", kind) << QByteArray(kind) << true;
        QTest::addRow("%s, linking", kind) << QByteArray(kind) << false;
    }
}

void TestQuarantineRestore::replacesNothingThatComesMeanwhile()
{
    QFETCH(QByteArray, kind);
    QFETCH(bool, canRename);
    if (!canRename) {
        FakeFiles::failures.insert("renameat2", {EINVAL});
    }
    FakeFiles::onCall = [&](const QByteArray& call) {
        if (call == "renameat2") {
            put(kind, path("home/u/a"));
        }
    };
    const RestoreResult result = restore("home/u/a");
    FakeFiles::onCall = nullptr;
    QCOMPARE(result.outcome, RestoreOutcome::TargetExists);
    QCOMPARE(result.error, EEXIST);
    QVERIFY(!S_ISREG(statusOf("home/u/a").st_mode) || statusOf("home/u/a").st_size == 0);
    QCOMPARE(names("home/u"), {QStringLiteral("a")});
    QVERIFY(hasCopy());
}

void TestQuarantineRestore::needsACopy_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("error");
    QTest::newRow("missing") << "2025-07-15_10-00-09" + copyName.mid(19) << ENOENT;
    QTest::newRow("other name") << QByteArray("notes.txt") << ENOENT;
    QTest::newRow("path") << "../quarantine/" + copyName << ENOENT;
    QTest::newRow("link") << "2025-07-15_10-00-01" + copyName.mid(19) << EINVAL;
    QTest::newRow("FIFO") << "2025-07-15_10-00-02" + copyName.mid(19) << EINVAL;
    QTest::newRow("directory") << "2025-07-15_10-00-03" + copyName.mid(19) << EINVAL;
}

void TestQuarantineRestore::needsACopy()
{
    QFETCH(QByteArray, name);
    QFETCH(int, error);
    write("quarantine/notes.txt", "x");
    put("link", path("quarantine/2025-07-15_10-00-01" + copyName.mid(19)));
    put("FIFO", path("quarantine/2025-07-15_10-00-02" + copyName.mid(19)));
    put("directory", path("quarantine/2025-07-15_10-00-03" + copyName.mid(19)));
    const RestoreResult result =
        restoreFromQuarantine(Quarantine(path("quarantine")), name, path("home/u/a"));
    QCOMPARE(result.outcome, RestoreOutcome::NoCopy);
    QCOMPARE(result.error, error);
    QCOMPARE(names("home/u"), QStringList());
    QCOMPARE(names("quarantine").size(), 5);
}

void TestQuarantineRestore::leavesNothingAfterAFailure_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<int>("after");
    QTest::addColumn<int>("error");
    QTest::newRow("not to be made") << QByteArray("openat create") << 0 << EDQUOT;
    QTest::newRow("no space at once") << QByteArray("write") << 0 << ENOSPC;
    QTest::newRow("no space half-way") << QByteArray("write") << 2 << ENOSPC;
    QTest::newRow("copy unreadable half-way") << QByteArray("read") << 1 << EIO;
    QTest::newRow("not to be synced") << QByteArray("fsync file") << 0 << EIO;
    QTest::newRow("not to be renamed") << QByteArray("renameat2") << 0 << EACCES;
    QTest::newRow("directory not to be synced") << QByteArray("fsync directory") << 0 << EIO;
}

void TestQuarantineRestore::leavesNothingAfterAFailure()
{
    QFETCH(QByteArray, call);
    QFETCH(int, after);
    QFETCH(int, error);
    FakeFiles::failures.insert(call, {error, after});
    const QStringList descriptors = openDescriptors();
    const RestoreResult result = restore("home/u/a");
    QCOMPARE(result.outcome, RestoreOutcome::NotWritten);
    QCOMPARE(result.error, error);
    QCOMPARE(FakeFiles::failures.value(call).count, 0);
    QCOMPARE(names("home/u"), QStringList());
    QVERIFY(hasCopy());
    QVERIFY(read("quarantine/" + copyName) == m_content);
    QCOMPARE(openDescriptors(), descriptors);
}

void TestQuarantineRestore::doesNotBeginWhatDoesNotFit()
{
    int writes = 0;
    FakeFiles::onCall = [&writes](const QByteArray& call) {
        writes += call == "write" ? 1 : 0;
    };
    diskIsFull = true;
    const RestoreResult result = restore("home/u/a");
    QCOMPARE(result.outcome, RestoreOutcome::NotWritten);
    QCOMPARE(result.error, ENOSPC);
    QCOMPARE(writes, 0);
    QCOMPARE(names("home/u"), QStringList());
    QVERIFY(hasCopy());
}

void TestQuarantineRestore::isNotHinderedByWhatWasLeftBehind()
{
    QByteArray passing;
    FakeFiles::onCall = [&](const QByteArray& call) {
        if (call == "fsync file") {
            // As if the first attempt had been killed here.
            passing = names("home/u").constFirst().toUtf8();
            QCOMPARE(::link(path("home/u/" + passing).constData(), path("home/u/left").constData()), 0);
        }
    };
    FakeFiles::failures.insert("fsync file", {EIO});
    QCOMPARE(restore("home/u/a").outcome, RestoreOutcome::NotWritten);
    FakeFiles::onCall = nullptr;
    QVERIFY(!passing.isEmpty());
    QCOMPARE(::rename(path("home/u/left").constData(), path("home/u/" + passing).constData()), 0);
    QCOMPARE(restore("home/u/a").outcome, RestoreOutcome::Restored);
    QVERIFY(read("home/u/a") == m_content);
    QVERIFY(names("home/u").contains(QString::fromUtf8(passing)));
}

void TestQuarantineRestore::noticesThatItWasTakenAway_data()
{
    QTest::addColumn<QByteArray>("replacement");
    QTest::addColumn<int>("error");
    QTest::newRow("replaced by a file") << QByteArray("file") << ESTALE;
    QTest::newRow("replaced by a link") << QByteArray("link") << ESTALE;
    QTest::newRow("removed once it had its name") << QByteArray() << ENOENT;
}

void TestQuarantineRestore::noticesThatItWasTakenAway()
{
    QFETCH(QByteArray, replacement);
    QFETCH(int, error);
    onStatus = [&] {
        if (replacement.isEmpty()) {
            ::unlink(path("home/u/a").constData());
        }
    };
    FakeFiles::onCall = [&](const QByteArray& call) {
        if (call == "renameat2" && !replacement.isEmpty()) {
            // The owner of the directory puts something of his under the passing name.
            const QByteArray passing = path("home/u/" + names("home/u").constFirst().toUtf8());
            QCOMPARE(::rename(passing.constData(), path("taken").constData()), 0);
            put(replacement, passing);
        }
    };
    const RestoreResult result = restore("home/u/a");
    FakeFiles::onCall = nullptr;
    QCOMPARE(result.outcome, RestoreOutcome::Vanished);
    QCOMPARE(result.error, error);
    QVERIFY(!result.isRestored());
    // What is in quarantine is still the only one that can be trusted.
    QVERIFY(hasCopy());
    QVERIFY(read("quarantine/" + copyName) == m_content);
}

void TestQuarantineRestore::tellsThatTheCopyStays()
{
    FakeFiles::failures.insert("unlinkat", {EROFS});
    const RestoreResult result = restore("home/u/a");
    QCOMPARE(result.outcome, RestoreOutcome::CopyNotRemoved);
    QCOMPARE(result.error, EROFS);
    QVERIFY(result.isRestored());
    QVERIFY(read("home/u/a") == m_content);
    QVERIFY(hasCopy());
}

QTEST_GUILESS_MAIN(TestQuarantineRestore)
#include "tst_quarantinerestore.moc"
