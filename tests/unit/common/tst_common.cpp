#include "common/common.h"

#include "common/builddate.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>

#include <sys/stat.h>

using DirectoryOf = QString (*)();
Q_DECLARE_METATYPE(DirectoryOf)

namespace
{
constexpr const char* printRootArgument = "--print-root";

/// The root of this test's own installation, found another way than by the code under test.
QString ownRoot()
{
    return QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalPath()).path();
}

mode_t modeOf(const QString& path)
{
    struct stat status = {};
    return stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777U : 0;
}

void writeFile(const QString& path, int size)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(QByteArray(size, 'x')), qint64(size));
}

/// What this program, copied into `directory`, takes for its root.
QString rootSeenIn(const QString& directory)
{
    const QString copy = directory + QStringLiteral("/tst_common");
    if (!QDir().mkpath(directory) || !QFile::copy(QCoreApplication::applicationFilePath(), copy)) {
        return QStringLiteral("not copied");
    }
    QProcess process;
    process.start(copy, {QString::fromLatin1(printRootArgument)});
    process.waitForFinished();
    return QString::fromUtf8(process.readAllStandardOutput());
}
} // namespace

class TestCommon : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rootIsAboveTheExecutable();
    void rootIsDecidedOnce();
    void rootTwoLevelsDeepIsRefused();
    void directoriesAreBelowTheRoot_data();
    void directoriesAreBelowTheRoot();
    void directoryIsMadeWithItsParents();
    void directoryThatExistsIsLeftAlone();
    void directoryThatCannotBeMadeIsReturnedAndReported();
    void temporaryDirectoryIsOpenToAllAfterEveryCall();
    void buildDatesAreOneMoment();
    void buildDatesIgnoreTheLocale_data();
    void buildDatesIgnoreTheLocale();
    void sizeIsInTheLargestUnit_data();
    void sizeIsInTheLargestUnit();
    void sizeIgnoresTheLocale();
    void pathSizeOfMissingIsZero();
    void pathSizeOfFileIsItsLength();
    void pathSizeOfDirectoryIsTheSumBelow();
    void pathSizeLeavesOutHiddenAndSpecialEntries();
    void pathSizeFollowsLinks();
    void pathSizeOfSpecialFileIsZero();
};

void TestCommon::rootIsAboveTheExecutable()
{
    QCOMPARE(Common::getRootPath(), ownRoot());
}

void TestCommon::rootIsDecidedOnce()
{
    const QString before = Common::getRootPath();
    const QString here = QDir::currentPath();
    QVERIFY(QDir::setCurrent(QDir::rootPath()));
    QCOMPARE(Common::getRootPath(), before);
    QVERIFY(QDir::setCurrent(here));
}

void TestCommon::rootTwoLevelsDeepIsRefused()
{
    // /tmp/NAME/bin has /tmp/NAME above it.
    QTemporaryDir shallow(QStringLiteral("/tmp/tst_common-XXXXXX"));
    QVERIFY(shallow.isValid());
    QCOMPARE(rootSeenIn(shallow.path() + QStringLiteral("/bin")), QStringLiteral("/usr/lib/Talvenor"));
    QCOMPARE(rootSeenIn(shallow.path() + QStringLiteral("/deep/bin")),
             shallow.path() + QStringLiteral("/deep"));
}

void TestCommon::directoriesAreBelowTheRoot_data()
{
    QTest::addColumn<DirectoryOf>("directory");
    QTest::addColumn<QString>("leaf");
    QTest::addColumn<bool>("created");
    const auto row = [](const char* leaf, DirectoryOf directory, bool created) {
        QTest::newRow(leaf) << directory << QString::fromLatin1(leaf) << created;
    };
    row("/bin", &Common::getBinPath, false);
    row("/db", &Common::getDbPath, false);
    row("/icons", &Common::getIconsPath, false);
    row("/lib", &Common::getLibPath, false);
    row("/services", &Common::getServicesPath, true);
    row("/settings", &Common::getSettingsPath, true);
    row("/reports", &Common::getReportsPath, true);
    row("/reports/scanner", &Common::getScanReportsPath, true);
    row("/quarantine", &Common::getQuarantinePath, true);
    row("/logs", &Common::getLogsPath, true);
    row("/upd", &Common::getUpdPath, true);
    row("/epl", &Common::getPolicyDirPath, true);
    row("/wpl", &Common::getWebPolicyDirPath, true);
    row("/apl", &Common::getAppPolicyDirPath, true);
    row("/edr", &Common::getEdrDirPath, true);
}

void TestCommon::directoriesAreBelowTheRoot()
{
    QFETCH(DirectoryOf, directory);
    QFETCH(QString, leaf);
    QFETCH(bool, created);
    const QString path = ownRoot() + leaf;
    if (leaf != QLatin1String("/bin")) {
        QVERIFY(QDir(path).removeRecursively());
    }
    const bool before = QFileInfo(path).isDir();
    QCOMPARE(directory(), path);
    QCOMPARE(QFileInfo(path).isDir(), created || before);
    // Once more, now that it is there.
    QCOMPARE(directory(), path);
}

void TestCommon::directoryIsMadeWithItsParents()
{
    QTemporaryDir work;
    const QString path = work.path() + QStringLiteral("/a/b c/d");
    QCOMPARE(Common::createDirectoryIfNotExists(path), path);
    QVERIFY(QFileInfo(path).isDir());
    const QString trailing = work.path() + QStringLiteral("/e/");
    QCOMPARE(Common::createDirectoryIfNotExists(trailing), trailing);
    QVERIFY(QFileInfo(trailing).isDir());
}

void TestCommon::directoryThatExistsIsLeftAlone()
{
    QTemporaryDir work;
    writeFile(work.filePath(QStringLiteral("kept")), 3);
    QCOMPARE(Common::createDirectoryIfNotExists(work.path()), work.path());
    QCOMPARE(QFileInfo(work.filePath(QStringLiteral("kept"))).size(), qint64(3));
}

void TestCommon::directoryThatCannotBeMadeIsReturnedAndReported()
{
    QTemporaryDir work;
    writeFile(work.filePath(QStringLiteral("file")), 1);
    const QStringList impossible = {work.filePath(QStringLiteral("file")),
                                    work.filePath(QStringLiteral("file/below"))};
    for (const QString& path : impossible) {
        // A message that is expected and does not come fails the test; the pattern allows nothing after it.
        QTest::ignoreMessage(QtDebugMsg,
                             QRegularExpression(QStringLiteral("^Failed to make directory! Error:$")));
        QCOMPARE(Common::createDirectoryIfNotExists(path), path);
        QVERIFY(!QFileInfo(path).isDir());
    }
}

void TestCommon::temporaryDirectoryIsOpenToAllAfterEveryCall()
{
    const QString path = QStringLiteral("/var/tmp/tvtmp");
    QCOMPARE(Common::getTempDirPath(), path);
    QVERIFY(QFileInfo(path).isDir());
    QCOMPARE(modeOf(path), mode_t(0777));
    // Another user's directory could not be closed, nor would it have to be opened again.
    if (QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner)) {
        QCOMPARE(modeOf(path), mode_t(0700));
    }
    QCOMPARE(Common::getTempDirPath(), path);
    QCOMPARE(modeOf(path), mode_t(0777));
}

void TestCommon::buildDatesAreOneMoment()
{
    const QString dateTime = Common::getBuildDateTime();
    const QDateTime moment = QLocale::c().toDateTime(dateTime, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    QVERIFY2(moment.isValid(), qUtf8Printable(dateTime));
    QCOMPARE(Common::getBuildDate(), dateTime.left(10));
    QCOMPARE(Common::getBuildVersion(),
             dateTime.left(10).replace(QLatin1Char('-'), QLatin1Char('.')) + QStringLiteral(".0"));
    // The library was built not long before or after this file.
    const QDateTime here = parseBuildDate(QStringLiteral(__DATE__), QStringLiteral(__TIME__));
    QVERIFY(qAbs(moment.daysTo(here)) < 3650);
}

void TestCommon::buildDatesIgnoreTheLocale_data()
{
    QTest::addColumn<QString>("locale");
    QTest::newRow("German month names") << "de_DE";
    QTest::newRow("Arabic digits") << "ar_EG";
}

void TestCommon::buildDatesIgnoreTheLocale()
{
    QFETCH(QString, locale);
    const QString expected = Common::getBuildDateTime();
    const QLocale before;
    QLocale::setDefault(QLocale(locale));
    const QString dateTime = Common::getBuildDateTime();
    const QString date = Common::getBuildDate();
    const QString version = Common::getBuildVersion();
    QLocale::setDefault(before);
    QCOMPARE(dateTime, expected);
    QVERIFY(QRegularExpression(QStringLiteral("^[0-9]{4}(-[0-9]{2}){2}$")).match(date).hasMatch());
    QVERIFY(QRegularExpression(QStringLiteral("^[0-9]{4}([.][0-9]{2}){2}[.]0$")).match(version).hasMatch());
}

void TestCommon::sizeIsInTheLargestUnit_data()
{
    constexpr unsigned long long kilo = 1024;
    constexpr unsigned long long tera = kilo * kilo * kilo * kilo;
    QTest::addColumn<unsigned long long>("bytes");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* text, unsigned long long bytes) {
        QTest::newRow(text) << bytes << QString::fromLatin1(text);
    };
    row("0.00 bytes", 0);
    row("1.00 bytes", 1);
    row("1000.00 bytes", 1000);
    row("1023.00 bytes", 1023);
    row("1.00 KB", kilo);
    row("1.50 KB", 1536);
    row("1024.00 KB", kilo * kilo - 1);
    row("1.00 MB", kilo * kilo);
    row("2.00 MB", 2 * kilo * kilo + 1);
    row("1.00 GB", kilo * kilo * kilo);
    row("1.00 TB", tera);
    row("1023.99 GB", tera - 10 * kilo * kilo);
    row("2048.00 TB", 2048 * tera);
    row("16777216.00 TB", ~0ULL);
}

void TestCommon::sizeIsInTheLargestUnit()
{
    QFETCH(unsigned long long, bytes);
    QTEST(Common::getSizeInString(bytes), "text");
}

void TestCommon::sizeIgnoresTheLocale()
{
    const QLocale before;
    QLocale::setDefault(QLocale(QStringLiteral("de_DE")));
    const QString text = Common::getSizeInString(1536);
    QLocale::setDefault(before);
    QCOMPARE(text, QStringLiteral("1.50 KB"));
}

void TestCommon::pathSizeOfMissingIsZero()
{
    QTemporaryDir work;
    QCOMPARE(Common::getPathSize(work.filePath(QStringLiteral("missing"))), 0ULL);
    QVERIFY(QFile::link(QStringLiteral("/nowhere/at/all"), work.filePath(QStringLiteral("broken"))));
    QCOMPARE(Common::getPathSize(work.filePath(QStringLiteral("broken"))), 0ULL);
}

void TestCommon::pathSizeOfFileIsItsLength()
{
    QTemporaryDir work;
    writeFile(work.filePath(QStringLiteral("f")), 4097);
    QCOMPARE(Common::getPathSize(work.filePath(QStringLiteral("f"))), 4097ULL);
    writeFile(work.filePath(QStringLiteral(".hidden")), 5);
    QCOMPARE(Common::getPathSize(work.filePath(QStringLiteral(".hidden"))), 5ULL);
}

void TestCommon::pathSizeOfDirectoryIsTheSumBelow()
{
    QTemporaryDir work;
    QCOMPARE(Common::getPathSize(work.path()), 0ULL);
    QVERIFY(QDir(work.path()).mkpath(QStringLiteral("a/b/c")));
    writeFile(work.filePath(QStringLiteral("1")), 1);
    writeFile(work.filePath(QStringLiteral("a/2")), 20);
    writeFile(work.filePath(QStringLiteral("a/b/3")), 300);
    writeFile(work.filePath(QStringLiteral("a/b/c/4")), 4000);
    QCOMPARE(Common::getPathSize(work.path()), 4321ULL);
}

void TestCommon::pathSizeLeavesOutHiddenAndSpecialEntries()
{
    QTemporaryDir work;
    writeFile(work.filePath(QStringLiteral(".hidden")), 7);
    QVERIFY(QDir(work.path()).mkpath(QStringLiteral(".tree")));
    writeFile(work.filePath(QStringLiteral(".tree/f")), 70);
    QVERIFY(QFile::link(QStringLiteral("/nowhere/at/all"), work.filePath(QStringLiteral("broken"))));
    QCOMPARE(mkfifo(QFile::encodeName(work.filePath(QStringLiteral("fifo"))).constData(), 0600), 0);
    QCOMPARE(Common::getPathSize(work.path()), 0ULL);
    writeFile(work.filePath(QStringLiteral("plain")), 700);
    QCOMPARE(Common::getPathSize(work.path()), 700ULL);
}

void TestCommon::pathSizeFollowsLinks()
{
    QTemporaryDir work;
    QTemporaryDir elsewhere;
    writeFile(elsewhere.filePath(QStringLiteral("f")), 11);
    writeFile(elsewhere.filePath(QStringLiteral("g")), 100);
    QVERIFY(QFile::link(elsewhere.filePath(QStringLiteral("f")), work.filePath(QStringLiteral("to-file"))));
    QCOMPARE(Common::getPathSize(work.filePath(QStringLiteral("to-file"))), 11ULL);
    QVERIFY(QFile::link(elsewhere.path(), work.filePath(QStringLiteral("to-directory"))));
    QCOMPARE(Common::getPathSize(work.filePath(QStringLiteral("to-directory"))), 111ULL);
    QCOMPARE(Common::getPathSize(work.path()), 122ULL);
}

void TestCommon::pathSizeOfSpecialFileIsZero()
{
    QCOMPARE(Common::getPathSize(QStringLiteral("/dev/null")), 0ULL);
}

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    if (QCoreApplication::arguments().contains(QLatin1String(printRootArgument))) {
        // Not QTextStream: the copy answers in the very bytes, whatever the locale.
        std::fputs(Common::getRootPath().toUtf8().constData(), stdout);
        return 0;
    }
    TestCommon test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_common.moc"
