#include "ioc/iocscanmanager.h"

#include "common/common.h"
#include "fakeiocstore.h"
#include "ioc/iocscanfile.h"
#include "logger/clogger.h"
#include "support/fakefiles.h"
#include "support/logreader.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

#include <cerrno>
#include <cstdio>
#include <memory>

#include <sys/stat.h>

class TestIocScanManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void isOneInstance();
    void readsSettingsWhenMade_data();
    void readsSettingsWhenMade();
    void reloadsSettings();
    void isLoadingWhileListsAreRead();
    void reloadsListsAlsoWhenOff();
    void keepsListsWhenTurnedOff();

    void doesNothingWhenOff();
    void doesNothingWithoutAMatch();
    void acts_data();
    void acts();
    void passesTheKindOfHash_data();
    void passesTheKindOfHash();
    void renamesARenamedFileAgain();
    void neverReplacesByRenaming_data();
    void neverReplacesByRenaming();
    void renamesWhereTheFileSystemHasNoSafeWay();
    void reportsAFailedRename();
    void reportsAFailedDelete();
    void keepsWhatTookTheNameMeanwhile_data();
    void keepsWhatTookTheNameMeanwhile();
    void renamesALinkAndNotItsTarget();
    void goesOnWithoutAReport_data();
    void goesOnWithoutAReport();
    void readsTheActionFromTheLastLoadedSettings();
    void keepsThePointerAfterRelease();

private:
    QString makeFile(const char* name = "a.exe") const;
    void use(bool enable, int action) const;
    /// The report of today and of tomorrow, should it be midnight.
    QByteArray report() const;

    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<LogReader> m_log;
};

namespace
{
const QByteArray content("some content\n");
const char* const scanFile = "IOCScanManager::scanFile";
const char* const loadSettings = "IOCScanManager::loadSettings";
const char* const reloadSettings = "IOCScanManager::reloadSettings";
const LogLine loaded = {"TRACE", loadSettings, "Settings loaded successfully."};

QString hashOf(QCryptographicHash::Algorithm algorithm)
{
    return QString::fromLatin1(QCryptographicHash::hash(content, algorithm).toHex());
}

IOCScanManager* manager()
{
    return IOCScanManager::getInstance();
}
} // namespace

void TestIocScanManager::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

void TestIocScanManager::init()
{
    FakeFiles::reset();
    FakeIocStore::reset();
    manager();
    m_directory = std::make_unique<QTemporaryDir>();
    const QString reports = Common::getReportsPath();
    QDir(reports).removeRecursively();
    LOGGER::CLogger::getInstance()->Info("next", "%s", QTest::currentTestFunction());
    m_log = std::make_unique<LogReader>();
}

void TestIocScanManager::cleanup()
{
    FakeFiles::reset();
}

QString TestIocScanManager::makeFile(const char* name) const
{
    QString path = m_directory->path() + QLatin1Char('/') + QString::fromUtf8(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("cannot write %s", name);
    }
    return path;
}

void TestIocScanManager::use(bool enable, int action) const
{
    FakeIocStore::settings.setEnable(enable);
    FakeIocStore::settings.setAction(action);
    manager()->loadSettings();
    m_log->takeNew();
}

QByteArray TestIocScanManager::report() const
{
    QByteArray text;
    const QDir reports(Common::getReportsPath());
    for (const QString& name : reports.entryList({QStringLiteral("*.apmon")}, QDir::Files, QDir::Name)) {
        QFile file(reports.filePath(name));
        if (file.open(QIODevice::ReadOnly)) {
            text += file.readAll();
        }
    }
    return text;
}

void TestIocScanManager::isOneInstance()
{
    QCOMPARE(IOCScanManager::getInstance(), IOCScanManager::getInstance());
}

void TestIocScanManager::readsSettingsWhenMade_data()
{
    QTest::addColumn<bool>("enable");
    QTest::newRow("off") << false;
    QTest::newRow("on") << true;
}

void TestIocScanManager::readsSettingsWhenMade()
{
    QFETCH(bool, enable);
    FakeIocStore::settings.setEnable(enable);
    manager()->loadSettings();
    QCOMPARE(FakeIocStore::settingsRead, 1);
    QCOMPARE(FakeIocStore::listsRead, enable ? QList<int>({0, 1, 2}) : QList<int>());
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({loaded}));
}

void TestIocScanManager::reloadsSettings()
{
    QVERIFY(manager()->reloadSettings());
    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>({{"TRACE", reloadSettings, "Reload settings called."}, loaded}));
    QVERIFY(FakeIocStore::listsRead.isEmpty());
    FakeIocStore::settings.setEnable(true);
    QVERIFY(manager()->reloadSettings());
    QCOMPARE(FakeIocStore::listsRead, QList<int>({0, 1, 2}));
    QVERIFY(manager()->isDBLoaded());
    QVERIFY(!manager()->isDBLoading());
}

void TestIocScanManager::isLoadingWhileListsAreRead()
{
    int loading = 0;
    FakeIocStore::onListRead = [&loading] {
        loading += manager()->isDBLoading() ? 1 : 0;
    };
    QVERIFY(manager()->reloadDatabase());
    FakeIocStore::onListRead = nullptr;
    QCOMPARE(loading, 3);
}

void TestIocScanManager::reloadsListsAlsoWhenOff()
{
    use(false, 0);
    FakeIocStore::listsRead.clear();
    QVERIFY(manager()->reloadDatabase());
    QCOMPARE(FakeIocStore::listsRead, QList<int>({0, 1, 2}));
    QVERIFY(m_log->takeNew().isEmpty());
}

void TestIocScanManager::keepsListsWhenTurnedOff()
{
    FakeIocStore::lists[0] = QStringList(hashOf(QCryptographicHash::Md5));
    use(true, 0);
    use(false, 0);
    QVERIFY(manager()->isDBLoaded());
    QString hash;
    QCOMPARE(IOCScanFile::getInstance()->scanFile(makeFile(), hash), 1);
}

void TestIocScanManager::doesNothingWhenOff()
{
    FakeIocStore::lists[0] = QStringList(hashOf(QCryptographicHash::Md5));
    use(true, 2);
    use(false, 2);
    const QString path = makeFile();
    QString hash = QStringLiteral("before");
    QCOMPARE(manager()->scanFile(path, hash), 0);
    QCOMPARE(hash, QStringLiteral("before"));
    QVERIFY(QFile::exists(path));
    QVERIFY(FakeIocStore::cacheCalls.isEmpty());
    QCOMPARE(report(), QByteArray());
    QVERIFY(m_log->takeNew().isEmpty());
}

void TestIocScanManager::doesNothingWithoutAMatch()
{
    use(true, 2);
    const QString path = makeFile();
    QString hash = QStringLiteral("before");
    QCOMPARE(manager()->scanFile(path, hash), 0);
    QCOMPARE(hash, QStringLiteral("before"));
    QVERIFY(QFile::exists(path));
    QCOMPARE(report(), QByteArray());
    QVERIFY(m_log->takeNew().isEmpty());
}

void TestIocScanManager::acts_data()
{
    QTest::addColumn<int>("action");
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("letters");
    QTest::addColumn<bool>("stays");
    QTest::addColumn<bool>("renamed");
    QTest::newRow("allow") << 0 << 1 << QByteArray("IA") << true << false;
    QTest::newRow("rename") << 1 << 2 << QByteArray("IR") << false << true;
    QTest::newRow("delete") << 2 << 3 << QByteArray("ID") << false << false;
    QTest::newRow("unknown") << 7 << 0 << QByteArray() << true << false;
    QTest::newRow("negative") << -1 << 0 << QByteArray() << true << false;
}

void TestIocScanManager::acts()
{
    QFETCH(int, action);
    QFETCH(QByteArray, letters);
    QFETCH(bool, stays);
    QFETCH(bool, renamed);
    const QString md5 = hashOf(QCryptographicHash::Md5);
    FakeIocStore::lists[0] = QStringList(md5);
    use(true, action);
    const QString path = makeFile();
    const QByteArray pathBytes = path.toUtf8();
    QString hash;
    QTEST(manager()->scanFile(path, hash), "result");
    QCOMPARE(hash, md5);
    QCOMPARE(QFile::exists(path), stays);
    QCOMPARE(QFile::exists(path + QStringLiteral(".IOCOFF")), renamed);

    const QByteArray line = report();
    QCOMPARE(line.count('\n'), 1);
    QCOMPARE(line.mid(19), ',' + pathBytes + ',' + letters + ",4," + md5.toUtf8() + ",NA,NA,NA,NA,NA,NA\n");

    QVector<LogLine> expected;
    if (renamed) {
        expected = {{"INFO", scanFile, "IOC File Renamed: " + pathBytes + ".IOCOFF"}};
    } else if (!stays) {
        expected = {{"INFO", scanFile, "IOC File Removed: " + pathBytes}};
    }
    QCOMPARE(m_log->takeNew(), expected);
}

void TestIocScanManager::passesTheKindOfHash_data()
{
    QTest::addColumn<int>("list");
    QTest::addColumn<QString>("hash");
    QTest::addColumn<QByteArray>("kind");
    QTest::newRow("MD5") << 0 << hashOf(QCryptographicHash::Md5) << QByteArray("4");
    QTest::newRow("SHA-1") << 1 << hashOf(QCryptographicHash::Sha1) << QByteArray("5");
    QTest::newRow("SHA-256") << 2 << hashOf(QCryptographicHash::Sha256) << QByteArray("6");
}

void TestIocScanManager::passesTheKindOfHash()
{
    QFETCH(int, list);
    QFETCH(QString, hash);
    FakeIocStore::lists[list] = QStringList(hash);
    use(true, 0);
    QString found;
    QCOMPARE(manager()->scanFile(makeFile(), found), 1);
    QCOMPARE(found, hash);
    const QList<QByteArray> fields = report().split(',');
    QTEST(fields.at(3), "kind");
    QCOMPARE(fields.at(4), hash.toUtf8());
}

void TestIocScanManager::renamesARenamedFileAgain()
{
    FakeIocStore::lists[0] = QStringList(hashOf(QCryptographicHash::Md5));
    use(true, 1);
    const QString path = makeFile();
    QString hash;
    QCOMPARE(manager()->scanFile(path, hash), 2);
    QCOMPARE(manager()->scanFile(path + QStringLiteral(".IOCOFF"), hash), 2);
    QCOMPARE(QDir(m_directory->path()).entryList(QDir::Files),
             QStringList(QStringLiteral("a.exe.IOCOFF.IOCOFF")));
    QCOMPARE(report().count('\n'), 2);
}

void TestIocScanManager::neverReplacesByRenaming_data()
{
    QTest::addColumn<int>("error");
    QTest::newRow("at once") << 0;
    QTest::newRow("checked first") << EINVAL;
}

void TestIocScanManager::neverReplacesByRenaming()
{
    QFETCH(int, error);
    FakeIocStore::lists[0] = QStringList(hashOf(QCryptographicHash::Md5));
    use(true, 1);
    const QString path = makeFile();
    const QString taken = makeFile("a.exe.IOCOFF");
    QFile other(taken);
    QVERIFY(other.open(QIODevice::WriteOnly) && other.write("precious") == 8);
    other.close();
    if (error != 0) {
        FakeFiles::failures.insert("renameat2", {error});
    }
    QString hash;
    QCOMPARE(manager()->scanFile(path, hash), 4);
    QVERIFY(QFile::exists(path));
    QVERIFY(other.open(QIODevice::ReadOnly));
    QCOMPARE(other.readAll(), QByteArray("precious"));
    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>(
                 {{"ERROR", scanFile, errorCode(EEXIST) + "IOC Failed to Rename: " + taken.toUtf8()}}));
}

void TestIocScanManager::renamesWhereTheFileSystemHasNoSafeWay()
{
    FakeIocStore::lists[0] = QStringList(hashOf(QCryptographicHash::Md5));
    use(true, 1);
    const QString path = makeFile();
    FakeFiles::failures.insert("renameat2", {EINVAL});
    QString hash;
    QCOMPARE(manager()->scanFile(path, hash), 2);
    QVERIFY(!QFile::exists(path));
    QVERIFY(QFile::exists(path + QStringLiteral(".IOCOFF")));
}

void TestIocScanManager::reportsAFailedRename()
{
    FakeIocStore::lists[0] = QStringList(hashOf(QCryptographicHash::Md5));
    use(true, 1);
    const QString path = makeFile();
    FakeFiles::failures.insert("renameat2", {EROFS});
    QString hash;
    QCOMPARE(manager()->scanFile(path, hash), 4);
    QCOMPARE(hash, hashOf(QCryptographicHash::Md5));
    QVERIFY(QFile::exists(path));
    QVERIFY(report().contains(path.toUtf8() + ",IR,4,"));
    // The name that it did not get.
    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>({{"ERROR", scanFile,
                                errorCode(EROFS) + "IOC Failed to Rename: " + path.toUtf8() + ".IOCOFF"}}));
}

void TestIocScanManager::reportsAFailedDelete()
{
    FakeIocStore::lists[0] = QStringList(hashOf(QCryptographicHash::Md5));
    use(true, 2);
    const QString path = makeFile();
    FakeFiles::failures.insert("unlinkat", {EROFS});
    QString hash;
    QCOMPARE(manager()->scanFile(path, hash), 4);
    QCOMPARE(hash, hashOf(QCryptographicHash::Md5));
    QVERIFY(QFile::exists(path));
    QVERIFY(report().contains(path.toUtf8() + ",ID,4,"));
    QCOMPARE(
        m_log->takeNew(),
        QVector<LogLine>({{"ERROR", scanFile, errorCode(EROFS) + "IOC Failed to Remove: " + path.toUtf8()}}));
}

void TestIocScanManager::keepsWhatTookTheNameMeanwhile_data()
{
    QTest::addColumn<int>("action");
    QTest::addColumn<QByteArray>("letters");
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("ending");
    QTest::newRow("rename") << 1 << QByteArray("IR") << QByteArray("IOC Failed to Rename: ")
                            << QByteArray(".IOCOFF");
    QTest::newRow("delete") << 2 << QByteArray("ID") << QByteArray("IOC Failed to Remove: ") << QByteArray();
}

void TestIocScanManager::keepsWhatTookTheNameMeanwhile()
{
    QFETCH(int, action);
    QFETCH(QByteArray, letters);
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, ending);
    const QString md5 = hashOf(QCryptographicHash::Md5);
    FakeIocStore::lists[0] = QStringList(md5);
    use(true, action);
    const QByteArray path = makeFile().toUtf8();
    const QByteArray moved = path + ".moved";
    // The same content: the inode alone tells them apart.
    const QByteArray other = makeFile("other").toUtf8();
    struct stat before = {};
    QCOMPARE(::lstat(other.constData(), &before), 0);
    bool isExchanged = false;
    FakeFiles::onCall = [&](const QByteArray& call) {
        if (call == "read" && !isExchanged) {
            isExchanged = ::rename(path.constData(), moved.constData()) == 0 &&
                          ::rename(other.constData(), path.constData()) == 0;
        }
    };
    QString hash;
    QCOMPARE(manager()->scanFile(QString::fromUtf8(path), hash), 4);
    FakeFiles::onCall = nullptr;
    QVERIFY(isExchanged);
    QCOMPARE(hash, md5);
    struct stat after = {};
    QCOMPARE(::lstat(path.constData(), &after), 0);
    QCOMPARE(after.st_ino, before.st_ino);
    QCOMPARE(QDir(m_directory->path()).entryList(QDir::Files, QDir::Name),
             QStringList({QStringLiteral("a.exe"), QStringLiteral("a.exe.moved")}));
    QCOMPARE(report().mid(19), ',' + path + ',' + letters + ",4," + md5.toUtf8() + ",NA,NA,NA,NA,NA,NA\n");
    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>({{"ERROR", scanFile, errorCode(ESTALE) + line + path + ending}}));
}

void TestIocScanManager::renamesALinkAndNotItsTarget()
{
    FakeIocStore::lists[0] = QStringList(hashOf(QCryptographicHash::Md5));
    use(true, 1);
    const QString target = makeFile("target");
    const QString link = m_directory->path() + QStringLiteral("/link");
    QVERIFY(QFile::link(target, link));
    QString hash;
    QCOMPARE(manager()->scanFile(link, hash), 2);
    QVERIFY(QFile::exists(target));
    QCOMPARE(QFile::symLinkTarget(link + QStringLiteral(".IOCOFF")), target);
}

void TestIocScanManager::goesOnWithoutAReport_data()
{
    QTest::addColumn<int>("action");
    QTest::addColumn<int>("result");
    QTest::newRow("allow") << 0 << 1;
    QTest::newRow("rename") << 1 << 2;
    QTest::newRow("delete") << 2 << 3;
    QTest::newRow("unknown") << 7 << 0;
}

void TestIocScanManager::goesOnWithoutAReport()
{
    QFETCH(int, action);
    FakeIocStore::lists[0] = QStringList(hashOf(QCryptographicHash::Md5));
    use(true, action);
    const QString reports = Common::getReportsPath();
    QVERIFY(QDir(reports).removeRecursively());
    QFile inItsPlace(reports);
    QVERIFY(inItsPlace.open(QIODevice::WriteOnly));
    inItsPlace.close();
    QString hash;
    QTEST(manager()->scanFile(makeFile(), hash), "result");
    QFile::remove(reports);
    const LogLine expected = {"ERROR", scanFile,
                              errorCode(ENOTDIR) + "Failed to add report in IOC Scan Report."};
    QCOMPARE(m_log->takeNew().last(), expected);
}

void TestIocScanManager::readsTheActionFromTheLastLoadedSettings()
{
    FakeIocStore::lists[0] = QStringList(hashOf(QCryptographicHash::Md5));
    use(true, 0);
    FakeIocStore::settings.setAction(2);
    const QString path = makeFile();
    QString hash;
    QCOMPARE(manager()->scanFile(path, hash), 1);
    QVERIFY(manager()->reloadSettings());
    QCOMPARE(manager()->scanFile(path, hash), 3);
}

void TestIocScanManager::keepsThePointerAfterRelease()
{
    IOCScanManager* const released = manager();
    IOCScanManager::releaseInstance();
    QVERIFY(manager() == released);
    // A new manager could lie at the same address, but would have read the store.
    QCOMPARE(FakeIocStore::settingsRead, 0);
}

QTEST_GUILESS_MAIN(TestIocScanManager)
#include "tst_iocscanmanager.moc"
