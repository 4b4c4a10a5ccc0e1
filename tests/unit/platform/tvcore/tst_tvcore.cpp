#include "platform/tvcore/tvcore.h"

#include "common/common.h"
#include "platform/tvcore/protectionconfig.h"
#include "platform/tvcore/scanconfig.h"
#include "platform/tvcore/virusconfig.h"
#include "rawdatabase.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace
{
/// The other process: uses every store, and goes on after the application object has gone, as a forgotten
/// singleton would.
int outliveTheApplication(int argc, char* argv[])
{
    ProtectionConfig protection;
    VirusConfig virus;
    ScanConfig scan;
    // Nothing can be opened yet; the answers come nevertheless.
    if (!protection.isOnlineProtectionEnabled() || protection.setOnlineProtectionEnabled(false)) {
        return 1;
    }
    {
        const QCoreApplication application(argc, argv);
        TvCore::setDirectory(QString::fromLocal8Bit(argv[2]));
        if (!protection.setOnlineProtectionEnabled(false) || !virus.addVirusReport(VirusReport()) ||
            !scan.getExcludeList(0).isEmpty()) {
            return 2;
        }
    }
    if (protection.isOnlineProtectionEnabled() || protection.setOnlineProtectionEnabled(true) ||
        virus.addVirusReport(VirusReport())) {
        return 3;
    }
    {
        const QCoreApplication application(argc, argv);
        if (protection.isOnlineProtectionEnabled() || !protection.setOnlineProtectionEnabled(true) ||
            virus.getVirusReportCount({}, {}) != 1 || !virus.addVirusReport(VirusReport())) {
            return 4;
        }
    }
    return 0;
}
} // namespace

class TestTvCore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void liesInTheSettingsDirectoryByDefault();
    void worksOnAnotherDirectory();
    void forgetsTheOldDirectory();
    void doesNotCreateADirectoryThatWasSet();
    void closesWithTheApplication();
    void tellsWhetherSettingsCouldBeRead();
};

void TestTvCore::liesInTheSettingsDirectoryByDefault()
{
    QDir(Common::getSettingsPath()).removeRecursively();
    ProtectionConfig config;
    QVERIFY(config.isOnlineProtectionEnabled());
    QVERIFY(QFile::exists(Common::getSettingsPath() + QStringLiteral("/tvcore.db")));
    QVERIFY2(!QFile::exists(Common::getSettingsPath() + QStringLiteral("/reports.db")),
             "opened without need");
    QDir(Common::getSettingsPath()).removeRecursively();
    QVERIFY(config.setOnlineProtectionEnabled(false));
    QVERIFY(QFile::exists(Common::getSettingsPath() + QStringLiteral("/tvcore.db")));
    QDir(Common::getSettingsPath()).removeRecursively();
}

void TestTvCore::worksOnAnotherDirectory()
{
    const QTemporaryDir directory;
    TvCore::setDirectory(directory.path());
    QVERIFY(ProtectionConfig().setOnlineProtectionEnabled(false));
    QVERIFY(VirusConfig().addVirusReport(VirusReport()));
    QVERIFY(QFile::exists(directory.filePath(QStringLiteral("tvcore.db"))));
    QVERIFY(QFile::exists(directory.filePath(QStringLiteral("reports.db"))));
    // And back again.
    TvCore::setDirectory(QString());
    QVERIFY(ProtectionConfig().isOnlineProtectionEnabled());
    QVERIFY(QFile::exists(Common::getSettingsPath() + QStringLiteral("/tvcore.db")));
    QDir(Common::getSettingsPath()).removeRecursively();
}

void TestTvCore::forgetsTheOldDirectory()
{
    const QTemporaryDir one;
    const QTemporaryDir other;
    TvCore::setDirectory(one.path());
    QVERIFY(ProtectionConfig().setOnlineProtectionEnabled(false));
    QVERIFY(ScanConfig().setExcludeList(0, {QStringLiteral("/home/u/x")}));
    TvCore::setDirectory(other.path());
    QVERIFY(ProtectionConfig().isOnlineProtectionEnabled());
    QVERIFY(ScanConfig().getExcludeList(0).isEmpty());
    TvCore::setDirectory(one.path());
    QVERIFY(!ProtectionConfig().isOnlineProtectionEnabled());
}

void TestTvCore::doesNotCreateADirectoryThatWasSet()
{
    const QTemporaryDir directory;
    const QString missing = directory.filePath(QStringLiteral("mistyped"));
    TvCore::setDirectory(missing);
    QVERIFY(!ProtectionConfig().setOnlineProtectionEnabled(false));
    QVERIFY(!QFile::exists(missing));
}

void TestTvCore::closesWithTheApplication()
{
    const QTemporaryDir directory;
    QProcess other;
    other.setProcessChannelMode(QProcess::MergedChannels);
    other.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--outlive"), directory.path()});
    QVERIFY(other.waitForFinished());
    const QByteArray output = other.readAll();
    QCOMPARE(other.exitStatus(), QProcess::NormalExit);
    QCOMPARE(other.exitCode(), 0);
    QVERIFY2(!output.contains("QSql") && !output.contains("QObject"), output.constData());
    // Closed in order, a store has nothing beside it.
    QCOMPARE(QDir(directory.path()).entryList(QDir::Files, QDir::Name),
             QStringList({QStringLiteral("reports.db"), QStringLiteral("tvcore.db")}));
    // What was refused after the first application object had gone was stored in the time of the second.
    RawDatabase reports(directory.filePath(QStringLiteral("reports.db")));
    QCOMPARE(reports.value(QStringLiteral("SELECT count(*) FROM virus_report")).toInt(), 3);
}

void TestTvCore::tellsWhetherSettingsCouldBeRead()
{
    const QTemporaryDir directory;
    TvCore::setDirectory(directory.path());
    QVERIFY(TvCore::couldReadSettings());
    QVERIFY(ProtectionConfig().isOnlineProtectionEnabled());
    QVERIFY(TvCore::couldReadSettings());
    TvCore::setDirectory(directory.path());
    {
        RawDatabase other(directory.filePath(QStringLiteral("tvcore.db")));
        QVERIFY(other.lockOut());
        ScanConfig().getScanSetting();
        QVERIFY(!TvCore::couldReadSettings());
    }
    ScanConfig().getExcludeList(0);
    QVERIFY(TvCore::couldReadSettings());
    // Another directory, another start.
    TvCore::setDirectory(QStringLiteral("/nonexistent"));
    ScanConfig().getExcludeList(0);
    QVERIFY(!TvCore::couldReadSettings());
    TvCore::setDirectory(directory.path());
    QVERIFY(TvCore::couldReadSettings());
}

int main(int argc, char* argv[])
{
    if (argc == 3 && qstrcmp(argv[1], "--outlive") == 0) {
        return outliveTheApplication(argc, argv);
    }
    const QCoreApplication application(argc, argv);
    TestTvCore test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_tvcore.moc"
