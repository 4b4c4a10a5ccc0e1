#include "scan/cscanfile.h"

#include "common/common.h"
#include "scan/scansettings.h"
#include "support/fakeclamav.h"
#include "support/logreader.h"
#include "support/standarderror.h"
#include "support/testsignatures.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QTest>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using Setter = void (ScanSettings::*)(bool);
Q_DECLARE_METATYPE(Setter)

namespace
{
const LogLine initialized = {"TRACE", "CScanFile::initEngine", "Successfully Scan Engine Initialize."};
const LogLine compiled = {"TRACE", "CScanFile::loadDatabases", "Successfully Compiled Engine."};

LogLine failure(const char* operation, int code, const QByteArray& message)
{
    return {"ERROR", QByteArray("CScanFile::") + operation, errorCode(code) + message};
}

LogLine loadFailure(int code, const char* name, int result)
{
    return failure("loadDatabases", code,
                   QByteArray("Failed to load database. Path: ") + name +
                       " Error: " + QByteArray::number(result));
}
} // namespace

/// The engine's states, its log lines and what it asks of libclamav. What it finds: see
/// tst_cscanfile_detection.
class TestCScanFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startsWithoutEngineAndDatabases();
    void swallowsWhatTheLibraryPrints();
    void isOneObjectUntilReleased();

    void initializesTheEngine();
    void switchesTheScanCacheOff_data();
    void switchesTheScanCacheOff();
    void tellsThatTheLibraryCannotBeInitialized();
    void tellsThatNoEngineCanBeMade();
    void canBeInitializedAfterAFailure();
    void scansNothingWhenASecondEngineCannotBeMade();
    void compilesNothingWhenASecondEngineCannotBeMade();

    void releasesTheEngineOnce();
    void tellsThatThereIsNothingToRelease();
    void keepsAnEngineThatCannotBeReleased();
    void releasesTheEngineWithTheInstance();

    void loadsInNameOrderIgnoringCase();
    void loadsWhatTheDirectoryListingHolds();
    void loadsNothingElse();
    void passesFullPathEngineAndOptions();
    void isLoadingWhileItLoads();
    void compilesWithoutDatabases_data();
    void compilesWithoutDatabases();
    void makesTheEngineItNeeds();
    void changesNoFlagWhenTheEngineCannotBeMade_data();
    void changesNoFlagWhenTheEngineCannotBeMade();
    void stopsAtTheFirstDatabaseThatFails();
    void stopsAtTheFirstDatabaseThatFailsToLoadWithAnyCode();
    void answersZeroOnAnEngineWhoseLoadFailed();
    void tellsThatTheEngineCannotBeCompiled();
    void loadsAgainIntoTheSameEngineAfterAFailure();
    void refusesDatabasesOnACompiledEngine();
    void takesACompiledEngineAsItIsWithoutDatabases();

    void reloadsWithAFreshEngine();
    void reloadsNothingWhenTheEngineCannotBeReleased();
    void reloadsNothingWithoutAnEngine();
    void keepsTheLoadedFlagUntilTheNewLoadBegins();
    void recoversByAReload_data();
    void recoversByAReload();

    void asksForWhatTheSettingsSay_data();
    void asksForWhatTheSettingsSay();
    void asksForEverythingAtOnce();
    void handsBackTheResult_data();
    void handsBackTheResult();
    void isNotCleanWhatCouldNotBeRead_data();
    void isNotCleanWhatCouldNotBeRead();
    void triesNothingAgainThatTakesLong();
    void scansNothingWithoutAnEngine_data();
    void scansNothingWithoutAnEngine();

    void scansADescriptorOfItsOwn();
    void leavesNoDescriptorBehind();
    void mapsAsManyBytesAsTheTextHasUnits_data();
    void mapsAsManyBytesAsTheTextHasUnits();
    void closesTheMapWhateverTheResult_data();
    void closesTheMapWhateverTheResult();
    void answersAnErrorWhenTheTextCannotBeMapped();

private:
    static void put(const QString& name, const QByteArray& content)
    {
        QFile file(Common::getDbPath() + QLatin1Char('/') + name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), qint64(content.size()));
    }
    static QVector<QByteArray> loadedNames()
    {
        QVector<QByteArray> names;
        for (const FakeClamav::Load& load : FakeClamav::loads) {
            names.append(load.path.mid(load.path.lastIndexOf('/') + 1));
        }
        return names;
    }
    static int scanEicar(QString& virusName)
    {
        return CScanFile::getInstance()->scanUrl(QString::fromLatin1(TestSignatures::eicar()), virusName);
    }
    static int scanEicar()
    {
        QString virusName;
        return scanEicar(virusName);
    }

    QTemporaryDir m_directory;
};

void TestCScanFile::init()
{
    QVERIFY(TestSignatures::removeAll());
    FakeClamav::reset();
    CScanFile::getInstance();
}

void TestCScanFile::cleanup()
{
    FakeClamav::failures.clear();
    FakeClamav::onCall = nullptr;
    CScanFile::releaseInstance();
    ScanSettings::releaseInstance();
    QCOMPARE(FakeClamav::deadEngineCalls, 0);
    QCOMPARE(FakeClamav::openMaps, 0);
    QVERIFY(FakeClamav::engines.isEmpty());
    QVERIFY(TestSignatures::removeAll());
}

void TestCScanFile::startsWithoutEngineAndDatabases()
{
    QVERIFY(!CScanFile::getInstance()->isDBLoaded());
    QVERIFY(!CScanFile::getInstance()->isDBLoading());
    QVERIFY(FakeClamav::calls.isEmpty());
    QVERIFY(FakeClamav::messageCallback == &CScanFile::clcb_msg_fn);
}

void TestCScanFile::swallowsWhatTheLibraryPrints()
{
    put(QStringLiteral("broken.cvd"), "no database");
    StandardError standardError;
    QVERIFY(!CScanFile::getInstance()->loadDatabases());
    CScanFile::clcb_msg_fn(CL_MSG_ERROR, "full", "message", nullptr);
    QCOMPARE(standardError.text(), QByteArray());
}

void TestCScanFile::isOneObjectUntilReleased()
{
    CScanFile* const first = CScanFile::getInstance();
    QCOMPARE(CScanFile::getInstance(), first);
    QVERIFY(first->loadDatabases());
    CScanFile::releaseInstance();
    LogReader log;
    // Nothing to release is no error.
    CScanFile::releaseInstance();
    QCOMPARE(log.takeNew(), {});
    QVERIFY(!CScanFile::getInstance()->isDBLoaded());
}

void TestCScanFile::initializesTheEngine()
{
    LogReader log;
    QVERIFY(CScanFile::getInstance()->initEngine());
    QCOMPARE(FakeClamav::calls, QVector<QByteArray>({"cl_init", "cl_engine_new", "cl_engine_set_num"}));
    QCOMPARE(FakeClamav::initFlags, QVector<unsigned>({0}));
    QCOMPARE(log.takeNew(), {initialized});
    QVERIFY(!CScanFile::getInstance()->isDBLoaded());
    QVERIFY(!CScanFile::getInstance()->isDBLoading());
}

void TestCScanFile::switchesTheScanCacheOff_data()
{
    QTest::addColumn<bool>("refused");
    QTest::newRow("accepted") << false;
    QTest::newRow("refused, which nobody looks at") << true;
}

void TestCScanFile::switchesTheScanCacheOff()
{
    QFETCH(bool, refused);
    if (refused) {
        FakeClamav::failures.insert("cl_engine_set_num", {CL_EARG, EINVAL});
    }
    QVERIFY(CScanFile::getInstance()->initEngine());
    QCOMPARE(FakeClamav::numbers.size(), 1);
    QCOMPARE(FakeClamav::numbers.constFirst().engine, FakeClamav::engines.constFirst());
    QCOMPARE(FakeClamav::numbers.constFirst().field, static_cast<int>(CL_ENGINE_DISABLE_CACHE));
    QCOMPARE(FakeClamav::numbers.constFirst().value, 1LL);
}

void TestCScanFile::tellsThatTheLibraryCannotBeInitialized()
{
    FakeClamav::failures.insert("cl_init", {CL_EARG, EACCES});
    LogReader log;
    QVERIFY(!CScanFile::getInstance()->initEngine());
    QCOMPARE(log.takeNew(), {failure("initEngine", EACCES, "Failed to init scan engine!")});
    QCOMPARE(FakeClamav::calls, QVector<QByteArray>({"cl_init"}));
    // No engine is ready.
    QCOMPARE(scanEicar(), 2);
}

void TestCScanFile::tellsThatNoEngineCanBeMade()
{
    FakeClamav::failures.insert("cl_engine_new", {0, ENOMEM});
    LogReader log;
    QVERIFY(!CScanFile::getInstance()->initEngine());
    QCOMPARE(log.takeNew(), {failure("initEngine", ENOMEM, "Failed to create scan engine!")});
    QCOMPARE(FakeClamav::calls, QVector<QByteArray>({"cl_init", "cl_engine_new"}));
    QCOMPARE(scanEicar(), 2);
    QVERIFY(!CScanFile::getInstance()->releaseEngine());
}

void TestCScanFile::canBeInitializedAfterAFailure()
{
    FakeClamav::failures.insert("cl_engine_new", {0, ENOMEM});
    QVERIFY(!CScanFile::getInstance()->initEngine());
    FakeClamav::failures.clear();
    QVERIFY(CScanFile::getInstance()->initEngine());
}

void TestCScanFile::scansNothingWhenASecondEngineCannotBeMade()
{
    QVERIFY(CScanFile::getInstance()->initEngine());
    FakeClamav::failures.insert("cl_engine_new", {0, ENOMEM});
    cl_engine* const first = FakeClamav::engines.constFirst();
    QVERIFY(!CScanFile::getInstance()->initEngine());
    QCOMPARE(scanEicar(), 2);
    QString virusName;
    QCOMPARE(CScanFile::getInstance()->scanFile(QStringLiteral("/etc/passwd"), virusName), 2);
    QCOMPARE(FakeClamav::deadEngineCalls, 0);
    // The first engine is out of reach now.
    QCOMPARE(cl_engine_free(first), CL_SUCCESS);
    // Its handle is gone, but an engine counts as ready: the library refuses to free nothing.
    QVERIFY(!CScanFile::getInstance()->releaseEngine());
}

void TestCScanFile::compilesNothingWhenASecondEngineCannotBeMade()
{
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    cl_engine* const first = FakeClamav::engines.constFirst();
    FakeClamav::failures.insert("cl_engine_new", {0, ENOMEM});
    QVERIFY(!CScanFile::getInstance()->initEngine());
    // That the first one was compiled counts for nothing.
    QVERIFY(!CScanFile::getInstance()->loadDatabases());
    QVERIFY(!CScanFile::getInstance()->isDBLoaded());
    QCOMPARE(cl_engine_free(first), CL_SUCCESS);
}

void TestCScanFile::releasesTheEngineOnce()
{
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    LogReader log;
    QVERIFY(CScanFile::getInstance()->releaseEngine());
    QCOMPARE(log.takeNew(), {});
    QVERIFY(FakeClamav::engines.isEmpty());
    // The flags are those of the last load.
    QVERIFY(CScanFile::getInstance()->isDBLoaded());
    QVERIFY(!CScanFile::getInstance()->isDBLoading());

    FakeClamav::calls.clear();
    errno = EBUSY;
    QVERIFY(!CScanFile::getInstance()->releaseEngine());
    QVERIFY(FakeClamav::calls.isEmpty());
    QCOMPARE(log.takeNew(), {failure("releaseEngine", EBUSY, "Failed to release engine!")});
}

void TestCScanFile::tellsThatThereIsNothingToRelease()
{
    LogReader log;
    errno = ENOTTY;
    QVERIFY(!CScanFile::getInstance()->releaseEngine());
    QCOMPARE(log.takeNew(), {failure("releaseEngine", ENOTTY, "Failed to release engine!")});
    QVERIFY(FakeClamav::calls.isEmpty());
}

void TestCScanFile::keepsAnEngineThatCannotBeReleased()
{
    QVERIFY(CScanFile::getInstance()->initEngine());
    FakeClamav::failures.insert("cl_engine_free", {CL_ENULLARG, EPERM});
    LogReader log;
    QVERIFY(!CScanFile::getInstance()->releaseEngine());
    QCOMPARE(log.takeNew(), {failure("releaseEngine", EPERM, "Failed to release engine!")});
    // Still ready: the next scan goes to it, and no other is made.
    QCOMPARE(scanEicar(), 0);
    QCOMPARE(FakeClamav::scans.constLast().engine, FakeClamav::engines.constFirst());
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QCOMPARE(FakeClamav::engines.size(), 1);
    FakeClamav::failures.clear();
    QVERIFY(CScanFile::getInstance()->releaseEngine());
}

void TestCScanFile::releasesTheEngineWithTheInstance()
{
    QVERIFY(CScanFile::getInstance()->initEngine());
    LogReader log;
    CScanFile::releaseInstance();
    QVERIFY(FakeClamav::engines.isEmpty());
    QCOMPARE(log.takeNew(), {});

    CScanFile::getInstance();
    errno = EAGAIN;
    CScanFile::releaseInstance();
    QCOMPARE(log.takeNew(), {failure("releaseEngine", EAGAIN, "Failed to release engine!")});
}

void TestCScanFile::loadsInNameOrderIgnoringCase()
{
    for (const char* name : {"c.cvd", "a.cvd", "D.cvd", "B.CVD", "e10.cvd", "e9.cvd"}) {
        put(QString::fromLatin1(name), "not looked at");
    }
    FakeClamav::failures.insert("cl_load", {CL_SUCCESS, 0});
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QCOMPARE(loadedNames(), QVector<QByteArray>({"a.cvd", "B.CVD", "c.cvd", "D.cvd", "e10.cvd", "e9.cvd"}));
}

void TestCScanFile::loadsWhatTheDirectoryListingHolds()
{
    const QString directory = Common::getDbPath();
    put(QStringLiteral("b.cvd"), "not looked at");
    QVERIFY(QDir(directory).mkdir(QStringLiteral("a.cvd")));
    QVERIFY(QFile::link(directory + QStringLiteral("/b.cvd"), directory + QStringLiteral("/c.cvd")));
    // Neither hidden files nor what is called a system file: a link that leads nowhere, a FIFO.
    put(QStringLiteral(".d.cvd"), "not looked at");
    QVERIFY(QFile::link(directory + QStringLiteral("/nowhere"), directory + QStringLiteral("/e.cvd")));
    QCOMPARE(::mkfifo(QFile::encodeName(directory + QStringLiteral("/f.cvd")).constData(), 0600), 0);
    FakeClamav::failures.insert("cl_load", {CL_SUCCESS, 0});
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QCOMPARE(loadedNames(), QVector<QByteArray>({"a.cvd", "b.cvd", "c.cvd"}));
}

void TestCScanFile::loadsNothingElse()
{
    for (const char* name :
         {"daily.cld", "local.ndb", "x.cvd.bak", "xcvd", "x.cv", "daily.cdiff", "main.hdb"}) {
        put(QString::fromLatin1(name), "not looked at");
    }
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("test.cvd")));
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QCOMPARE(loadedNames(), QVector<QByteArray>({"test.cvd"}));
}

void TestCScanFile::passesFullPathEngineAndOptions()
{
    put(QString::fromUtf8("\xC3\xBC b%s.cvd"), "not looked at");
    FakeClamav::failures.insert("cl_load", {CL_SUCCESS, 0});
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QCOMPARE(FakeClamav::loads.size(), 1);
    QCOMPARE(FakeClamav::loads.constFirst().path, Common::getDbPath().toUtf8() + "/\xC3\xBC b%s.cvd");
    QCOMPARE(FakeClamav::loads.constFirst().engine, FakeClamav::engines.constFirst());
    QCOMPARE(FakeClamav::loads.constFirst().options, 0x200aU);
}

void TestCScanFile::isLoadingWhileItLoads()
{
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("test.cvd")));
    QVERIFY(CScanFile::getInstance()->initEngine());
    QVector<bool> flags;
    FakeClamav::onCall = [&flags](const QByteArray&) {
        flags << CScanFile::getInstance()->isDBLoading() << CScanFile::getInstance()->isDBLoaded();
    };
    LogReader log;
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    // During the load and during the compilation.
    QCOMPARE(flags, QVector<bool>({true, false, true, false}));
    QVERIFY(!CScanFile::getInstance()->isDBLoading());
    QVERIFY(CScanFile::getInstance()->isDBLoaded());
    QCOMPARE(log.takeNew(), {compiled});
}

void TestCScanFile::compilesWithoutDatabases_data()
{
    QTest::addColumn<bool>("directory");
    QTest::newRow("empty directory") << true;
    QTest::newRow("no directory") << false;
}

void TestCScanFile::compilesWithoutDatabases()
{
    QFETCH(bool, directory);
    if (!directory) {
        QVERIFY(QDir().rmdir(Common::getDbPath()));
    }
    LogReader log;
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QVERIFY(FakeClamav::loads.isEmpty());
    QVERIFY(FakeClamav::calls.contains("cl_engine_compile"));
    QVERIFY(CScanFile::getInstance()->isDBLoaded());
    QCOMPARE(log.takeNew(), QVector<LogLine>({initialized, compiled}));
    QCOMPARE(scanEicar(), 0);
    QVERIFY(QDir(Common::getDbPath()).exists() == directory);
}

void TestCScanFile::makesTheEngineItNeeds()
{
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("test.cvd")));
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QCOMPARE(FakeClamav::calls, QVector<QByteArray>({"cl_init", "cl_engine_new", "cl_engine_set_num",
                                                     "cl_load", "cl_engine_compile"}));
    QString virusName;
    QCOMPARE(scanEicar(virusName), 1);
    QCOMPARE(virusName, QStringLiteral("Eicar-Test-Signature"));
}

void TestCScanFile::changesNoFlagWhenTheEngineCannotBeMade_data()
{
    QTest::addColumn<bool>("loadedBefore");
    QTest::newRow("fresh") << false;
    QTest::newRow("loaded before") << true;
}

void TestCScanFile::changesNoFlagWhenTheEngineCannotBeMade()
{
    QFETCH(bool, loadedBefore);
    CScanFile& scanner = *CScanFile::getInstance();
    if (loadedBefore) {
        QVERIFY(scanner.loadDatabases());
        QVERIFY(scanner.releaseEngine());
    }
    FakeClamav::failures.insert("cl_init", {CL_EARG, EIO});
    LogReader log;
    QVERIFY(!scanner.loadDatabases());
    QCOMPARE(log.takeNew(), {failure("initEngine", EIO, "Failed to init scan engine!")});
    QCOMPARE(scanner.isDBLoaded(), loadedBefore);
    QVERIFY(!scanner.isDBLoading());
}

void TestCScanFile::stopsAtTheFirstDatabaseThatFails()
{
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("a.cvd")));
    put(QStringLiteral("b.cvd"), "no database");
    QVERIFY(TestSignatures::install(QStringLiteral("test-6.cvd"), QStringLiteral("c.cvd")));
    LogReader log;
    QVERIFY(!CScanFile::getInstance()->loadDatabases());
    QCOMPARE(loadedNames(), QVector<QByteArray>({"a.cvd", "b.cvd"}));
    QVERIFY(!FakeClamav::calls.contains("cl_engine_compile"));
    QVERIFY(!FakeClamav::calls.contains("cl_engine_free"));
    QVERIFY(!CScanFile::getInstance()->isDBLoaded());
    QVERIFY(!CScanFile::getInstance()->isDBLoading());
    // The real library's code; which error number it leaves is its own affair.
    QCOMPARE(FakeClamav::loadResults.constFirst(), 0);
    QVERIFY(FakeClamav::loadResults.constLast() != 0);
    const QVector<LogLine> lines = log.takeNew();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.constLast().location, QByteArray("CScanFile::loadDatabases"));
    QVERIFY(lines.constLast().message.endsWith("Failed to load database. Path: b.cvd Error: " +
                                               QByteArray::number(FakeClamav::loadResults.constLast())));
}

void TestCScanFile::stopsAtTheFirstDatabaseThatFailsToLoadWithAnyCode()
{
    put(QString::fromUtf8("\xC3\xA9%d.cvd"), "not looked at");
    FakeClamav::failures.insert("cl_load", {CL_EMEM, EMFILE});
    QVERIFY(CScanFile::getInstance()->initEngine());
    LogReader log;
    QVERIFY(!CScanFile::getInstance()->loadDatabases());
    QCOMPARE(log.takeNew(), {loadFailure(EMFILE, "\xC3\xA9%d.cvd", CL_EMEM)});
}

void TestCScanFile::answersZeroOnAnEngineWhoseLoadFailed()
{
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("a.cvd")));
    put(QStringLiteral("b.cvd"), "no database");
    QVERIFY(!CScanFile::getInstance()->loadDatabases());

    QString virusName = QStringLiteral("as it was");
    QCOMPARE(scanEicar(virusName), 0);
    QTemporaryFile infected;
    QVERIFY(infected.open());
    infected.write(TestSignatures::eicar());
    infected.close();
    QCOMPARE(CScanFile::getInstance()->scanFile(infected.fileName(), virusName), 0);
    QCOMPARE(virusName, QStringLiteral("as it was"));
    // It was asked: nothing is refused here.
    QCOMPARE(FakeClamav::scans.size(), 2);
}

void TestCScanFile::tellsThatTheEngineCannotBeCompiled()
{
    FakeClamav::failures.insert("cl_engine_compile", {CL_EMEM, ENOMEM});
    LogReader log;
    QVERIFY(!CScanFile::getInstance()->loadDatabases());
    const QVector<LogLine> lines = log.takeNew();
    const QByteArray message = "Failed to compile engine. Error: " + QByteArray::number(CL_EMEM);
    QCOMPARE(lines, QVector<LogLine>({initialized, failure("loadDatabases", ENOMEM, message)}));
    QVERIFY(!CScanFile::getInstance()->isDBLoaded());
    QVERIFY(!CScanFile::getInstance()->isDBLoading());
    QCOMPARE(FakeClamav::engines.size(), 1);
}

void TestCScanFile::loadsAgainIntoTheSameEngineAfterAFailure()
{
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("a.cvd")));
    FakeClamav::failures.insert("cl_engine_compile", {CL_EMEM, ENOMEM});
    QVERIFY(!CScanFile::getInstance()->loadDatabases());
    FakeClamav::failures.clear();
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QCOMPARE(loadedNames(), QVector<QByteArray>({"a.cvd", "a.cvd"}));
    QCOMPARE(FakeClamav::loads.at(1).engine, FakeClamav::loads.at(0).engine);
    QCOMPARE(FakeClamav::calls.count("cl_engine_new"), 1);
    QVERIFY(CScanFile::getInstance()->isDBLoaded());
    QCOMPARE(scanEicar(), 1);
}

void TestCScanFile::refusesDatabasesOnACompiledEngine()
{
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("a.cvd")));
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    FakeClamav::calls.clear();
    LogReader log;
    errno = 0;
    QVERIFY(!CScanFile::getInstance()->loadDatabases());
    QCOMPARE(FakeClamav::calls, QVector<QByteArray>({"cl_load"}));
    const QVector<LogLine> lines = log.takeNew();
    QCOMPARE(lines.size(), 1);
    QVERIFY(lines.constFirst().message.endsWith("Failed to load database. Path: a.cvd Error: 3"));
    QVERIFY(!CScanFile::getInstance()->isDBLoaded());
    QVERIFY(!CScanFile::getInstance()->isDBLoading());
    // It still is the engine that was compiled.
    QCOMPARE(scanEicar(), 1);
}

void TestCScanFile::takesACompiledEngineAsItIsWithoutDatabases()
{
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("a.cvd")));
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QVERIFY(TestSignatures::removeAll());
    FakeClamav::calls.clear();
    LogReader log;
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QVERIFY(FakeClamav::calls.isEmpty());
    // The line of the first load, once more.
    QCOMPARE(log.takeNew(), {LogLine({"", "", "Repeated [00001] times."})});
    QVERIFY(CScanFile::getInstance()->isDBLoaded());
    QCOMPARE(scanEicar(), 1);
}

void TestCScanFile::reloadsWithAFreshEngine()
{
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("a.cvd")));
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QCOMPARE(scanEicar(), 1);
    QVERIFY(TestSignatures::removeAll());
    FakeClamav::calls.clear();
    LogReader log;
    QVERIFY(CScanFile::getInstance()->reloadDatabases());
    QCOMPARE(FakeClamav::calls, QVector<QByteArray>({"cl_engine_free", "cl_init", "cl_engine_new",
                                                     "cl_engine_set_num", "cl_engine_compile"}));
    QCOMPARE(log.takeNew(), QVector<LogLine>({initialized, compiled}));
    QCOMPARE(FakeClamav::engines.size(), 1);
    QCOMPARE(scanEicar(), 0);
}

void TestCScanFile::reloadsNothingWhenTheEngineCannotBeReleased()
{
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("a.cvd")));
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    FakeClamav::failures.insert("cl_engine_free", {CL_EARG, EPERM});
    FakeClamav::calls.clear();
    LogReader log;
    QVERIFY(!CScanFile::getInstance()->reloadDatabases());
    QCOMPARE(FakeClamav::calls, QVector<QByteArray>({"cl_engine_free"}));
    QCOMPARE(log.takeNew(), {failure("releaseEngine", EPERM, "Failed to release engine!")});
    QVERIFY(CScanFile::getInstance()->isDBLoaded());
    QCOMPARE(scanEicar(), 1);
}

void TestCScanFile::reloadsNothingWithoutAnEngine()
{
    LogReader log;
    errno = EXDEV;
    QVERIFY(!CScanFile::getInstance()->reloadDatabases());
    QVERIFY(FakeClamav::calls.isEmpty());
    QCOMPARE(log.takeNew(), {failure("releaseEngine", EXDEV, "Failed to release engine!")});
}

void TestCScanFile::keepsTheLoadedFlagUntilTheNewLoadBegins()
{
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QHash<QByteArray, bool> loaded;
    FakeClamav::onCall = [&loaded](const QByteArray& name) {
        loaded[name] = CScanFile::getInstance()->isDBLoaded();
    };
    QVERIFY(CScanFile::getInstance()->reloadDatabases());
    QVERIFY(loaded.value("cl_engine_free"));
    QVERIFY(loaded.value("cl_engine_new"));
    QVERIFY(!loaded.value("cl_engine_compile", true));
}

void TestCScanFile::recoversByAReload_data()
{
    QTest::addColumn<QByteArray>("function");
    QTest::newRow("after a failed load") << QByteArray("cl_load");
    QTest::newRow("after a failed compilation") << QByteArray("cl_engine_compile");
}

void TestCScanFile::recoversByAReload()
{
    QFETCH(QByteArray, function);
    QVERIFY(TestSignatures::install(QStringLiteral("test-5.cvd"), QStringLiteral("a.cvd")));
    FakeClamav::failures.insert(function, {CL_EREAD, EIO});
    QVERIFY(!CScanFile::getInstance()->loadDatabases());
    FakeClamav::failures.clear();
    QVERIFY(CScanFile::getInstance()->reloadDatabases());
    QVERIFY(CScanFile::getInstance()->isDBLoaded());
    QCOMPARE(FakeClamav::engines.size(), 1);
    QCOMPARE(scanEicar(), 1);
}

void TestCScanFile::asksForWhatTheSettingsSay_data()
{
    QTest::addColumn<Setter>("set");
    QTest::addColumn<uint>("general");
    QTest::addColumn<uint>("parse");
    QTest::addColumn<uint>("heuristic");
    QTest::newRow("archives") << &ScanSettings::setScanForArchives << 0x1U << 0x203U << 0U;
    QTest::newRow("heuristics") << &ScanSettings::setScanForHeuristics << 0x9U << 0x202U << 0x2U;
    QTest::newRow("HTML and XML") << &ScanSettings::setScanForHTML_XML << 0x1U << 0x302U << 0U;
    QTest::newRow("documents") << &ScanSettings::setScanForDoc_Xls << 0x1U << 0x2a2U << 0U;
    QTest::newRow("SWF") << &ScanSettings::setScanForSWF << 0x1U << 0x20aU << 0U;
    QTest::newRow("PDF") << &ScanSettings::setScanForPDF << 0x1U << 0x206U << 0U;
    QTest::newRow("memory at start-up") << &ScanSettings::setScanMemoryAtStartup << 0x1U << 0x202U << 0U;
    QTest::newRow("report") << &ScanSettings::setShowReportAfterScan << 0x1U << 0x202U << 0U;
    QTest::newRow("error files") << &ScanSettings::setShowErrorFiles << 0x1U << 0x202U << 0U;
    QTest::newRow("removables") << &ScanSettings::setAutoScanRemovables << 0x1U << 0x202U << 0U;
    QTest::newRow("backup") << &ScanSettings::setTakeBackupOfFiles << 0x1U << 0x202U << 0U;
}

void TestCScanFile::asksForWhatTheSettingsSay()
{
    QFETCH(Setter, set);
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    FakeClamav::answer = FakeClamav::Answer{0, nullptr};
    ScanSettings& settings = *ScanSettings::getInstance();
    QString virusName;
    // Off, on and off again: each on the very next scan of either kind.
    for (const bool on : {false, true, false}) {
        (settings.*set)(on);
        FakeClamav::scans.clear();
        CScanFile::getInstance()->scanFile(QStringLiteral("/proc/self/exe"), virusName);
        CScanFile::getInstance()->scanUrl(QStringLiteral("http://localhost/"), virusName);
        QCOMPARE(FakeClamav::scans.size(), 2);
        for (const FakeClamav::Scan& scan : FakeClamav::scans) {
            if (on) {
                QTEST(scan.options.general, "general");
                QTEST(scan.options.parse, "parse");
                QTEST(scan.options.heuristic, "heuristic");
            } else {
                QCOMPARE(scan.options.general, 0x1U);
                QCOMPARE(scan.options.parse, 0x202U);
                QCOMPARE(scan.options.heuristic, 0U);
            }
            QCOMPARE(scan.options.mail, 0U);
            QCOMPARE(scan.options.dev, 0U);
            QCOMPARE(scan.engine, FakeClamav::engines.constFirst());
        }
    }
}

void TestCScanFile::asksForEverythingAtOnce()
{
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    ScanSettings& settings = *ScanSettings::getInstance();
    settings.setScanForArchives(true);
    settings.setScanForHeuristics(true);
    settings.setScanForHTML_XML(true);
    settings.setScanForDoc_Xls(true);
    settings.setScanForSWF(true);
    settings.setScanForPDF(true);
    QCOMPARE(scanEicar(), 0);
    const cl_scan_options& options = FakeClamav::scans.constFirst().options;
    QCOMPARE(options.general, 0x9U);
    // Never mail (0x40) nor HWP3 (0x10).
    QCOMPARE(options.parse, 0x3afU);
    QCOMPARE(options.heuristic, 0x2U);
    QCOMPARE(options.mail, 0U);
    QCOMPARE(options.dev, 0U);
}

void TestCScanFile::handsBackTheResult_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("expectedName");
    QTest::newRow("clean") << 0 << QByteArray("Not.Used") << "as it was";
    QTest::newRow("infected") << 1 << QByteArray("Win.Worm-\xC3\xA9")
                              << QString::fromUtf8("Win.Worm-\xC3\xA9");
    QTest::newRow("infected, no name") << 1 << QByteArray() << QString();
    for (int code = CL_ENULLARG; code <= CL_ELAST_ERROR; ++code) {
        QTest::addRow("error %d", code) << code << QByteArray("Not.Used") << "as it was";
    }
    QTest::newRow("unknown code") << 4711 << QByteArray("Not.Used") << "as it was";
    QTest::newRow("negative code") << -1 << QByteArray("Not.Used") << "as it was";
}

void TestCScanFile::handsBackTheResult()
{
    QFETCH(int, code);
    QFETCH(QByteArray, name);
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    FakeClamav::answer = FakeClamav::Answer{code, name.isNull() ? nullptr : name.constData()};
    LogReader log;
    QString ofFile = QStringLiteral("as it was");
    QCOMPARE(CScanFile::getInstance()->scanFile(QStringLiteral("/proc/self/exe"), ofFile), code);
    QTEST(ofFile, "expectedName");
    QString ofText = QStringLiteral("as it was");
    QCOMPARE(CScanFile::getInstance()->scanUrl(QStringLiteral("text"), ofText), code);
    QTEST(ofText, "expectedName");
    QCOMPARE(ofFile.isNull(), name.isNull());
    QCOMPARE(ofText.isNull(), name.isNull());
    // Errors of a scan are the caller's to tell.
    QCOMPARE(log.takeNew(), {});
}

void TestCScanFile::isNotCleanWhatCouldNotBeRead_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<int>("times");
    QTest::addColumn<int>("answer");
    QTest::addColumn<int>("result");
    const QByteArray failed("LibClamAV Error: fmap_readpage: pread error: Input/output error\n");
    QTest::newRow("not at all") << QByteArray("LibClamAV Warning: something else\n") << 2 << 0 << 0;
    QTest::newRow("once") << failed << 1 << 0 << 0;
    QTest::newRow("always") << failed << 2 << 0 << 12;
    QTest::newRow("shorter by now")
        << QByteArray(
               "LibClamAV Warning: fmap_readpage: pread fail: asked for 4096 bytes @ offset 0, got 0\n")
        << 2 << 0 << 12;
    QTest::newRow("changed") << QByteArray("LibClamAV Warning: fmap_readpage: file changed as we read it\n")
                             << 2 << 0 << 12;
    QTest::newRow("infected all the same") << failed << 2 << 1 << 1;
    QTest::newRow("another error") << failed << 2 << 20 << 20;
}

void TestCScanFile::isNotCleanWhatCouldNotBeRead()
{
    QFETCH(QByteArray, message);
    QFETCH(int, times);
    QFETCH(int, answer);
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    FakeClamav::answer = FakeClamav::Answer{answer, "Name"};
    int left = times;
    FakeClamav::onCall = [&message, &left](const QByteArray&) {
        if (left > 0) {
            --left;
            CScanFile::clcb_msg_fn(CL_MSG_WARN, message.constData(), message.constData(), nullptr);
        }
    };
    QString virusName;
    QTEST(CScanFile::getInstance()->scanFile(QStringLiteral("/etc/passwd"), virusName), "result");
    // What was noted of one scan says nothing about the next.
    FakeClamav::onCall = nullptr;
    FakeClamav::answer = FakeClamav::Answer{CL_CLEAN, nullptr};
    QCOMPARE(CScanFile::getInstance()->scanFile(QStringLiteral("/etc/passwd"), virusName), 0);
}

void TestCScanFile::triesNothingAgainThatTakesLong()
{
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    FakeClamav::answer = FakeClamav::Answer{CL_CLEAN, nullptr};
    int scans = 0;
    FakeClamav::onCall = [&scans](const QByteArray&) {
        ++scans;
        QTest::qSleep(1100);
        const char* const changed = "LibClamAV Warning: fmap_readpage: file changed as we read it\n";
        CScanFile::clcb_msg_fn(CL_MSG_WARN, changed, changed, nullptr);
    };
    QString virusName;
    QCOMPARE(CScanFile::getInstance()->scanFile(QStringLiteral("/etc/passwd"), virusName), 12);
    QCOMPARE(scans, 1);
}

void TestCScanFile::scansNothingWithoutAnEngine_data()
{
    QTest::addColumn<bool>("freed");
    QTest::newRow("never made") << false;
    QTest::newRow("freed") << true;
}

void TestCScanFile::scansNothingWithoutAnEngine()
{
    QFETCH(bool, freed);
    CScanFile& scanner = *CScanFile::getInstance();
    if (freed) {
        QVERIFY(scanner.loadDatabases());
        QVERIFY(scanner.releaseEngine());
    }
    FakeClamav::calls.clear();
    QString virusName = QStringLiteral("as it was");
    QCOMPARE(scanner.scanFile(QStringLiteral("/proc/self/exe"), virusName), 2);
    QCOMPARE(scanner.scanFile(QStringLiteral("/nowhere"), virusName), 2);
    QCOMPARE(scanner.scanUrl(QStringLiteral("text"), virusName), 2);
    QCOMPARE(virusName, QStringLiteral("as it was"));
    QVERIFY(FakeClamav::calls.isEmpty());
}

void TestCScanFile::scansADescriptorOfItsOwn()
{
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    FakeClamav::answer = FakeClamav::Answer{0, nullptr};
    QString virusName;
    QCOMPARE(CScanFile::getInstance()->scanFile(QStringLiteral("/proc/self/exe"), virusName), 0);
    const FakeClamav::Scan& scan = FakeClamav::scans.constFirst();
    QCOMPARE(scan.fileName, "/proc/self/fd/" + QByteArray::number(scan.descriptor));
    QVERIFY((scan.descriptorFlags & FD_CLOEXEC) != 0);
    QVERIFY((scan.statusFlags & O_NONBLOCK) != 0);
    QCOMPARE(scan.statusFlags & (O_ACCMODE | O_PATH), O_RDONLY);
    QVERIFY(!scan.hasExtras);
}

void TestCScanFile::leavesNoDescriptorBehind()
{
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    const auto count = [] {
        return QDir(QStringLiteral("/proc/self/fd"))
            .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System);
    };
    const QString fifo = m_directory.filePath(QStringLiteral("fifo"));
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QString virusName;
    // The first log line and the first scan may open what stays open.
    CScanFile::getInstance()->scanFile(QStringLiteral("/proc/self/exe"), virusName);
    const QStringList before = count();
    for (const QString& path : {QStringLiteral("/etc/passwd"), QStringLiteral("/etc"),
                                QStringLiteral("/dev/null"), QStringLiteral("/nowhere"), fifo}) {
        CScanFile::getInstance()->scanFile(path, virusName);
        CScanFile::getInstance()->scanUrl(path, virusName);
        QCOMPARE(count(), before);
    }
}

void TestCScanFile::mapsAsManyBytesAsTheTextHasUnits_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("mapped");
    QTest::newRow("null") << QString() << QByteArray();
    QTest::newRow("empty") << QStringLiteral("") << QByteArray();
    QTest::newRow("one character") << QStringLiteral("a") << QByteArray("a");
    QTest::newRow("ASCII") << QStringLiteral("http://localhost/?q=1") << QByteArray("http://localhost/?q=1");
    QTest::newRow("two bytes, cut inside") << QString::fromUtf8("\xC3\xA9") << QByteArray("\xC3");
    QTest::newRow("tail left out") << QString::fromUtf8("h\xC3\xA9llo") << QByteArray("h\xC3\xA9ll");
    QTest::newRow("three bytes each")
        << QString::fromUtf8("\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC") << QByteArray("\xE2\x82\xAC");
    QTest::newRow("beyond the first plane: two units")
        << QString::fromUtf8("\xF0\x9F\x98\x80z") << QByteArray("\xF0\x9F\x98");
    QTest::newRow("leading U+FEFF") << QString(QChar(0xFEFF)) + QStringLiteral("abc")
                                    << QByteArray("\xEF\xBB\xBF"
                                                  "a");
    QTest::newRow("with a zero") << QString::fromLatin1("a\0b", 3) << QByteArray("a\0b", 3);
}

void TestCScanFile::mapsAsManyBytesAsTheTextHasUnits()
{
    QFETCH(QString, text);
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    QString virusName = QStringLiteral("as it was");
    QCOMPARE(CScanFile::getInstance()->scanUrl(text, virusName), 0);
    QCOMPARE(virusName, QStringLiteral("as it was"));
    QCOMPARE(FakeClamav::scans.size(), 1);
    QTEST(FakeClamav::scans.constFirst().text, "mapped");
    QVERIFY(FakeClamav::scans.constFirst().fileName.isNull());
    QVERIFY(!FakeClamav::scans.constFirst().hasExtras);
}

void TestCScanFile::closesTheMapWhateverTheResult_data()
{
    QTest::addColumn<int>("code");
    QTest::newRow("clean") << 0;
    QTest::newRow("infected") << 1;
    QTest::newRow("error") << 20;
}

void TestCScanFile::closesTheMapWhateverTheResult()
{
    QFETCH(int, code);
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    FakeClamav::answer = FakeClamav::Answer{code, "Name"};
    FakeClamav::calls.clear();
    QString virusName;
    CScanFile::getInstance()->scanUrl(QStringLiteral("text"), virusName);
    QCOMPARE(FakeClamav::calls,
             QVector<QByteArray>({"cl_fmap_open_memory", "cl_scanmap_callback", "cl_fmap_close"}));
}

void TestCScanFile::answersAnErrorWhenTheTextCannotBeMapped()
{
    QVERIFY(CScanFile::getInstance()->loadDatabases());
    FakeClamav::failures.insert("cl_fmap_open_memory", {0, ENOMEM});
    FakeClamav::calls.clear();
    QString virusName = QStringLiteral("as it was");
    // libclamav would follow the null pointer.
    QCOMPARE(CScanFile::getInstance()->scanUrl(QStringLiteral("text"), virusName), static_cast<int>(CL_EMEM));
    QCOMPARE(FakeClamav::calls, QVector<QByteArray>({"cl_fmap_open_memory"}));
    QCOMPARE(virusName, QStringLiteral("as it was"));
}

QTEST_GUILESS_MAIN(TestCScanFile)
#include "tst_cscanfile.moc"
