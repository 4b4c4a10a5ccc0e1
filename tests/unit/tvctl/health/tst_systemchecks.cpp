#include "tvctl/health/systemchecks.h"

#include <QTest>

#include <cerrno>

using Result = Finding::Result;

class TestSystemChecks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void directories();
    void privacy();
    void quarantine();
    void diskSpace();
    void engineDirectory();
    void log();
    void watchLimit();
    void eventQueue();
    void instanceLimit();
    void settings();
    void stores();
};

namespace
{
constexpr qint64 megabyte = 1024LL * 1024;

DirectoryFacts directory(mode_t mode = 0755, const char* path = "/r/x")
{
    DirectoryFacts facts;
    facts.path = QLatin1String(path);
    facts.isDirectory = true;
    facts.mode = mode;
    facts.isWritable = true;
    facts.freeBytes = 1000 * megabyte;
    return facts;
}

template <typename Change> DirectoryFacts changed(Change change)
{
    DirectoryFacts facts = directory(0700);
    change(facts);
    return facts;
}

DirectoryFacts missing(int error)
{
    return changed([error](DirectoryFacts& f) {
        f.error = error;
        f.isDirectory = false;
        f.isWritable = false;
    });
}

DirectoryFacts ownedBy(uid_t owner)
{
    return changed([owner](DirectoryFacts& f) { f.owner = owner; });
}

DirectoryFacts readOnly()
{
    return changed([](DirectoryFacts& f) { f.isReadOnly = true; });
}

DirectoryFacts unwritable()
{
    return changed([](DirectoryFacts& f) { f.isWritable = false; });
}

DirectoryFacts withFree(qint64 bytes)
{
    return changed([bytes](DirectoryFacts& f) { f.freeBytes = bytes; });
}

DirectoryFacts outOfFiles()
{
    return changed([](DirectoryFacts& f) { f.isOutOfFiles = true; });
}

WatchNeed needing(qint64 directories)
{
    WatchNeed need;
    need.directories = directories;
    return need;
}

StoreFacts sound()
{
    StoreFacts facts;
    facts.isRealtimeOn = true;
    facts.scanAction = 1;
    return facts;
}

void expect(const Finding& finding, Result result, const char* seen, const char* fix = "")
{
    QVERIFY2(finding.seen.contains(QLatin1String(seen)), qPrintable(finding.seen));
    QVERIFY2(finding.fix.contains(QLatin1String(fix)), qPrintable(finding.fix));
    QCOMPARE(static_cast<int>(finding.result), static_cast<int>(result));
    QCOMPARE(finding.fix.isEmpty(), result == Result::Ok);
}
} // namespace

void TestSystemChecks::directories()
{
    using SystemChecks::directories;
    expect(directories({directory(), directory(0700), directory(0555)}, {directory(), directory(01777)}),
           Result::Ok, "only root");
    expect(directories({directory(), directory(0775, "/r/bin")}, {}), Result::Failed,
           "write to /r/bin (mode 0775)", "chmod go-w '/r/bin'");
    expect(directories({directory(0757)}, {}), Result::Failed, "(mode 0757)");
    // A sticky directory lets others make files, which the service would load.
    expect(directories({directory(01777)}, {}), Result::Failed, "(mode 1777)");
    expect(directories({ownedBy(1000)}, {}), Result::Failed, "belongs to user 1000", "chown root: '/r/x'");
    expect(directories({missing(ENOENT)}, {}), Result::Failed, "No such file", "install");
    expect(directories({missing(EACCES)}, {}), Result::Warning, "not checked", "sudo");
    expect(directories({directory()}, {directory(0777, "/r")}), Result::Failed, "what lies in /r ",
           "chmod go-w '/r'");
    expect(directories({directory()}, {ownedBy(1000)}), Result::Failed, "owner 1000");
    // Who is unknown in this user namespace is most likely root outside.
    expect(directories({directory()}, {ownedBy(65534)}), Result::Ok, "only root");
}

void TestSystemChecks::privacy()
{
    using SystemChecks::privacy;
    expect(privacy({directory(0700), missing(ENOENT)}), Result::Ok, "only root may look into /r/x");
    expect(privacy({missing(ENOENT), missing(ENOENT)}), Result::Warning, "/r/x: No such file", "--root");
    expect(privacy({missing(EACCES)}), Result::Warning, "not checked", "sudo");
    for (const mode_t mode : {0755, 0710, 0701, 0740}) {
        expect(privacy({directory(0700), directory(mode, "/r/q")}), Result::Failed,
               "others may look into /r/q", "chmod 0700 '/r/q'");
    }
}

void TestSystemChecks::quarantine()
{
    using SystemChecks::quarantine;
    expect(quarantine(directory(0700), true), Result::Ok, "/r/x");
    expect(quarantine(missing(ENOENT), true), Result::Warning, "made with the first copy", "mkdir -m 0700");
    expect(quarantine(missing(EACCES), false), Result::Warning, "not checked");
    expect(quarantine(changed([](DirectoryFacts& f) { f.isDirectory = false; }), true), Result::Failed,
           "is no directory");
    expect(quarantine(readOnly(), true), Result::Failed, "read-only", "remount,rw");
    expect(quarantine(readOnly(), false), Result::Failed, "read-only");
    expect(quarantine(unwritable(), true), Result::Failed,
           "cannot be written to: infected files are removed");
    expect(quarantine(unwritable(), false), Result::Warning, "not checked");
}

void TestSystemChecks::diskSpace()
{
    using SystemChecks::diskSpace;
    expect(diskSpace({withFree(500 * megabyte), withFree(600 * megabyte)}), Result::Ok, "500.00 MB are free");
    expect(diskSpace({withFree(600 * megabyte), withFree(500 * megabyte - 1)}), Result::Warning, "free",
           "df -h");
    expect(diskSpace({withFree(50 * megabyte)}), Result::Warning, "50.00 MB");
    expect(diskSpace({withFree(600 * megabyte), withFree(50 * megabyte - 1)}), Result::Failed, "free",
           "df -h");
    expect(diskSpace({directory(), outOfFiles()}), Result::Failed, "no more files", "df -i");
    expect(diskSpace({missing(ENOENT), directory()}), Result::Ok, "free");
    expect(diskSpace({missing(EACCES)}), Result::Warning, "not checked", "sudo");
    expect(diskSpace({missing(ENOENT)}), Result::Warning, "/r/x: No such file", "--root");
}

void TestSystemChecks::engineDirectory()
{
    using SystemChecks::Process;
    const auto check = [](const std::optional<DirectoryFacts>& facts) {
        return SystemChecks::engineDirectory(facts, Process::Visible);
    };
    expect(check(directory()), Result::Ok, "1000.00 MB are free in /r/x");
    expect(check(withFree(400 * megabyte)), Result::Ok, "400.00 MB");
    expect(check(withFree(400 * megabyte - 1)), Result::Warning, "largest archives", "/dev/shm");
    expect(check(withFree(10 * megabyte)), Result::Warning, "10.00 MB");
    expect(check(withFree(10 * megabyte - 1)), Result::Failed, "most archives", "/dev/shm");
    expect(check(readOnly()), Result::Failed, "/r/x takes no files");
    expect(check(unwritable()), Result::Failed, "takes no files");
    expect(check(outOfFiles()), Result::Failed, "takes no files");
    expect(check({}), Result::Failed, "nowhere", "restart");
    expect(SystemChecks::engineDirectory({}, Process::Hidden), Result::Warning, "only root", "sudo");
    expect(SystemChecks::engineDirectory({}, Process::None), Result::Warning, "does not run", "start");
}

void TestSystemChecks::log()
{
    using SystemChecks::log;
    const DirectoryFacts file = changed([](DirectoryFacts& f) { f.isDirectory = false; });
    const DirectoryFacts lockedFile = changed([](DirectoryFacts& f) {
        f.isDirectory = false;
        f.isWritable = false;
    });
    expect(log(directory(), file, true), Result::Ok, "/r/x");
    expect(log(directory(), missing(ENOENT), true), Result::Ok, "/r/x");
    expect(log(missing(ENOENT), missing(ENOENT), true), Result::Warning, "none yet", "start");
    expect(log(file, missing(ENOTDIR), true), Result::Failed, "is no directory", "ls -ld");
    expect(log(readOnly(), file, true), Result::Failed, "takes no lines");
    expect(log(unwritable(), missing(ENOENT), true), Result::Failed, "takes no lines");
    expect(log(directory(), lockedFile, true), Result::Failed, "takes no lines");
    expect(log(directory(), directory(), true), Result::Failed, "takes no lines");
    expect(log(directory(), file, false), Result::Warning, "not checked");
    expect(log(missing(EACCES), missing(EACCES), false), Result::Warning, "not checked");
}

void TestSystemChecks::watchLimit()
{
    const auto check = [](qint64 limit, qint64 needed, bool isComplete = true, bool isPackage = false) {
        InotifyLimits limits;
        limits.watches = limit;
        WatchNeed need = needing(needed);
        need.isComplete = isComplete;
        return SystemChecks::watchLimit(limits, need, isPackage);
    };
    expect(check(1000, 800), Result::Ok, "800 directories have to be watched, 1000 may be");
    expect(check(1000, 801), Result::Warning, "801", "max_user_watches=16384");
    expect(check(1000, 1000), Result::Warning, "1000");
    expect(check(1000, 1001), Result::Failed, "1001", "max_user_watches=16384");
    expect(check(65536, 100000, false), Result::Failed, "more than 100000", "max_user_watches=262144");
    expect(check(1000, 1001, true, true), Result::Failed, "1001",
           "set fs.inotify.max_user_watches = 16384 in /etc/talvenor/tvfilemon-limits.conf, a copy of");
    expect(check(-1, 1), Result::Warning, "does not tell");
}

void TestSystemChecks::eventQueue()
{
    const auto check = [](qint64 limit, qint64 needed, bool isPackage = false) {
        InotifyLimits limits;
        limits.queuedEvents = limit;
        return SystemChecks::eventQueue(limits, needing(needed), isPackage);
    };
    expect(check(16384, 16384), Result::Ok, "16384");
    expect(check(16384, 16385), Result::Warning, "16384", "max_queued_events=65536");
    expect(check(16383, 1), Result::Warning, "never scanned", "max_queued_events=16384");
    expect(check(1024, 1), Result::Warning, "1024");
    expect(check(1023, 1), Result::Failed, "1023", "max_queued_events=16384");
    expect(check(1023, 1, true), Result::Failed, "1023",
           "max_queued_events = 16384 in /etc/talvenor/tvfilemon-limits.conf");
    expect(check(-1, 1), Result::Warning, "does not tell");
}

void TestSystemChecks::instanceLimit()
{
    const auto check = [](qint64 limit, bool isPackage = false) {
        InotifyLimits limits;
        limits.instances = limit;
        return SystemChecks::instanceLimit(limits, isPackage);
    };
    expect(check(128), Result::Ok, "128");
    expect(check(127), Result::Warning, "127", "max_user_instances=128");
    expect(check(0), Result::Failed, "0", "max_user_instances=128");
    expect(check(0, true), Result::Failed, "0",
           "max_user_instances = 128 in /etc/talvenor/tvfilemon-limits.conf");
}

void TestSystemChecks::settings()
{
    expect(SystemChecks::protection(sound()), Result::Ok, "on");
    expect(SystemChecks::scanAction(sound()), Result::Ok, "cleaned");
    StoreFacts facts = sound();
    facts.isRealtimeOn = false;
    facts.scanAction = 0;
    expect(SystemChecks::protection(facts), Result::Failed, "switched off", "protection.realtime on");
    expect(SystemChecks::scanAction(facts), Result::Warning, "stay where they are", "scan.action clean");
    facts.settingsProblem = QStringLiteral("gone");
    expect(SystemChecks::protection(facts), Result::Warning, "cannot be read");
    expect(SystemChecks::scanAction(facts), Result::Warning, "cannot be read");
    facts.isHidden = true;
    expect(SystemChecks::protection(facts), Result::Warning, "only root", "sudo");
    expect(SystemChecks::scanAction(facts), Result::Warning, "only root", "sudo");
    expect(SystemChecks::sqliteDriver(true), Result::Ok, "can read");
    expect(SystemChecks::sqliteDriver(false), Result::Failed, "cannot read", "apt install");
}

void TestSystemChecks::stores()
{
    const QString path = QStringLiteral("/r/settings");
    expect(SystemChecks::stores(sound(), path), Result::Ok, "can be read");
    StoreFacts facts = sound();
    facts.damaged = QStringList{QStringLiteral("tvcore.db.corrupt-1")};
    expect(SystemChecks::stores(facts, path), Result::Warning, "tvcore.db.corrupt-1", "/r/settings");
    facts.reportsProblem = QStringLiteral("no records");
    expect(SystemChecks::stores(facts, path), Result::Failed, "no records");
    facts.settingsProblem = QStringLiteral("no settings");
    expect(SystemChecks::stores(facts, path), Result::Failed, "no settings", "nobody else uses it");
    facts.isHidden = true;
    expect(SystemChecks::stores(facts, path), Result::Warning, "only root");
}

QTEST_GUILESS_MAIN(TestSystemChecks)
#include "tst_systemchecks.moc"
