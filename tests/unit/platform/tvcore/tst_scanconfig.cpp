#include "platform/tvcore/scanconfig.h"

#include "platform/tvcore/tvcore.h"
#include "rawdatabase.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace
{
ScanSetting everythingChanged()
{
    ScanSetting setting;
    setting.setScanActionSetting(0);
    setting.setScanArchiveFilesEnabled(false);
    setting.setScanHeuristicEnabled(true);
    setting.setScanHTMLFilesEnabled(false);
    setting.setScanDOCFilesEnabled(false);
    setting.setScanSWFFilesEnabled(false);
    setting.setScanPDFFilesEnabled(false);
    setting.setScanMemoryAtStartupEnabled(true);
    setting.setShowReportAfterScanEnabled(true);
    setting.setShowErrorFilesEnabled(true);
    setting.setTakeBackupOfFilesEnabled(true);
    return setting;
}

bool isEqual(const ScanSetting& a, const ScanSetting& b)
{
    return a.getScanActionSetting() == b.getScanActionSetting() &&
           a.isScanArchiveFilesEnabled() == b.isScanArchiveFilesEnabled() &&
           a.isScanHeuristicEnabled() == b.isScanHeuristicEnabled() &&
           a.isScanHTMLFilesEnabled() == b.isScanHTMLFilesEnabled() &&
           a.isScanDOCFilesEnabled() == b.isScanDOCFilesEnabled() &&
           a.isScanSWFFilesEnabled() == b.isScanSWFFilesEnabled() &&
           a.isScanPDFFilesEnabled() == b.isScanPDFFilesEnabled() &&
           a.isScanMemoryAtStartupEnabled() == b.isScanMemoryAtStartupEnabled() &&
           a.isShowReportAfterScanEnabled() == b.isShowReportAfterScanEnabled() &&
           a.isShowErrorFilesEnabled() == b.isShowErrorFilesEnabled() &&
           a.isTakeBackupOfFilesEnabled() == b.isTakeBackupOfFilesEnabled();
}

/// The list that stands for number `n` in the test with two processes: its size tells whether it is whole.
QSet<QString> wholeList(int n)
{
    QSet<QString> paths;
    for (int i = 0; i < 20; ++i) {
        paths.insert(QStringLiteral("/home/%1/%2").arg(n).arg(i));
    }
    return paths;
}

constexpr int roundCount = 200;

/// The other process: writes as a user interface does.
int writeInAnotherProcess(const QString& directory)
{
    TvCore::setDirectory(directory);
    ScanConfig config;
    for (int i = 1; i <= roundCount; ++i) {
        ScanSetting setting;
        setting.setScanActionSetting(i);
        if (!config.setScanSetting(setting) || !config.setExcludeList(0, wholeList(i))) {
            return 1;
        }
    }
    return 0;
}

/// The other process: adds one path after the other, and switches all but one of the settings.
int changeInAnotherProcess(const QString& directory)
{
    TvCore::setDirectory(directory);
    ScanConfig config;
    for (int i = 0; i < roundCount; ++i) {
        const QString path = QStringLiteral("/other/%1").arg(i);
        if (!config.changeExcludeList(0, [&path](QSet<QString>& paths) { paths.insert(path); }) ||
            !config.changeScanSetting([i](ScanSetting& setting) { setting.setScanActionSetting(i); })) {
            return 1;
        }
    }
    return 0;
}
} // namespace

class TestScanConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void emptyStoreHasDefaults();
    void keepsEverySetting();
    void aSettingNeverStoredHasItsDefault();
    void keepsWhatItReadLastOfALostTable();
    void keepsListsApart();
    void keepsAListMadeEmpty();
    void refusesOtherLists_data();
    void refusesOtherLists();
    void keepsNamesToTheByte_data();
    void keepsNamesToTheByte();
    void seesWhatAnotherProcessWroteOnTheNextCall();
    void twoProcessesWriteAndReadAtOnce();
    void answersWhatItReadLastWhileLocked();
    void answersDefaultsWhenNothingWasEverRead();
    void answersWhatItReadLastFromADamagedStore();
    void failedWritesChangeNothing();
    void changesWhatIsStored();
    void losesNothingThatAnotherProcessChanges();
    void failedChangesChangeNothing();

private:
    QString path() const
    {
        return m_directory->filePath(QStringLiteral("tvcore.db"));
    }

    std::unique_ptr<QTemporaryDir> m_directory;
};

void TestScanConfig::init()
{
    TvCore::setDirectory(QStringLiteral("/nonexistent"));
    m_directory = std::make_unique<QTemporaryDir>();
    TvCore::setDirectory(m_directory->path());
}

void TestScanConfig::emptyStoreHasDefaults()
{
    ScanConfig config;
    QVERIFY(isEqual(config.getScanSetting(), ScanSetting()));
    for (int list = 0; list < 3; ++list) {
        QVERIFY(config.getExcludeList(list).isEmpty());
    }
}

void TestScanConfig::keepsEverySetting()
{
    ScanConfig config;
    QVERIFY(config.setScanSetting(everythingChanged()));
    // From the file, and not from memory.
    TvCore::setDirectory(m_directory->path());
    QVERIFY(isEqual(ScanConfig().getScanSetting(), everythingChanged()));
    QVERIFY(config.setScanSetting(ScanSetting()));
    TvCore::setDirectory(m_directory->path());
    QVERIFY(isEqual(config.getScanSetting(), ScanSetting()));
}

void TestScanConfig::aSettingNeverStoredHasItsDefault()
{
    ScanConfig config;
    QVERIFY(config.setScanSetting(everythingChanged()));
    QVERIFY(RawDatabase(path()).run(QStringLiteral("DELETE FROM setting WHERE name = 'scan.pdf_files'")));
    TvCore::setDirectory(m_directory->path());
    ScanSetting expected = everythingChanged();
    expected.setScanPDFFilesEnabled(true);
    QVERIFY(isEqual(config.getScanSetting(), expected));
}

void TestScanConfig::keepsWhatItReadLastOfALostTable()
{
    ScanConfig config;
    QVERIFY(config.setScanSetting(everythingChanged()));
    QVERIFY(config.setExcludeList(0, {QStringLiteral("/home/u/x")}));
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("DROP TABLE exclude_entry")));
        QVERIFY(other.run(QStringLiteral("DROP TABLE exclude_list")));
        QVERIFY(other.run(QStringLiteral("DROP TABLE setting")));
    }
    // Before anything is read: a store that could not be read is not opened again at once.
    QVERIFY(!config.setScanSetting(ScanSetting()));
    QVERIFY(!config.changeScanSetting([](ScanSetting& setting) { setting.setScanActionSetting(1); }));
    QVERIFY(!config.setExcludeList(0, {}));
    QVERIFY(isEqual(config.getScanSetting(), everythingChanged()));
    QCOMPARE(config.getExcludeList(0), QSet<QString>({QStringLiteral("/home/u/x")}));
}

void TestScanConfig::keepsListsApart()
{
    ScanConfig config;
    QVERIFY(config.setExcludeList(0, {QStringLiteral("/home/u/x.bin"), QStringLiteral("/home/u/X.bin")}));
    QVERIFY(config.setExcludeList(1, {QStringLiteral("/srv")}));
    QVERIFY(config.setExcludeList(2, {QStringLiteral("third")}));
    QVERIFY(config.setExcludeList(1, {QStringLiteral("/opt"), QStringLiteral("/var")}));
    TvCore::setDirectory(m_directory->path());
    QCOMPARE(config.getExcludeList(0),
             QSet<QString>({QStringLiteral("/home/u/x.bin"), QStringLiteral("/home/u/X.bin")}));
    QCOMPARE(config.getExcludeList(1), QSet<QString>({QStringLiteral("/opt"), QStringLiteral("/var")}));
    QCOMPARE(config.getExcludeList(2), QSet<QString>({QStringLiteral("third")}));
}

void TestScanConfig::keepsAListMadeEmpty()
{
    ScanConfig config;
    QVERIFY(config.setExcludeList(0, {QStringLiteral("/home/u/x")}));
    QCOMPARE(config.getExcludeList(0).size(), 1);
    QVERIFY(RawDatabase(path()).run(QStringLiteral("DELETE FROM exclude_entry")));
    QVERIFY(config.getExcludeList(0).isEmpty());
}

void TestScanConfig::refusesOtherLists_data()
{
    QTest::addColumn<int>("list");
    QTest::newRow("below") << -1;
    QTest::newRow("above") << 3;
}

void TestScanConfig::refusesOtherLists()
{
    QFETCH(int, list);
    ScanConfig config;
    QVERIFY(!config.setExcludeList(list, {QStringLiteral("/home/u/x")}));
    QVERIFY(config.getExcludeList(list).isEmpty());
}

void TestScanConfig::keepsNamesToTheByte_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty") << QString();
    QTest::newRow("newline") << QStringLiteral("/home/a\nb");
    QTest::newRow("quote") << QStringLiteral("/home/a'; DROP TABLE setting; --");
    QTest::newRow("percent") << QStringLiteral("/home/%1 %s");
    QTest::newRow("beyond the basic plane") << QString::fromUtf8("/home/\xF0\x9F\x98\x80");
    QTest::newRow("leading U+FEFF") << QString(QChar(0xFEFF)) + QStringLiteral("name");
    QTest::newRow("byte that is no UTF-8")
        << QStringLiteral("/home/a") + QChar(0xDCFF) + QStringLiteral("bc");
    QTest::newRow("many such bytes") << QStringLiteral("/") + QChar(0xDC80) + QChar(0xDCC3) + QChar(0xDCFF);
}

void TestScanConfig::keepsNamesToTheByte()
{
    QFETCH(QString, name);
    ScanConfig config;
    QVERIFY(config.setExcludeList(0, {name}));
    TvCore::setDirectory(m_directory->path());
    QCOMPARE(config.getExcludeList(0), QSet<QString>({name}));
}

void TestScanConfig::seesWhatAnotherProcessWroteOnTheNextCall()
{
    ScanConfig config;
    QVERIFY(config.setScanSetting(ScanSetting()));
    RawDatabase other(path());
    for (int action = 0; action < 10; ++action) {
        QVERIFY(other.run(
            QStringLiteral("UPDATE setting SET value = %1 WHERE name = 'scan.action'").arg(action)));
        QCOMPARE(config.getScanSetting().getScanActionSetting(), action);
    }
}

void TestScanConfig::twoProcessesWriteAndReadAtOnce()
{
    ScanConfig config;
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--write"), m_directory->path()});
    int lastAction = 0;
    int ownWrites = 0;
    while (!other.waitForFinished(1)) {
        const int action = config.getScanSetting().getScanActionSetting();
        QVERIFY2(action >= lastAction, "an older value came back");
        lastAction = action;
        const int size = config.getExcludeList(0).size();
        QVERIFY2(size == 0 || size == 20, "a list was seen half changed");
        QVERIFY(config.setExcludeList(1, wholeList(++ownWrites)));
    }
    QCOMPARE(other.exitStatus(), QProcess::NormalExit);
    QCOMPARE(other.exitCode(), 0);
    QVERIFY(ownWrites > 1);
    QCOMPARE(config.getScanSetting().getScanActionSetting(), roundCount);
    QCOMPARE(config.getExcludeList(0), wholeList(roundCount));
    QCOMPARE(config.getExcludeList(1), wholeList(ownWrites));
}

void TestScanConfig::answersWhatItReadLastWhileLocked()
{
    ScanConfig config;
    ScanSetting reportOnly;
    reportOnly.setScanActionSetting(0);
    QVERIFY(config.setScanSetting(reportOnly));
    QVERIFY(config.setExcludeList(0, {QStringLiteral("/home/u/x")}));
    {
        // Another store takes its place, and nobody can look into that one.
        const QString otherPath = m_directory->filePath(QStringLiteral("other.db"));
        RawDatabase other(otherPath);
        QVERIFY(other.lockOut());
        QVERIFY(QFile::remove(path()));
        QVERIFY(QFile::rename(otherPath, path()));
        QCOMPARE(config.getScanSetting().getScanActionSetting(), 0);
        QCOMPARE(config.getExcludeList(0), QSet<QString>({QStringLiteral("/home/u/x")}));
    }
    QVERIFY(QDir(m_directory->path()).entryList({QStringLiteral("*corrupt*")}).isEmpty());
    QVERIFY(config.setScanSetting(everythingChanged()));
    QVERIFY(isEqual(config.getScanSetting(), everythingChanged()));
}

void TestScanConfig::answersDefaultsWhenNothingWasEverRead()
{
    // A directory in its place stops root as well.
    QVERIFY(QDir().mkdir(path()));
    ScanConfig config;
    QVERIFY(isEqual(config.getScanSetting(), ScanSetting()));
    QVERIFY(config.getExcludeList(0).isEmpty());
    QVERIFY(!config.setScanSetting(everythingChanged()));
    QVERIFY(isEqual(config.getScanSetting(), ScanSetting()));
    QVERIFY(QDir(path()).exists());
}

void TestScanConfig::answersWhatItReadLastFromADamagedStore()
{
    ScanConfig config;
    QVERIFY(config.setScanSetting(everythingChanged()));
    QVERIFY(config.setExcludeList(2, {QStringLiteral("third")}));
    QFile garbage(m_directory->filePath(QStringLiteral("garbage")));
    QVERIFY(garbage.open(QFile::WriteOnly));
    garbage.write(QByteArray(10000, 'x'));
    garbage.close();
    QVERIFY(QFile::remove(path()));
    QVERIFY(garbage.rename(path()));
    QVERIFY(isEqual(config.getScanSetting(), everythingChanged()));
    QCOMPARE(config.getExcludeList(2), QSet<QString>({QStringLiteral("third")}));
    QCOMPARE(QDir(m_directory->path()).entryList({QStringLiteral("tvcore.db.corrupt-*")}).size(), 1);
    // Started anew, it takes new values.
    QVERIFY(config.setScanSetting(ScanSetting()));
    QVERIFY(isEqual(config.getScanSetting(), ScanSetting()));
}

void TestScanConfig::failedWritesChangeNothing()
{
    ScanConfig config;
    QVERIFY(config.setScanSetting(everythingChanged()));
    QVERIFY(config.setExcludeList(0, wholeList(1)));
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        QVERIFY(!config.setScanSetting(ScanSetting()));
        QVERIFY(isEqual(config.getScanSetting(), everythingChanged()));
    }
    // A list that fails in the middle leaves the old one whole.
    RawDatabase other(path());
    QVERIFY(
        other.run(QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON exclude_entry WHEN new.path LIKE "
                                 "'%/7' BEGIN SELECT RAISE(ABORT, 'no'); END")));
    QVERIFY(!config.setExcludeList(0, wholeList(2)));
    QCOMPARE(config.getExcludeList(0), wholeList(1));
}

void TestScanConfig::changesWhatIsStored()
{
    const QString notUtf8 = QStringLiteral("/c") + QChar(0xDC80);
    ScanConfig config;
    QVERIFY(config.setScanSetting(everythingChanged()));
    QVERIFY(config.setExcludeList(0, {QStringLiteral("/a"), QStringLiteral("/b")}));
    // From the file, and not from memory.
    TvCore::setDirectory(m_directory->path());
    QVERIFY(config.changeScanSetting([](ScanSetting& setting) { setting.setScanPDFFilesEnabled(true); }));
    QVERIFY(config.changeExcludeList(0, [&notUtf8](QSet<QString>& paths) {
        paths.remove(QStringLiteral("/a"));
        paths.insert(notUtf8);
    }));
    // A list that nobody ever set.
    QVERIFY(config.changeExcludeList(1, [](QSet<QString>& paths) { paths.insert(QStringLiteral("/d")); }));
    QVERIFY(!config.changeExcludeList(3, [](QSet<QString>&) {}));
    TvCore::setDirectory(m_directory->path());
    ScanSetting expected = everythingChanged();
    expected.setScanPDFFilesEnabled(true);
    QVERIFY(isEqual(config.getScanSetting(), expected));
    QCOMPARE(config.getExcludeList(0), QSet<QString>({QStringLiteral("/b"), notUtf8}));
    QCOMPARE(config.getExcludeList(1), QSet<QString>({QStringLiteral("/d")}));
}

void TestScanConfig::losesNothingThatAnotherProcessChanges()
{
    ScanConfig config;
    QVERIFY(config.setScanSetting(ScanSetting()));
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--change"), m_directory->path()});
    QVERIFY(other.waitForStarted());
    for (int i = 0; i < roundCount; ++i) {
        const QString path = QStringLiteral("/own/%1").arg(i);
        QVERIFY(config.changeExcludeList(0, [&path](QSet<QString>& paths) { paths.insert(path); }));
        QVERIFY(config.changeScanSetting(
            [i](ScanSetting& setting) { setting.setScanPDFFilesEnabled(i % 2 == 0); }));
    }
    QVERIFY(other.waitForFinished());
    QCOMPARE(other.exitStatus(), QProcess::NormalExit);
    QCOMPARE(other.exitCode(), 0);
    QCOMPARE(config.getExcludeList(0).size(), 2 * roundCount);
    QCOMPARE(config.getScanSetting().getScanActionSetting(), roundCount - 1);
    QVERIFY(!config.getScanSetting().isScanPDFFilesEnabled());
}

void TestScanConfig::failedChangesChangeNothing()
{
    ScanConfig config;
    QVERIFY(config.setScanSetting(everythingChanged()));
    QVERIFY(config.setExcludeList(0, wholeList(1)));
    {
        RawDatabase other(path());
        QVERIFY(other.run(QStringLiteral("BEGIN IMMEDIATE")));
        int calls = 0;
        QVERIFY(!config.changeScanSetting([&calls](ScanSetting&) { ++calls; }));
        QVERIFY(!config.changeExcludeList(0, [&calls](QSet<QString>&) { ++calls; }));
        QCOMPARE(calls, 0);
    }
    RawDatabase other(path());
    QVERIFY(
        other.run(QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON exclude_entry WHEN new.path LIKE "
                                 "'%/7' BEGIN SELECT RAISE(ABORT, 'no'); END")));
    QVERIFY(!config.changeExcludeList(0, [](QSet<QString>& paths) { paths = wholeList(2); }));
    QCOMPARE(config.getExcludeList(0), wholeList(1));
    QVERIFY(isEqual(config.getScanSetting(), everythingChanged()));
}

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--write") == 0) {
        return writeInAnotherProcess(QString::fromLocal8Bit(argv[2]));
    }
    if (argc == 3 && qstrcmp(argv[1], "--change") == 0) {
        return changeInAnotherProcess(QString::fromLocal8Bit(argv[2]));
    }
    TestScanConfig test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_scanconfig.moc"
