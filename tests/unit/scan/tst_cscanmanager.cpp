#include "scan/cscanmanager.h"

#include "common/abandonablework.h"
#include "common/common.h"
#include "common/filename.h"
#include "fakescanconfig.h"
#include "scan/cscanfile.h"
#include "scan/excludesettings.h"
#include "scan/scansettings.h"
#include "support/fakeclamav.h"
#include "support/fakefiles.h"
#include "support/logreader.h"
#include "support/testsignatures.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QLocale>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <future>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using StoreSetter = void (ScanSetting::*)(bool);
Q_DECLARE_METATYPE(StoreSetter)

namespace
{
const QString untouched = QStringLiteral("as it was");
const QByteArray infected = "the bytes of an infected file";

const LogLine loaded = {"TRACE", "CScanManager::loadSettings", "Settings loaded successfully."};

LogLine backupFailure(int code, const QByteArray& path)
{
    return {"ERROR", "CScanManager::cleanFile", errorCode(code) + "Failed to take backup of file: " + path};
}

LogLine cleanFailure(int code, const QByteArray& path, int error)
{
    return {"ERROR", "CScanManager::cleanFile",
            errorCode(code) + "Failed to clean file: " + path + ". Error: " + QByteArray::number(error)};
}

/// The switches of ScanSettings in the order of its declaration.
QVector<bool> switches()
{
    const ScanSettings& settings = *ScanSettings::getInstance();
    return {settings.ScanForArchives(),     settings.ScanForHeuristics(),   settings.ScanForHTML_XML(),
            settings.ScanForDoc_Xls(),      settings.ScanForSWF(),          settings.ScanForPDF(),
            settings.ScanMemoryAtStartup(), settings.ShowReportAfterScan(), settings.ShowErrorFiles(),
            settings.AutoScanRemovables(),  settings.TakeBackupOfFiles()};
}

ScanSetting everythingOff()
{
    ScanSetting setting;
    setting.setScanActionSetting(0);
    setting.setScanArchiveFilesEnabled(false);
    setting.setScanHTMLFilesEnabled(false);
    setting.setScanDOCFilesEnabled(false);
    setting.setScanSWFFilesEnabled(false);
    setting.setScanPDFFilesEnabled(false);
    return setting;
}

/// The second that it is now: time() tells the one before for some milliseconds longer.
time_t timeByNow()
{
    return QDateTime::currentSecsSinceEpoch();
}

/// The name of a copy that is made at `time`, put together without Qt's dates.
QString copyName(const QByteArray& path, time_t time)
{
    std::array<char, 64> stamp;
    struct tm parts = {};
    ::tzset();
    ::localtime_r(&time, &parts);
    ::strftime(stamp.data(), stamp.size(), "%Y-%m-%d_%H-%M-%S_", &parts);
    return QString::fromLatin1(stamp.data()) +
           QString::fromLatin1(QCryptographicHash::hash(path, QCryptographicHash::Md5).toHex()) +
           QStringLiteral(".tvq");
}
} // namespace

/// The front door, over a fake store; scans are answered by a fake engine.
class TestCScanManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void loadsSettingsAndExclusionsAsItIsMade();
    void copiesEachSetting_data();
    void copiesEachSetting();
    void copiesAnyAction_data();
    void copiesAnyAction();
    void reloadsSettingsAndExclusions();
    void changesNothingUntilToldTo();
    void changesTheNextScanByAReload();

    void handsOverTheEnginesFlags();
    void handsOverTheResultOfAReload_data();
    void handsOverTheResultOfAReload();
    void handsOverTheResultOfAScan_data();
    void handsOverTheResultOfAScan();
    void scansNoExcludedFile_data();
    void scansNoExcludedFile();
    void scansAFileAgainThatIsNoLongerExcluded();
    void excludesNoText();

    void leavesTheFileUnderReportOnly();
    void cleansUnderEveryOtherAction_data();
    void cleansUnderEveryOtherAction();
    void namesTheCopyByTimeAndPath_data();
    void namesTheCopyByTimeAndPath();
    void hashesThePathAsItIsGiven();
    void writesTheTimeInTheCLocale_data();
    void writesTheTimeInTheCLocale();
    void writesTheTimeInTheCLocaleUnderAnyEnvironment_data();
    void writesTheTimeInTheCLocaleUnderAnyEnvironment();
    void writesTheHourOutOf24_data();
    void writesTheHourOutOf24();
    void keepsTheFirstCopyOfASecond();
    void neverReplacesACopy();
    void copiesBeforeItRemoves();
    void cleansWithoutAQuarantineDirectory();
    void cleansWhenNothingCanBeWritten_data();
    void cleansWhenNothingCanBeWritten();
    void keepsWhatThereIsNoTimeToCopy();
    void cleansWhatCannotBeCopied_data();
    void cleansWhatCannotBeCopied();
    void removesALinkAndKeepsItsTarget();
    void cleansFilesOfAnyName_data();
    void cleansFilesOfAnyName();
    void tellsWhatCannotBeRemoved_data();
    void tellsWhatCannotBeRemoved();
    void keepsTheFileThatCannotBeUnlinked();
    void keepsWhatTookTheNameMeanwhile_data();
    void keepsWhatTookTheNameMeanwhile();
    void keepsTheLastErrorUntilTheNextFailure();
    void tellsWhetherTheCopyWasMade();

    void keepsThePointerAfterRelease();

private:
    static CScanManager& manager()
    {
        return *CScanManager::getInstance();
    }
    QByteArray write(const QByteArray& name, const QByteArray& content = infected) const
    {
        QByteArray path = pathOf(name);
        const int fd = ::open(path.constData(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
        if (::write(fd, content.constData(), static_cast<size_t>(content.size())) != content.size()) {
            qFatal("cannot write %s", path.constData());
        }
        ::close(fd);
        return path;
    }
    QByteArray pathOf(const QByteArray& name) const
    {
        return QFile::encodeName(m_directory->path()) + '/' + name;
    }
    static int clean(const QByteArray& path)
    {
        return manager().cleanFile(FileName::toText(path));
    }
    static bool exists(const QByteArray& path)
    {
        struct stat status = {};
        return ::lstat(path.constData(), &status) == 0;
    }
    static QString quarantine()
    {
        return Common::getRootPath() + QStringLiteral("/quarantine");
    }
    static QStringList copies()
    {
        return QDir(quarantine())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    static QByteArray contentOf(const QString& copy)
    {
        QFile file(quarantine() + QLatin1Char('/') + copy);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be read");
    }

    QScopedPointer<QTemporaryDir> m_directory;
};

void TestCScanManager::initTestCase()
{
    FakeScanConfig::reset();
    FakeClamav::reset();
    QVERIFY(TestSignatures::removeAll());
}

void TestCScanManager::init()
{
    std::filesystem::remove_all(quarantine().toStdString());
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    m_directory->setAutoRemove(false);
}

void TestCScanManager::cleanup()
{
    FakeScanConfig::reset();
    FakeClamav::failures.clear();
    FakeClamav::answer.reset();
    FakeFiles::reset();
    QLocale::setDefault(QLocale::system());
    qunsetenv("TZ");
    // QTemporaryDir leaves behind what has a name that is not UTF-8.
    QVERIFY(std::filesystem::remove_all(m_directory->path().toStdString()) > 0);
    std::filesystem::remove_all(quarantine().toStdString());
    // Each test starts from the defaults, except the last one, after which there is no manager.
    if (qstrcmp(QTest::currentTestFunction(), "keepsThePointerAfterRelease") != 0) {
        manager().reloadSettings();
    }
    FakeScanConfig::reset();
    FakeClamav::scans.clear();
}

void TestCScanManager::loadsSettingsAndExclusionsAsItIsMade()
{
    FakeScanConfig::setting.setScanActionSetting(7);
    FakeScanConfig::excludeLists[0] = {QStringLiteral("/home/u/x")};
    LogReader log;
    CScanManager* const made = CScanManager::getInstance();
    QCOMPARE(FakeScanConfig::settingReads, 1);
    QCOMPARE(FakeScanConfig::listReads.size(), 3);
    QCOMPARE(static_cast<int>(ScanSettings::getInstance()->ScanActionSetting()), 7);
    QVERIFY(ExcludeSettings::getInstance()->isFileExcluded(QStringLiteral("/home/u/x")));
    // The first use of the log in this process writes a line of its own before.
    QCOMPARE(log.takeNew().constLast(), loaded);
    QCOMPARE(made->getLastError(), 0);
    QVERIFY(!made->isDBLoaded());
    QVERIFY(!made->isDBLoading());
    // The engine is made by others.
    QVERIFY(FakeClamav::calls.isEmpty());

    QCOMPARE(CScanManager::getInstance(), made);
    QCOMPARE(FakeScanConfig::settingReads, 1);
}

void TestCScanManager::copiesEachSetting_data()
{
    QTest::addColumn<StoreSetter>("set");
    QTest::addColumn<QVector<int>>("expected");
    QTest::newRow("archives, and removables with them")
        << &ScanSetting::setScanArchiveFilesEnabled << QVector<int>({0, 9});
    QTest::newRow("heuristics") << &ScanSetting::setScanHeuristicEnabled << QVector<int>({1});
    QTest::newRow("HTML") << &ScanSetting::setScanHTMLFilesEnabled << QVector<int>({2});
    QTest::newRow("documents") << &ScanSetting::setScanDOCFilesEnabled << QVector<int>({3});
    QTest::newRow("SWF") << &ScanSetting::setScanSWFFilesEnabled << QVector<int>({4});
    QTest::newRow("PDF") << &ScanSetting::setScanPDFFilesEnabled << QVector<int>({5});
    QTest::newRow("memory at start-up") << &ScanSetting::setScanMemoryAtStartupEnabled << QVector<int>({6});
    QTest::newRow("report after scan") << &ScanSetting::setShowReportAfterScanEnabled << QVector<int>({7});
    QTest::newRow("error files") << &ScanSetting::setShowErrorFilesEnabled << QVector<int>({8});
    QTest::newRow("backup") << &ScanSetting::setTakeBackupOfFilesEnabled << QVector<int>({10});
}

void TestCScanManager::copiesEachSetting()
{
    QFETCH(StoreSetter, set);
    QFETCH(QVector<int>, expected);
    FakeScanConfig::setting = everythingOff();
    manager().loadSettings();
    QCOMPARE(switches(), QVector<bool>(11, false));

    (FakeScanConfig::setting.*set)(true);
    manager().loadSettings();
    QVector<bool> wanted(11, false);
    for (const int index : expected) {
        wanted[index] = true;
    }
    QCOMPARE(switches(), wanted);

    (FakeScanConfig::setting.*set)(false);
    QVERIFY(manager().reloadSettings());
    QCOMPARE(switches(), QVector<bool>(11, false));
}

void TestCScanManager::copiesAnyAction_data()
{
    QTest::addColumn<int>("action");
    for (const int action : {0, 1, 2, 99, -1}) {
        QTest::addRow("%d", action) << action;
    }
}

void TestCScanManager::copiesAnyAction()
{
    QFETCH(int, action);
    FakeScanConfig::setting.setScanActionSetting(action);
    manager().loadSettings();
    QCOMPARE(static_cast<int>(ScanSettings::getInstance()->ScanActionSetting()), action);
    // What the store has no value for stays.
    QCOMPARE(static_cast<int>(ScanSettings::getInstance()->ScanMode()), 1);
    QCOMPARE(static_cast<int>(ScanSettings::getInstance()->ScanOption()), 1);
}

void TestCScanManager::reloadsSettingsAndExclusions()
{
    LogReader log;
    QVERIFY(manager().reloadSettings());
    QCOMPARE(
        log.takeNew(),
        QVector<LogLine>({{"TRACE", "CScanManager::reloadSettings", "Reload settings called."}, loaded}));
    QCOMPARE(FakeScanConfig::settingReads, 1);
    QCOMPARE(FakeScanConfig::listReads, QVector<int>({2, 1, 0}));

    manager().loadSettings();
    QCOMPARE(FakeScanConfig::settingReads, 2);
    QCOMPARE(FakeScanConfig::listReads.size(), 3);
}

void TestCScanManager::changesNothingUntilToldTo()
{
    FakeScanConfig::setting = everythingOff();
    FakeScanConfig::excludeLists[0] = {FileName::toText(pathOf("file"))};
    QVERIFY(ScanSettings::getInstance()->ScanForArchives());
    QString virusName;
    QVERIFY(CScanFile::getInstance()->initEngine());
    FakeClamav::answer = FakeClamav::Answer{1, "Name"};
    QCOMPARE(manager().scanFile(FileName::toText(write("file")), virusName), 1);
    QCOMPARE(FakeScanConfig::settingReads, 0);
    QVERIFY(CScanFile::getInstance()->releaseEngine());
}

void TestCScanManager::changesTheNextScanByAReload()
{
    QVERIFY(CScanFile::getInstance()->initEngine());
    FakeClamav::answer = FakeClamav::Answer{0, nullptr};
    QString virusName;
    const QString path = FileName::toText(write("file"));
    for (const bool on : {true, false, true}) {
        FakeScanConfig::setting.setScanArchiveFilesEnabled(on);
        QVERIFY(manager().reloadSettings());
        QCOMPARE(ScanSettings::getInstance()->ScanForArchives(), on);
        QCOMPARE(ScanSettings::getInstance()->AutoScanRemovables(), on);
        manager().scanFile(path, virusName);
        QCOMPARE((FakeClamav::scans.constLast().options.parse & CL_SCAN_PARSE_ARCHIVE) != 0, on);
    }
    QVERIFY(CScanFile::getInstance()->releaseEngine());
}

void TestCScanManager::handsOverTheEnginesFlags()
{
    QVector<bool> loading;
    FakeClamav::onCall = [&loading](const QByteArray& name) {
        if (name == "cl_engine_compile") {
            loading << manager().isDBLoading() << manager().isDBLoaded();
        }
    };
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    FakeClamav::onCall = nullptr;
    QCOMPARE(loading, QVector<bool>({true, false}));
    QVERIFY(manager().isDBLoaded());
    QVERIFY(!manager().isDBLoading());
    QVERIFY(CScanFile::getInstance()->releaseEngine());
}

void TestCScanManager::handsOverTheResultOfAReload_data()
{
    QTest::addColumn<QByteArray>("failing");
    QTest::addColumn<bool>("result");
    QTest::newRow("all well") << QByteArray() << true;
    QTest::newRow("not to be freed") << QByteArray("cl_engine_free") << false;
    QTest::newRow("not to be compiled") << QByteArray("cl_engine_compile") << false;
}

void TestCScanManager::handsOverTheResultOfAReload()
{
    QFETCH(QByteArray, failing);
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    if (!failing.isEmpty()) {
        FakeClamav::failures.insert(failing, {CL_EMEM, 0});
    }
    const bool result = manager().reloadDatabase();
    FakeClamav::failures.clear();
    QVERIFY(CScanFile::getInstance()->releaseEngine());
    QTEST(result, "result");
}

void TestCScanManager::handsOverTheResultOfAScan_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("virusName");
    QTest::newRow("clean") << 0 << untouched;
    QTest::newRow("infected") << 1 << QStringLiteral("Win.Worm");
    for (const int code : {2, 3, 8, 12, 24, 32}) {
        QTest::addRow("error %d", code) << code << untouched;
    }
}

void TestCScanManager::handsOverTheResultOfAScan()
{
    QFETCH(int, code);
    const QString path = FileName::toText(write("file"));
    QVERIFY(CScanFile::getInstance()->initEngine());
    FakeClamav::answer = FakeClamav::Answer{code, "Win.Worm"};
    LogReader log;
    QString ofFile = untouched;
    QCOMPARE(manager().scanFile(path, ofFile), code);
    QTEST(ofFile, "virusName");
    QString ofText = untouched;
    QCOMPARE(manager().scanUrl(QStringLiteral("http://localhost/"), ofText), code);
    QTEST(ofText, "virusName");
    // Who asked tells about errors.
    QCOMPARE(log.takeNew(), {});
    QVERIFY(CScanFile::getInstance()->releaseEngine());
}

void TestCScanManager::scansNoExcludedFile_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("excluded");
    QTest::newRow("listed") << QByteArray("listed") << true;
    QTest::newRow("not listed") << QByteArray("other") << false;
    QTest::newRow("quarantine copy") << QByteArray("other.tvq") << true;
    QTest::newRow("in a listed directory") << QByteArray("directory/file") << false;
}

void TestCScanManager::scansNoExcludedFile()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, excluded);
    QCOMPARE(::mkdir(pathOf("directory").constData(), 0700), 0);
    const QString path = FileName::toText(write(name));
    FakeScanConfig::excludeLists[0] = {FileName::toText(pathOf("listed"))};
    FakeScanConfig::excludeLists[1] = {FileName::toText(pathOf("directory"))};
    QVERIFY(manager().reloadSettings());
    QVERIFY(CScanFile::getInstance()->initEngine());
    FakeClamav::answer = FakeClamav::Answer{1, "Win.Worm"};
    LogReader log;
    QString virusName = untouched;
    QCOMPARE(manager().scanFile(path, virusName), excluded ? 0 : 1);
    QCOMPARE(virusName, excluded ? untouched : QStringLiteral("Win.Worm"));
    QCOMPARE(FakeClamav::scans.size(), excluded ? 0 : 1);
    QCOMPARE(log.takeNew(), {});
    QVERIFY(CScanFile::getInstance()->releaseEngine());
}

void TestCScanManager::scansAFileAgainThatIsNoLongerExcluded()
{
    const QString path = FileName::toText(write("file"));
    QVERIFY(CScanFile::getInstance()->initEngine());
    FakeClamav::answer = FakeClamav::Answer{1, "Win.Worm"};
    QString virusName;
    FakeScanConfig::excludeLists[0] = {path};
    QVERIFY(manager().reloadSettings());
    QCOMPARE(manager().scanFile(path, virusName), 0);
    FakeScanConfig::excludeLists[0].clear();
    QVERIFY(manager().reloadSettings());
    QCOMPARE(manager().scanFile(path, virusName), 1);
    QVERIFY(CScanFile::getInstance()->releaseEngine());
}

void TestCScanManager::excludesNoText()
{
    const QString text = QStringLiteral("/home/u/listed.tvq");
    FakeScanConfig::excludeLists[0] = {text};
    QVERIFY(manager().reloadSettings());
    QVERIFY(CScanFile::getInstance()->initEngine());
    FakeClamav::answer = FakeClamav::Answer{1, "Win.Worm"};
    QString virusName;
    QCOMPARE(manager().scanUrl(text, virusName), 1);
    QVERIFY(CScanFile::getInstance()->releaseEngine());
}

void TestCScanManager::leavesTheFileUnderReportOnly()
{
    FakeScanConfig::setting.setScanActionSetting(0);
    manager().loadSettings();
    const QByteArray path = write("file");
    LogReader log;
    QCOMPARE(clean(path), -1);
    QVERIFY(exists(path));
    QCOMPARE(copies(), QStringList());
    QCOMPARE(clean(pathOf("missing")), -1);
    QCOMPARE(log.takeNew(), {});
    QCOMPARE(manager().getLastError(), 0);
}

void TestCScanManager::cleansUnderEveryOtherAction_data()
{
    QTest::addColumn<int>("action");
    QTest::addColumn<bool>("backupSwitch");
    for (const int action : {1, 2, 99, -1}) {
        QTest::addRow("%d", action) << action << true;
        // Loaded and not asked for: a copy is made on every clean.
        QTest::addRow("%d, backup switched off", action) << action << false;
    }
}

void TestCScanManager::cleansUnderEveryOtherAction()
{
    QFETCH(int, action);
    QFETCH(bool, backupSwitch);
    FakeScanConfig::setting.setScanActionSetting(action);
    FakeScanConfig::setting.setTakeBackupOfFilesEnabled(backupSwitch);
    manager().loadSettings();
    const QByteArray path = write("file");
    LogReader log;
    QCOMPARE(clean(path), 0);
    QVERIFY(!exists(path));
    QCOMPARE(copies().size(), 1);
    QCOMPARE(contentOf(copies().constFirst()), infected);
    QCOMPARE(log.takeNew(), {});
    QCOMPARE(manager().getLastError(), 0);
}

void TestCScanManager::namesTheCopyByTimeAndPath_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("ASCII") << QByteArray("file");
    QTest::newRow("UTF-8") << QByteArray("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    QTest::newRow("leading U+FEFF") << QByteArray("\xEF\xBB\xBF"
                                                  "file");
    QTest::newRow("another ending") << QByteArray("archive.tar.gz");
}

void TestCScanManager::namesTheCopyByTimeAndPath()
{
    QFETCH(QByteArray, name);
    const QByteArray path = write(name);
    const time_t before = ::time(nullptr);
    QCOMPARE(clean(path), 0);
    const time_t after = timeByNow();
    QCOMPARE(copies().size(), 1);
    const QString copy = copies().constFirst();
    QCOMPARE(copy.size(), 56);
    QVERIFY2(copy >= copyName(path, before) && copy <= copyName(path, after), qPrintable(copy));
    QCOMPARE(copy.mid(20), copyName(path, before).mid(20));
    QCOMPARE(contentOf(copy), infected);
    struct stat status = {};
    QCOMPARE(::stat(QFile::encodeName(quarantine() + QLatin1Char('/') + copy).constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777U, 0400U);
}

void TestCScanManager::hashesThePathAsItIsGiven()
{
    write("file");
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(m_directory->path()));
    const int result = clean("./file");
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(result, 0);
    // The MD5 of "./file".
    QCOMPARE(copies().constFirst().mid(20), copyName("./file", 0).mid(20));
}

void TestCScanManager::writesTheTimeInTheCLocale_data()
{
    QTest::addColumn<QString>("locale");
    QTest::newRow("of the environment") << QString();
    QTest::newRow("German") << "de_DE";
    QTest::newRow("Arabic, with digits of its own") << "ar_EG";
    QTest::newRow("Persian, with digits of its own") << "fa_IR";
}

void TestCScanManager::writesTheTimeInTheCLocale()
{
    QFETCH(QString, locale);
    if (!locale.isEmpty()) {
        QLocale::setDefault(QLocale(locale));
    }
    const QByteArray path = write("file");
    const time_t before = ::time(nullptr);
    QCOMPARE(clean(path), 0);
    const time_t after = timeByNow();
    const QString copy = copies().constFirst();
    QVERIFY2(copy >= copyName(path, before) && copy <= copyName(path, after), qPrintable(copy));
}

void TestCScanManager::writesTheTimeInTheCLocaleUnderAnyEnvironment_data()
{
    QTest::addColumn<QString>("locale");
    QTest::newRow("German") << "de_DE.UTF-8";
    QTest::newRow("Arabic") << "ar_EG.UTF-8";
}

void TestCScanManager::writesTheTimeInTheCLocaleUnderAnyEnvironment()
{
    QFETCH(QString, locale);
    if (qEnvironmentVariableIsSet("TVFILEMON_TEST_CHILD")) {
        // The process that is started below: the locale did reach it.
        QCOMPARE(QLocale().name(), locale.left(5));
        const QByteArray path = write("file");
        const time_t before = ::time(nullptr);
        QVERIFY(manager().takebackupOfFile(FileName::toText(path)));
        const time_t after = timeByNow();
        const QString copy = copies().constFirst();
        QVERIFY2(copy >= copyName(path, before) && copy <= copyName(path, after), qPrintable(copy));
        return;
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), locale);
    environment.insert(QStringLiteral("TVFILEMON_TEST_CHILD"), QStringLiteral("1"));
    QProcess child;
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::MergedChannels);
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("%1:%2").arg(QString::fromLatin1(QTest::currentTestFunction()),
                                             QString::fromLatin1(QTest::currentDataTag()))});
    QVERIFY(child.waitForFinished());
    QVERIFY2(child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0,
             child.readAll().constData());
}

void TestCScanManager::writesTheHourOutOf24_data()
{
    QTest::addColumn<int>("hour");
    for (const int hour : {0, 3, 12, 15, 23}) {
        QTest::addRow("%d o'clock", hour) << hour;
    }
}

void TestCScanManager::writesTheHourOutOf24()
{
    QFETCH(int, hour);
    // A zone where it is that hour now. West is positive there.
    const time_t now = ::time(nullptr);
    const int zone = static_cast<int>(now / 3600 % 24) - hour;
    qputenv("TZ", "TVT" + QByteArray::number(zone));
    const QByteArray path = write("file");
    QCOMPARE(clean(path), 0);
    const time_t after = timeByNow();
    const QString copy = copies().constFirst();
    QVERIFY2(copy >= copyName(path, now) && copy <= copyName(path, after), qPrintable(copy));
}

void TestCScanManager::keepsTheFirstCopyOfASecond()
{
    const QByteArray path = pathOf("file");
    QVector<LogLine> lines;
    // Until both fall into one second, which the first attempt nearly always does.
    while (copies().size() != 1) {
        std::filesystem::remove_all(quarantine().toStdString());
        LogReader log;
        write("file", "first");
        QCOMPARE(clean(path), 0);
        write("file", "second");
        QCOMPARE(clean(path), 0);
        lines = log.takeNew();
    }
    QVERIFY(!exists(path));
    QCOMPARE(contentOf(copies().constFirst()), QByteArray("first"));
    QCOMPARE(lines, {backupFailure(EEXIST, path)});
}

void TestCScanManager::neverReplacesACopy()
{
    const QByteArray path = write("file");
    QVERIFY(QDir().mkpath(quarantine()));
    const time_t now = ::time(nullptr);
    for (int second = 0; second < 60; ++second) {
        QFile earlier(quarantine() + QLatin1Char('/') + copyName(path, now + second));
        QVERIFY(earlier.open(QIODevice::WriteOnly));
        earlier.write("earlier");
    }
    LogReader log;
    QCOMPARE(clean(path), 0);
    QVERIFY(!exists(path));
    QCOMPARE(log.takeNew(), {backupFailure(EEXIST, path)});
    QCOMPARE(copies().size(), 60);
    for (const QString& copy : copies()) {
        QCOMPARE(contentOf(copy), QByteArray("earlier"));
    }
}

void TestCScanManager::copiesBeforeItRemoves()
{
    const QByteArray path = write("file");
    bool copyWasThere = false;
    FakeFiles::onCall = [&](const QByteArray& call) {
        if (call == "unlinkat") {
            copyWasThere = copies().size() == 1 && contentOf(copies().constFirst()) == infected;
        }
    };
    QCOMPARE(clean(path), 0);
    QCOMPARE(FakeFiles::calls, QVector<QByteArray>({"openat create", "fsync file", "renameat2",
                                                    "fsync directory", "unlinkat"}));
    QVERIFY(copyWasThere);
}

void TestCScanManager::cleansWithoutAQuarantineDirectory()
{
    // Missing, it is made.
    QVERIFY(!QFile::exists(quarantine()));
    QCOMPARE(clean(write("first")), 0);
    QCOMPARE(copies().size(), 1);

    // It cannot be made where a file stands.
    std::filesystem::remove_all(quarantine().toStdString());
    QFile inItsPlace(quarantine());
    QVERIFY(inItsPlace.open(QIODevice::WriteOnly));
    inItsPlace.close();
    const QByteArray path = write("second");
    LogReader log;
    QCOMPARE(clean(path), 0);
    QVERIFY(!exists(path));
    QCOMPARE(log.takeNew(), {backupFailure(ENOTDIR, path)});
    QCOMPARE(QFileInfo(quarantine()).size(), 0);
    QCOMPARE(manager().getLastError(), 0);
}

void TestCScanManager::cleansWhenNothingCanBeWritten_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<int>("error");
    QTest::newRow("read-only file system") << QByteArray("openat create") << EROFS;
    QTest::newRow("no space") << QByteArray("write") << ENOSPC;
    QTest::newRow("what tells the end of the service, by chance") << QByteArray("write") << ECANCELED;
    QTest::newRow("not to be synced") << QByteArray("fsync file") << EIO;
    QTest::newRow("not to be renamed") << QByteArray("renameat2") << EDQUOT;
    QTest::newRow("directory not to be synced") << QByteArray("fsync directory") << EIO;
}

void TestCScanManager::cleansWhenNothingCanBeWritten()
{
    QFETCH(QByteArray, call);
    QFETCH(int, error);
    const QByteArray path = write("file");
    // A write of the log must not be the one that fails.
    FakeFiles::failures.insert(call, {error});
    LogReader log;
    QCOMPARE(clean(path), 0);
    QVERIFY(!exists(path));
    QCOMPARE(log.takeNew(), {backupFailure(error, path)});
    QCOMPARE(copies(), QStringList());
}

void TestCScanManager::keepsWhatThereIsNoTimeToCopy()
{
    const QByteArray path = write("file");
    // What is small is copied all the same.
    QCOMPARE(::truncate(path.constData(), (16 << 20) + 1), 0);
    auto end = std::async(std::launch::async, &AbandonableWork::abandon);
    QTRY_VERIFY(AbandonableWork::isAwaited());
    LogReader log;
    const int result = clean(path);
    const QVector<LogLine> lines = log.takeNew();
    AbandonableWork::cancel();
    QVERIFY(!end.get());
    QCOMPARE(result, 1);
    QCOMPARE(manager().getLastError(), static_cast<int>(QFileDevice::RemoveError));
    QCOMPARE(lines, QVector<LogLine>({backupFailure(ECANCELED, path),
                                      cleanFailure(ECANCELED, path, QFileDevice::RemoveError)}));
    QVERIFY(exists(path));
    QVERIFY(copies().isEmpty());
}

void TestCScanManager::cleansWhatCannotBeCopied_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("error");
    QTest::newRow("FIFO") << QByteArray("fifo") << EINVAL;
    QTest::newRow("link that leads nowhere") << QByteArray("dangling") << ENOENT;
    QTest::newRow("link to a directory") << QByteArray("dirlink") << EISDIR;
    QTest::newRow("link to a device") << QByteArray("device") << EINVAL;
}

void TestCScanManager::cleansWhatCannotBeCopied()
{
    QFETCH(QByteArray, name);
    QFETCH(int, error);
    QCOMPARE(::mkfifo(pathOf("fifo").constData(), 0600), 0);
    QCOMPARE(::symlink("nowhere", pathOf("dangling").constData()), 0);
    QCOMPARE(::symlink(".", pathOf("dirlink").constData()), 0);
    QCOMPARE(::symlink("/dev/null", pathOf("device").constData()), 0);
    LogReader log;
    QCOMPARE(clean(pathOf(name)), 0);
    QVERIFY(!exists(pathOf(name)));
    QCOMPARE(log.takeNew(), {backupFailure(error, pathOf(name))});
    QCOMPARE(copies(), QStringList());
}

void TestCScanManager::removesALinkAndKeepsItsTarget()
{
    const QByteArray target = write("target");
    const QByteArray link = pathOf("link");
    QCOMPARE(::symlink("target", link.constData()), 0);
    LogReader log;
    QCOMPARE(clean(link), 0);
    QVERIFY(!exists(link));
    QVERIFY(exists(target));
    QCOMPARE(copies().size(), 1);
    QCOMPARE(contentOf(copies().constFirst()), infected);
    // By the link's path, not by where it leads.
    QCOMPARE(copies().constFirst().mid(20), copyName(link, 0).mid(20));
    QVERIFY(!QFileInfo(quarantine() + QLatin1Char('/') + copies().constFirst()).isSymLink());
    QCOMPARE(log.takeNew(), {});
}

void TestCScanManager::cleansFilesOfAnyName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("Latin-1") << QByteArray("caf\xE9");
    QTest::newRow("leading U+FEFF") << QByteArray("\xEF\xBB\xBF"
                                                  "file");
    QTest::newRow("newline") << QByteArray("a\nb");
    QTest::newRow("percent sequences") << QByteArray("%s%n%1%2");
    QTest::newRow("255 bytes") << QByteArray(255, '\xFF');
}

void TestCScanManager::cleansFilesOfAnyName()
{
    QFETCH(QByteArray, name);
    const QByteArray path = write(name);
    QCOMPARE(clean(path), 0);
    QVERIFY(!exists(path));
    QCOMPARE(contentOf(copies().value(0)), infected);
    QCOMPARE(copies().constFirst().mid(20), copyName(path, 0).mid(20));
}

void TestCScanManager::tellsWhatCannotBeRemoved_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("backupCode");
    QTest::addColumn<int>("removeCode");
    QTest::newRow("missing") << QByteArray("missing") << ENOENT << ENOENT;
    QTest::newRow("missing, with percent sequences") << QByteArray("%s%d%n") << ENOENT << ENOENT;
    QTest::newRow("directory") << QByteArray("directory") << EISDIR << EISDIR;
    QTest::newRow("below a file") << QByteArray("file/x") << ENOTDIR << ENOTDIR;
    QTest::newRow("file with a slash") << QByteArray("file/") << ENOTDIR << ENOTDIR;
    QTest::newRow("name too long") << QByteArray(256, 'x') << ENAMETOOLONG << ENAMETOOLONG;
}

void TestCScanManager::tellsWhatCannotBeRemoved()
{
    QFETCH(QByteArray, name);
    QFETCH(int, backupCode);
    QFETCH(int, removeCode);
    QCOMPARE(::mkdir(pathOf("directory").constData(), 0700), 0);
    write("file");
    const QByteArray path = pathOf(name);
    LogReader log;
    QCOMPARE(clean(path), 1);
    QCOMPARE(log.takeNew(),
             QVector<LogLine>({backupFailure(backupCode, path), cleanFailure(removeCode, path, 9)}));
    QCOMPARE(manager().getLastError(), 9);
    QVERIFY(exists(pathOf("directory")));
    QVERIFY(exists(pathOf("file")));
    QCOMPARE(copies(), QStringList());
}

void TestCScanManager::keepsTheFileThatCannotBeUnlinked()
{
    const QByteArray path = write("file");
    FakeFiles::failures.insert("unlinkat", {EPERM});
    LogReader log;
    QCOMPARE(clean(path), 1);
    QCOMPARE(log.takeNew(), {cleanFailure(EPERM, path, 9)});
    QCOMPARE(manager().getLastError(), 9);
    QVERIFY(exists(path));
    QCOMPARE(contentOf(copies().value(0)), infected);
}

void TestCScanManager::keepsWhatTookTheNameMeanwhile_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<QByteArray>("other");
    for (const char* call : {"openat create", "write", "renameat2", "fsync directory"}) {
        QTest::addRow("another file, at %s", call) << QByteArray(call) << QByteArray("other");
    }
    QTest::newRow("link to the file") << QByteArray("fsync directory") << QByteArray("link");
    QTest::newRow("nothing") << QByteArray("fsync directory") << QByteArray();
}

void TestCScanManager::keepsWhatTookTheNameMeanwhile()
{
    QFETCH(QByteArray, call);
    QFETCH(QByteArray, other);
    const QByteArray path = write("file");
    const QByteArray moved = pathOf("moved");
    write("other", "precious");
    QCOMPARE(::symlink("moved", pathOf("link").constData()), 0);
    struct stat before = {};
    if (!other.isEmpty()) {
        QCOMPARE(::lstat(pathOf(other).constData(), &before), 0);
    }
    // QtTest itself writes as well.
    bool isExchanged = false;
    FakeFiles::onCall = [&](const QByteArray& made) {
        if (made == call && !isExchanged) {
            isExchanged = ::rename(path.constData(), moved.constData()) == 0 &&
                          (other.isEmpty() || ::rename(pathOf(other).constData(), path.constData()) == 0);
        }
    };
    LogReader log;
    QCOMPARE(clean(path), 1);
    FakeFiles::onCall = nullptr;
    QVERIFY(isExchanged);
    QCOMPARE(log.takeNew(),
             {cleanFailure(other.isEmpty() ? ENOENT : ESTALE, path, QFileDevice::RemoveError)});
    QCOMPARE(manager().getLastError(), static_cast<int>(QFileDevice::RemoveError));
    QVERIFY(!FakeFiles::calls.contains("unlinkat"));
    QVERIFY(exists(moved));
    if (!other.isEmpty()) {
        struct stat after = {};
        QCOMPARE(::lstat(path.constData(), &after), 0);
        QCOMPARE(after.st_ino, before.st_ino);
    }
    // What was looked at is what was copied.
    QCOMPARE(contentOf(copies().value(0)), infected);
}

void TestCScanManager::keepsTheLastErrorUntilTheNextFailure()
{
    QCOMPARE(clean(pathOf("missing")), 1);
    QCOMPARE(manager().getLastError(), 9);
    QCOMPARE(clean(write("file")), 0);
    QCOMPARE(manager().getLastError(), 9);
    FakeScanConfig::setting.setScanActionSetting(0);
    manager().loadSettings();
    QCOMPARE(clean(pathOf("missing")), -1);
    QCOMPARE(manager().getLastError(), 9);
    FakeScanConfig::setting.setScanActionSetting(1);
    manager().loadSettings();

    // Qt does not try to remove nothing, and calls that no error of a file.
    for (const QString& nothing : {QString(), QStringLiteral("")}) {
        QCOMPARE(clean(pathOf("missing")), 1);
        QCOMPARE(manager().getLastError(), 9);
        LogReader log;
        QCOMPARE(manager().cleanFile(nothing), 1);
        QCOMPARE(log.takeNew(), QVector<LogLine>({backupFailure(ENOENT, ""), cleanFailure(ENOENT, "", 0)}));
        QCOMPARE(manager().getLastError(), 0);
    }
}

void TestCScanManager::tellsWhetherTheCopyWasMade()
{
    const QByteArray path = write("file");
    LogReader log;
    QVERIFY(manager().takebackupOfFile(FileName::toText(path)));
    QCOMPARE(contentOf(copies().value(0)), infected);
    QVERIFY(exists(path));
    errno = 0;
    QVERIFY(!manager().takebackupOfFile(FileName::toText(pathOf("missing"))));
    QCOMPARE(errno, ENOENT);
    QCOMPARE(log.takeNew(), {});
}

void TestCScanManager::keepsThePointerAfterRelease()
{
    CScanManager* const released = CScanManager::getInstance();
    CScanManager::releaseInstance();
    QVERIFY(CScanManager::getInstance() == released);
    // A new manager could lie at the same address, but would have read the store.
    QCOMPARE(FakeScanConfig::settingReads, 0);
}

QTEST_GUILESS_MAIN(TestCScanManager)
#include "tst_cscanmanager.moc"
