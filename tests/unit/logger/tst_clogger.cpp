#include "logger/clogger.h"

#include "common/common.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using LOGGER::CLogger;

namespace
{
constexpr qint64 rotationSize = 2097152;
constexpr const char* where = "void TestClass::method(int)";

/// Chooses what this program does instead of testing, when it runs as a child of itself: it cannot be an
/// argument, because the first argument is what the tests vary.
constexpr const char* modeVariable = "TST_CLOGGER_MODE";

/// "2025-03-28 13:02:59:007  "
const QString stampPattern =
    QStringLiteral("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}:[0-9]{3}  ");

QString logsDirectory()
{
    return QFileInfo(QCoreApplication::applicationDirPath()).path() + QStringLiteral("/logs");
}

QString logPath()
{
    return logsDirectory() + QStringLiteral("/tst_clogger.log");
}

QString backupPath()
{
    return logPath() + QStringLiteral(".bkp");
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

/// The lines of a log, without their ends and time stamps. A line that is not whole, or whose stamp is not
/// as it should be, comes back with a mark in front that no test expects.
QStringList bodiesOf(const QByteArray& content)
{
    const QRegularExpression line(QStringLiteral("^%1(.*)$").arg(stampPattern),
                                  QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpression counter(QStringLiteral("^Repeated \\[[0-9]{5}\\] times[.]$"));
    QStringList bodies;
    if (!content.isEmpty() && !content.endsWith("\r\n")) {
        bodies += QStringLiteral("the last line has no end");
    }
    for (const QString& text : QString::fromUtf8(content).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch match = line.match(text);
        if (match.hasMatch()) {
            bodies += match.captured(1);
        } else {
            bodies += counter.match(text).hasMatch() ? text : QStringLiteral("malformed: ") + text;
        }
    }
    return bodies;
}

QString banner()
{
    return QStringLiteral("[INFO]  [LoggerStarted] :: Build Date: ") + Common::getBuildDateTime();
}

/// What has been logged since the logger was made, the banner left out.
QStringList bodies()
{
    QStringList all = bodiesOf(contentOf(logPath()));
    return !all.isEmpty() && all.first() == banner() ? all.mid(1)
                                                     : QStringList{QStringLiteral("no banner")} + all;
}

/// The body that `trace` writes.
QString traced(const char* message)
{
    return QStringLiteral("[TRACE]  [TestClass::method] :: ") + QString::fromLatin1(message);
}

void trace(const char* message)
{
    CLogger::getInstance()->Trace(where, "%s", message);
}

struct ChildResult
{
    int exitCode;
    QByteArray output;
};

/// Runs this program, or the copy `program` of it, as `mode`, with `argument0` in place of its name.
ChildResult runChild(const QString& mode, const QString& argument0, const QString& program,
                     const QStringList& environment = {})
{
    QProcess process;
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    variables.insert(QString::fromLatin1(modeVariable), mode);
    for (const QString& entry : environment) {
        variables.insert(entry.section(QLatin1Char('='), 0, 0), entry.section(QLatin1Char('='), 1));
    }
    process.setProcessEnvironment(variables);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // The shell passes the two texts on as they are; nothing of them is evaluated.
    process.start(QStringLiteral("bash"), {QStringLiteral("-c"), QStringLiteral("exec -a \"$1\" \"$2\""),
                                           QStringLiteral("bash"), argument0, program});
    const bool finished = process.waitForFinished();
    return {finished && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput()};
}

/// Lets a number of threads start together: they spin, so that none has to be woken first.
class StartLine
{
public:
    explicit StartLine(int runners) : m_missing(runners)
    {
    }
    void wait()
    {
        --m_missing;
        while (m_missing > 0) {
            std::this_thread::yield();
        }
    }

private:
    std::atomic<int> m_missing;
};
} // namespace

class TestCLogger : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startsEveryRunWithTheBuildDate();
    void isOneObjectUntilReleased();
    void firstCallsOfManyThreadsMakeOneLogger();

    void stampsWithLocalTime();
    void stampIgnoresTheDefaultLocale_data();
    void stampIgnoresTheDefaultLocale();
    void stampIgnoresTheEnvironment_data();
    void stampIgnoresTheEnvironment();
    void endsLinesWithCarriageReturn();
    void tagsEachKindOfMessage_data();
    void tagsEachKindOfMessage();
    void showsErrorCodes_data();
    void showsErrorCodes();
    void formatsItsArguments();
    void messageHasNoLimit_data();
    void messageHasNoLimit();
    void shortensTheLocation_data();
    void shortensTheLocation();

    void levelDecidesWhatIsWritten_data();
    void levelDecidesWhatIsWritten();
    void typeDecidesWhereItIsWritten_data();
    void typeDecidesWhereItIsWritten();
    void consoleRepeatsAndEndsPlainly();

    void repeatsBecomeACounter_data();
    void repeatsBecomeACounter();
    void anotherMessageStartsBelowTheCounter();
    void sameTextElsewhereIsNoRepeat();
    void alternatingMessagesAreNoRepeats();
    void theBannerItselfMayRepeat();
    void repeatKindDecides();
    void counterOfSixDigitsEatsOneCharacterOnce();

    void largeLogMovesAsideAtStart_data();
    void largeLogMovesAsideAtStart();
    void growingLogStaysWithinARun();
    void failedMoveLeavesTheOldLog();
    void fileIsNotHeldOpen();

    void messageIsDroppedWhenTheLogCannotBeOpened();
    void repeatIsDroppedWhenTheLogIsGone();
    void repeatsGoOnWhenTheLogComesBack();
    void counterGoesToTheEndOfATruncatedLog();

    void isNamedAfterTheProgram_data();
    void isNamedAfterTheProgram();
    void isNamedUnknownWhenNothingIsKnown();

    void linesOfManyThreadsStayWhole();
    void repeatsOfManyThreadsAreAllCounted();
    void childrenInheritNoLog();
};

void TestCLogger::init()
{
    CLogger::releaseInstance();
    QVERIFY(QDir(logsDirectory()).removeRecursively());
}

void TestCLogger::cleanup()
{
    qunsetenv("TZ");
    CLogger::releaseInstance();
}

void TestCLogger::startsEveryRunWithTheBuildDate()
{
    CLogger::getInstance();
    QCOMPARE(bodiesOf(contentOf(logPath())), QStringList{banner()});
    trace("first run");
    CLogger::releaseInstance();
    CLogger::getInstance();
    QCOMPARE(bodiesOf(contentOf(logPath())), (QStringList{banner(), traced("first run"), banner()}));
}

void TestCLogger::isOneObjectUntilReleased()
{
    CLogger* first = CLogger::getInstance();
    QCOMPARE(CLogger::getInstance(), first);
    first->DisableLog();
    trace("unseen");
    CLogger::releaseInstance();
    CLogger::releaseInstance();
    // A fresh object may well lie at the same address; what it knows tells it apart.
    trace("seen");
    QCOMPARE(bodiesOf(contentOf(logPath())), (QStringList{banner(), banner(), traced("seen")}));
}

void TestCLogger::firstCallsOfManyThreadsMakeOneLogger()
{
    constexpr int runners = 4;
    for (int round = 0; round < 100; ++round) {
        init();
        StartLine start(runners);
        std::vector<CLogger*> seen(runners, nullptr);
        std::vector<std::thread> threads;
        threads.reserve(runners);
        for (int i = 0; i < runners; ++i) {
            threads.emplace_back([&start, &seen, i] {
                start.wait();
                seen[static_cast<size_t>(i)] = CLogger::getInstance();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        QVERIFY(seen.front() != nullptr);
        QCOMPARE(std::count(seen.begin(), seen.end(), seen.front()), std::ptrdiff_t(runners));
        QCOMPARE(bodiesOf(contentOf(logPath())), QStringList{banner()});
    }
}

void TestCLogger::stampsWithLocalTime()
{
    // In UTC nothing would tell local time from universal time.
    qputenv("TZ", "TVT-5:30");
    CLogger::getInstance();
    const QDateTime before = QDateTime::currentDateTime();
    trace("now");
    const QDateTime after = QDateTime::currentDateTime();
    const QByteArray line = contentOf(logPath()).split('\n').at(1);
    const QDateTime stamp = QLocale::c().toDateTime(QString::fromLatin1(line.left(23)),
                                                    QStringLiteral("yyyy-MM-dd hh:mm:ss:zzz"));
    QVERIFY2(stamp >= before && stamp <= after, line.constData());
}

void TestCLogger::stampIgnoresTheDefaultLocale_data()
{
    QTest::addColumn<QString>("locale");
    QTest::newRow("German month names") << "de_DE";
    QTest::newRow("Arabic digits") << "ar_EG";
}

void TestCLogger::stampIgnoresTheDefaultLocale()
{
    QFETCH(QString, locale);
    const QLocale before;
    QLocale::setDefault(QLocale(locale));
    trace("text");
    const QString expectedBanner = banner();
    QLocale::setDefault(before);
    QCOMPARE(expectedBanner, banner());
    QCOMPARE(bodies(), QStringList{traced("text")});
}

void TestCLogger::stampIgnoresTheEnvironment_data()
{
    QTest::addColumn<QString>("variable");
    QTest::newRow("German month names") << "LC_ALL=de_DE.UTF-8";
    QTest::newRow("Arabic digits") << "LC_ALL=ar_EG.UTF-8";
    QTest::newRow("plain") << "LC_ALL=C";
}

void TestCLogger::stampIgnoresTheEnvironment()
{
    QFETCH(QString, variable);
    const ChildResult child = runChild(QStringLiteral("log"), QStringLiteral("tst_clogger"),
                                       QCoreApplication::applicationFilePath(), {variable});
    QCOMPARE(child.exitCode, 0);
    // What Qt makes of the environment, so that a run in which it had no say does not count.
    QCOMPARE(child.output, variable.section(QLatin1Char('='), 1).section(QLatin1Char('.'), 0, 0).toUtf8());
    QCOMPARE(bodies(), QStringList{traced("from a child")});
}

void TestCLogger::endsLinesWithCarriageReturn()
{
    CLogger* logger = CLogger::getInstance();
    logger->Trace(where, "one");
    logger->Trace(where, "one");
    const QByteArray content = contentOf(logPath());
    QCOMPARE(content.count('\n'), 3);
    QCOMPARE(content.count("\r\n"), 3);
    const QRegularExpression whole(QStringLiteral("^%1%2\r\n%1%3\r\nRepeated \\[00001\\] times[.]\r\n$")
                                       .arg(stampPattern, QRegularExpression::escape(banner()),
                                            QRegularExpression::escape(traced("one"))));
    QVERIFY2(whole.match(QString::fromUtf8(content)).hasMatch(), content.constData());
}

void TestCLogger::tagsEachKindOfMessage_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("body");
    QTest::newRow("Error") << "Error"
                           << "[ERROR]  [TestClass::method] :: [0x00000005]: text 7";
    QTest::newRow("Always") << "Always"
                            << "[ALWAYS]  [TestClass::method] :: text 7";
    QTest::newRow("Info") << "Info"
                          << "[INFO]  [TestClass::method] :: text 7";
    QTest::newRow("Trace") << "Trace"
                           << "[TRACE]  [TestClass::method] :: text 7";
    QTest::newRow("Buffer") << "Buffer"
                            << " [TestClass::method] :: text 7";
    QTest::newRow("Debug") << "Debug"
                           << "[DEBUG]  [TestClass::method] :: text 7";
}

void TestCLogger::tagsEachKindOfMessage()
{
    QFETCH(QString, kind);
    QFETCH(QString, body);
    CLogger* logger = CLogger::getInstance();
    logger->EnaleLog();
    if (kind == QLatin1String("Error")) {
        logger->Error(where, EIO, "text %d", 7);
    } else if (kind == QLatin1String("Always")) {
        logger->Always(where, "text %d", 7);
    } else if (kind == QLatin1String("Info")) {
        logger->Info(where, "text %d", 7);
    } else if (kind == QLatin1String("Trace")) {
        logger->Trace(where, "text %d", 7);
    } else if (kind == QLatin1String("Buffer")) {
        logger->Buffer(where, "text %d", 7);
    } else {
        logger->Debug(where, "text %d", 7);
    }
    QCOMPARE(bodies(), QStringList{body});
}

void TestCLogger::showsErrorCodes_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    QTest::newRow("none") << 0 << "[0x00000000]: x";
    QTest::newRow("five") << 5 << "[0x00000005]: x";
    QTest::newRow("upper case") << 0xABCDEF << "[0x00ABCDEF]: x";
    QTest::newRow("negative") << -1 << "[0xFFFFFFFF]: x";
}

void TestCLogger::showsErrorCodes()
{
    QFETCH(int, code);
    QFETCH(QString, text);
    CLogger::getInstance()->Error(where, code, "x");
    QCOMPARE(bodies(), QStringList{QStringLiteral("[ERROR]  [TestClass::method] :: ") + text});
}

void TestCLogger::formatsItsArguments()
{
    CLogger* logger = CLogger::getInstance();
    logger->Info(where, "%s|%5d|%-4s|%05.1f|%lld%%", "a%sb", -42, "x", 2.25, 1LL << 40);
    logger->Info(where, "%s", "");
    logger->Info(where, "%s", "two\nlines \xC3\xA4 and %n");
    // Half of a pair, which is no character of any locale.
    const wchar_t impossible[] = {static_cast<wchar_t>(0xD800), 0};
    logger->Info(where, "%ls", impossible);
    QCOMPARE(bodies(),
             (QStringList{
                 QStringLiteral("[INFO]  [TestClass::method] :: a%sb|  -42|x   |002.2|1099511627776%"),
                 QStringLiteral("[INFO]  [TestClass::method] :: "),
                 QStringLiteral("[INFO]  [TestClass::method] :: two\nlines \u00E4 and %n"),
                 QStringLiteral("[INFO]  [TestClass::method] :: "),
             }));
}

void TestCLogger::messageHasNoLimit_data()
{
    QTest::addColumn<int>("length");
    for (const int length : {49, 50, 255, 256, 1023, 1024, 4095, 4096, 65536, 3 * 1024 * 1024}) {
        QTest::addRow("%d", length) << length;
    }
}

void TestCLogger::messageHasNoLimit()
{
    QFETCH(int, length);
    const QByteArray text = QByteArray(length - 1, 'm') + 'E';
    trace(text.constData());
    // Compared as a truth value: a difference of megabytes helps nobody.
    QVERIFY(bodies() == QStringList{traced(text.constData())});
}

void TestCLogger::shortensTheLocation_data()
{
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QString>("printed");
    const auto row = [](const char* name, const char* location, const char* printed) {
        QTest::newRow(name) << QByteArray(location) << QString::fromLatin1(printed);
    };
    row("method", "int CScanManager::cleanFile(const QString&)", "CScanManager::cleanFile");
    row("constructor", "CSocketManager::CSocketManager()", "CSocketManager::CSocketManager");
    row("destructor", "CSocketManager::~CSocketManager()", "CSocketManager::~CSocketManager");
    row("no blank, no parenthesis", "LoggerStarted", "LoggerStarted");
    row("constructor with one parameter", "CClientThread::CClientThread(int)",
        "CClientThread::CClientThread");
    row("constructor with parameters", "CClientThread::CClientThread(int, const QString&)",
        "const QString&)");
    row("constructor with a parameter of two words", "A::A(const B&)", "B&)");
    row("two words before the name", "const char* A::b(int)", "char* A::b");
    row("static", "static bool A::b()", "bool A::b");
    row("virtual", "virtual void A::b()", "void A::b");
    row("operator with a parenthesis", "void A::operator()(int)", "A::operator");
    row("global name at the start", "::function(int, char)", "::function(int, char)");
    row("global name with a blank first", "int ::function(char)", "::function");
    row("only the colons", "::", "::");
    row("no parenthesis, a blank", "void A::b", "A::b");
    row("nothing between blank and parenthesis", "int (*)()", "");
    row("parenthesis first", "(anonymous)", "");
    row("parenthesis first, a blank later", "(a b)", "b)");
    row("blank first", " (x)", "");
    row("blank last", "name ", "");
    row("empty", "", "");
    row("free function", "int main(int, char**)", "main");
}

void TestCLogger::shortensTheLocation()
{
    QFETCH(QByteArray, location);
    QFETCH(QString, printed);
    CLogger::getInstance()->Trace(location.constData(), "x");
    QCOMPARE(bodies(), QStringList{QStringLiteral("[TRACE]  [%1] :: x").arg(printed)});
}

void TestCLogger::levelDecidesWhatIsWritten_data()
{
    QTest::addColumn<QString>("control");
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("written");
    QTest::newRow("by default") << QString() << 0 << "EAIT";
    QTest::newRow("1") << QString() << 1 << "EA";
    QTest::newRow("2") << QString() << 2 << "EAI";
    QTest::newRow("3") << QString() << 3 << "EAIT";
    QTest::newRow("4") << QString() << 4 << "EAITB";
    QTest::newRow("5") << QString() << 5 << "EAITBD";
    QTest::newRow("6") << QString() << 6 << "EAITBD";
    QTest::newRow("DisableLog") << "DisableLog" << 0 << "EA";
    QTest::newRow("EnaleLog") << "EnaleLog" << 0 << "EAITBD";
}

void TestCLogger::levelDecidesWhatIsWritten()
{
    QFETCH(QString, control);
    QFETCH(int, level);
    QFETCH(QString, written);
    CLogger* logger = CLogger::getInstance();
    if (control == QLatin1String("DisableLog")) {
        logger->DisableLog();
    } else if (control == QLatin1String("EnaleLog")) {
        logger->EnaleLog();
    } else if (level != 0) {
        logger->UpdateLogLevel(static_cast<LOGGER::LOG_LEVEL>(level));
    }
    logger->Error(where, 0, "E");
    logger->Always(where, "A");
    logger->Info(where, "I");
    logger->Trace(where, "T");
    logger->Buffer(where, "B");
    logger->Debug(where, "D");
    QString letters;
    for (const QString& body : bodies()) {
        letters += body.right(1);
    }
    QCOMPARE(letters, written);
}

void TestCLogger::typeDecidesWhereItIsWritten_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<int>("onConsole");
    QTest::addColumn<int>("inFile");
    QTest::newRow("by default") << "type-default" << 0 << 1;
    QTest::newRow("UpdateLogType(2)") << "type-2" << 1 << 0;
    QTest::newRow("UpdateLogType(3)") << "type-3" << 0 << 1;
    QTest::newRow("nowhere: 0") << "type-0" << 0 << 0;
    QTest::newRow("nowhere: 1") << "type-1" << 0 << 0;
    QTest::newRow("EnableConsoleLogging") << "type-console" << 1 << 0;
    QTest::newRow("back by EnableFileLogging") << "type-console-file" << 0 << 1;
}

void TestCLogger::typeDecidesWhereItIsWritten()
{
    QFETCH(QString, mode);
    QFETCH(int, onConsole);
    QFETCH(int, inFile);
    const ChildResult child =
        runChild(mode, QStringLiteral("tst_clogger"), QCoreApplication::applicationFilePath());
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.output.count("[TRACE]  [TestClass::method] :: x\n"), onConsole);
    QCOMPARE(child.output.count('\n'), onConsole);
    QCOMPARE(bodies().size(), inFile);
}

void TestCLogger::consoleRepeatsAndEndsPlainly()
{
    const ChildResult child = runChild(QStringLiteral("console-repeats"), QStringLiteral("tst_clogger"),
                                       QCoreApplication::applicationFilePath());
    QCOMPARE(child.exitCode, 0);
    const QRegularExpression whole(
        QStringLiteral("^(%1\\[TRACE\\]  \\[TestClass::method\\] :: again\n){3}$").arg(stampPattern));
    QVERIFY2(whole.match(QString::fromUtf8(child.output)).hasMatch(), child.output.constData());
    QCOMPARE(bodies(), QStringList());
}

void TestCLogger::repeatsBecomeACounter_data()
{
    QTest::addColumn<int>("repeats");
    QTest::addColumn<QString>("counter");
    QTest::newRow("none") << 0 << QString();
    QTest::newRow("1") << 1 << "Repeated [00001] times.";
    QTest::newRow("2") << 2 << "Repeated [00002] times.";
    QTest::newRow("3") << 3 << "Repeated [00003] times.";
    QTest::newRow("10") << 10 << "Repeated [00010] times.";
    QTest::newRow("1000") << 1000 << "Repeated [01000] times.";
}

void TestCLogger::repeatsBecomeACounter()
{
    QFETCH(int, repeats);
    QFETCH(QString, counter);
    trace("before");
    for (int i = 0; i <= repeats; ++i) {
        trace("again");
    }
    QStringList expected = {traced("before"), traced("again")};
    if (!counter.isEmpty()) {
        expected += counter;
    }
    QCOMPARE(bodies(), expected);
}

void TestCLogger::anotherMessageStartsBelowTheCounter()
{
    for (const char* message : {"a", "a", "a", "b", "b", "a"}) {
        trace(message);
    }
    QCOMPARE(bodies(), (QStringList{traced("a"), QStringLiteral("Repeated [00002] times."), traced("b"),
                                    QStringLiteral("Repeated [00001] times."), traced("a")}));
}

void TestCLogger::sameTextElsewhereIsNoRepeat()
{
    CLogger::getInstance()->Trace("void A::one()", "x");
    CLogger::getInstance()->Trace("void A::two()", "x");
    // What is compared is what is printed.
    CLogger::getInstance()->Trace("int A::two(int)", "x");
    QCOMPARE(bodies(),
             (QStringList{QStringLiteral("[TRACE]  [A::one] :: x"), QStringLiteral("[TRACE]  [A::two] :: x"),
                          QStringLiteral("Repeated [00001] times.")}));
}

void TestCLogger::alternatingMessagesAreNoRepeats()
{
    QStringList expected;
    for (int i = 0; i < 3; ++i) {
        trace("a");
        trace("b");
        expected += {traced("a"), traced("b")};
    }
    QCOMPARE(bodies(), expected);
}

void TestCLogger::theBannerItselfMayRepeat()
{
    CLogger::getInstance()->Info("LoggerStarted", "Build Date: %s",
                                 qUtf8Printable(Common::getBuildDateTime()));
    QCOMPARE(bodies(), QStringList{QStringLiteral("Repeated [00001] times.")});
}

void TestCLogger::repeatKindDecides()
{
    CLogger* logger = CLogger::getInstance();
    logger->Info(where, "x");
    logger->Trace(where, "x");
    logger->Error(where, 1, "x");
    logger->Error(where, 2, "x");
    logger->Error(where, 2, "x");
    // Nothing is compared with a message that the level keeps back.
    logger->Debug(where, "unseen");
    logger->Error(where, 2, "x");
    QCOMPARE(bodies(), (QStringList{QStringLiteral("[INFO]  [TestClass::method] :: x"), traced("x"),
                                    QStringLiteral("[ERROR]  [TestClass::method] :: [0x00000001]: x"),
                                    QStringLiteral("[ERROR]  [TestClass::method] :: [0x00000002]: x"),
                                    QStringLiteral("Repeated [00002] times.")}));
}

void TestCLogger::counterOfSixDigitsEatsOneCharacterOnce()
{
    CLogger* logger = CLogger::getInstance();
    logger->Trace(where, "x");
    const QByteArray line = contentOf(logPath());
    int count = 0;
    const auto repeatUpTo = [logger, &count](int target) {
        for (; count < target; ++count) {
            logger->Trace(where, "x");
        }
    };
    repeatUpTo(99999);
    QCOMPARE(contentOf(logPath()), line + "Repeated [99999] times.\r\n");
    repeatUpTo(100000);
    QCOMPARE(contentOf(logPath()), line.chopped(1) + "Repeated [100000] times.\r\n");
    repeatUpTo(100002);
    QCOMPARE(contentOf(logPath()), line.chopped(1) + "Repeated [100002] times.\r\n");
}

void TestCLogger::largeLogMovesAsideAtStart_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<bool>("backupBefore");
    QTest::addColumn<bool>("moved");
    QTest::newRow("empty") << qint64(0) << false << false;
    QTest::newRow("small") << qint64(1) << true << false;
    QTest::newRow("exactly the limit") << rotationSize << false << false;
    QTest::newRow("exactly the limit, with a backup") << rotationSize << true << false;
    QTest::newRow("one byte more") << rotationSize + 1 << false << true;
    QTest::newRow("one byte more, with a backup") << rotationSize + 1 << true << true;
    QTest::newRow("beyond 4 GiB") << (qint64(1) << 32) + 1 << true << true;
}

void TestCLogger::largeLogMovesAsideAtStart()
{
    QFETCH(qint64, size);
    QFETCH(bool, backupBefore);
    QFETCH(bool, moved);
    QVERIFY(QDir().mkpath(logsDirectory()));
    QFile old(logPath());
    QVERIFY(old.open(QIODevice::WriteOnly));
    // A hole: only its length counts.
    QVERIFY(old.resize(size));
    old.close();
    if (backupBefore) {
        QFile backup(backupPath());
        QVERIFY(backup.open(QIODevice::WriteOnly));
        backup.write("older");
    }
    CLogger::getInstance();
    const qint64 bannerLine = 25 + banner().toUtf8().size() + 2;
    if (moved) {
        QCOMPARE(QFileInfo(backupPath()).size(), size);
        QCOMPARE(bodiesOf(contentOf(logPath())), QStringList{banner()});
    } else {
        QCOMPARE(QFileInfo::exists(backupPath()), backupBefore);
        if (backupBefore) {
            QCOMPARE(contentOf(backupPath()), QByteArray("older"));
        }
    }
    QCOMPARE(QFileInfo(logPath()).size(), (moved ? 0 : size) + bannerLine);
}

void TestCLogger::growingLogStaysWithinARun()
{
    CLogger* logger = CLogger::getInstance();
    QVERIFY(QFile::resize(logPath(), rotationSize + 1));
    logger->Trace(where, "x");
    logger->Trace(where, "x");
    logger->Trace(where, "x");
    QVERIFY(!QFileInfo::exists(backupPath()));
    QVERIFY(contentOf(logPath()).endsWith(":: x\r\nRepeated [00002] times.\r\n"));
}

void TestCLogger::failedMoveLeavesTheOldLog()
{
    // A backup that is a directory with something in it can neither be removed nor replaced.
    QVERIFY(QDir().mkpath(backupPath() + QStringLiteral("/occupied")));
    QFile old(logPath());
    QVERIFY(old.open(QIODevice::WriteOnly));
    QVERIFY(old.resize(rotationSize + 1));
    old.close();
    CLogger::getInstance();
    QVERIFY(QFileInfo(logPath()).size() > rotationSize + 1);
    QVERIFY(contentOf(logPath()).endsWith(banner().toUtf8() + "\r\n"));
    QVERIFY(QFileInfo::exists(backupPath() + QStringLiteral("/occupied")));
}

void TestCLogger::fileIsNotHeldOpen()
{
    trace("one");
    trace("one");
    const QDir descriptors(QStringLiteral("/proc/self/fd"));
    const QStringList entries = descriptors.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    QVERIFY(entries.size() >= 3);
    for (const QString& entry : entries) {
        QVERIFY(QFile::symLinkTarget(descriptors.filePath(entry)) != logPath());
    }
}

void TestCLogger::messageIsDroppedWhenTheLogCannotBeOpened()
{
    QVERIFY(QDir().mkpath(logPath()));
    trace("lost");
    trace("lost");
    trace("lost too");
    QVERIFY(QFileInfo(logPath()).isDir());
    QVERIFY(QDir().rmdir(logPath()));
    // Lost, and remembered all the same: the counter has no file to go to, the next message makes one.
    trace("lost too");
    QVERIFY(!QFileInfo::exists(logPath()));
    trace("written");
    QCOMPARE(bodiesOf(contentOf(logPath())), QStringList{traced("written")});
}

void TestCLogger::repeatIsDroppedWhenTheLogIsGone()
{
    trace("x");
    trace("x");
    QVERIFY(QFile::remove(logPath()));
    trace("x");
    QVERIFY(!QFileInfo::exists(logPath()));
    trace("y");
    QCOMPARE(bodiesOf(contentOf(logPath())), QStringList{traced("y")});
}

void TestCLogger::repeatsGoOnWhenTheLogComesBack()
{
    trace("x");
    trace("x");
    QVERIFY(QFile::rename(logPath(), backupPath()));
    trace("x");
    QVERIFY(QFile::rename(backupPath(), logPath()));
    trace("x");
    QCOMPARE(bodies(), (QStringList{traced("x"), QStringLiteral("Repeated [00003] times.")}));
}

void TestCLogger::counterGoesToTheEndOfATruncatedLog()
{
    trace("x");
    trace("x");
    QVERIFY(QFile::resize(logPath(), 0));
    trace("x");
    QCOMPARE(contentOf(logPath()), QByteArray("Repeated [00002] times.\r\n"));
}

void TestCLogger::isNamedAfterTheProgram_data()
{
    QTest::addColumn<QString>("argument0");
    QTest::addColumn<QString>("log");
    QTest::newRow("a path") << "/usr/lib/Talvenor/bin/tvfilemon"
                            << "tvfilemon.log";
    QTest::newRow("a relative path") << "./bin/other"
                                     << "other.log";
    QTest::newRow("a name") << "tvfilemon"
                            << "tvfilemon.log";
    QTest::newRow("a name with an ending") << "tv.bin"
                                           << "tv.bin.log";
    QTest::newRow("blanks around") << "  tvfilemon \t"
                                   << "tvfilemon.log";
    QTest::newRow("blanks around, in a path") << "/a/ b c "
                                              << "b c.log";
    QTest::newRow("nothing: the executable's own") << ""
                                                   << "copied.log";
    QTest::newRow("only blanks: the executable's own") << "  \t "
                                                       << "copied.log";
    // No file name in it, so all of it, which here ends in the directory itself.
    QTest::newRow("only a separator") << "/"
                                      << ".log";
    QTest::newRow("two separators") << "//"
                                    << ".log";
    QTest::newRow("a blank after the separator") << "/ "
                                                 << ".log";
}

void TestCLogger::isNamedAfterTheProgram()
{
    QFETCH(QString, argument0);
    QFETCH(QString, log);
    QTemporaryDir work;
    const QString root = work.path() + QStringLiteral("/root");
    const QString program = root + QStringLiteral("/bin/copied");
    QVERIFY(QDir().mkpath(root + QStringLiteral("/bin")));
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));
    QCOMPARE(runChild(QStringLiteral("log"), argument0, program).exitCode, 0);
    const QStringList logs = QDir(root + QStringLiteral("/logs"))
                                 .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    QCOMPARE(logs, QStringList{log});
    const QStringList lines = bodiesOf(contentOf(root + QStringLiteral("/logs/") + log));
    QCOMPARE(lines, (QStringList{banner(), traced("from a child")}));
}

void TestCLogger::isNamedUnknownWhenNothingIsKnown()
{
    QTemporaryDir work;
    const QString root = work.path() + QStringLiteral("/root");
    const QString program = root + QStringLiteral("/bin/copied");
    QVERIFY(QDir().mkpath(root + QStringLiteral("/bin")));
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));
    QCOMPARE(runChild(QStringLiteral("log-deleted"), QString(), program).exitCode, 0);
    QVERIFY(!QFileInfo::exists(program));
    QCOMPARE(QDir(root + QStringLiteral("/logs")).entryList(QDir::Files),
             QStringList{QStringLiteral("Unknown.log")});
}

void TestCLogger::linesOfManyThreadsStayWhole()
{
    constexpr int writers = 6;
    constexpr int messages = 300;
    CLogger::getInstance();
    StartLine start(writers);
    std::vector<std::thread> threads;
    threads.reserve(writers);
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([&start, writer] {
            const std::string padding(static_cast<size_t>(writer) * 900, 'p');
            start.wait();
            for (int i = 0; i < messages; ++i) {
                CLogger::getInstance()->Info(where, "w%d m%d %s", writer, i, padding.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    QStringList expected;
    for (int writer = 0; writer < writers; ++writer) {
        for (int i = 0; i < messages; ++i) {
            expected += QStringLiteral("[INFO]  [TestClass::method] :: w%1 m%2 ").arg(writer).arg(i) +
                        QString(writer * 900, QLatin1Char('p'));
        }
    }
    QStringList written = bodies();
    // Each thread's own lines are in its order.
    for (int writer = 0; writer < writers; ++writer) {
        const QString mark = QStringLiteral(":: w%1 ").arg(writer);
        QVERIFY(written.filter(mark) == expected.filter(mark));
    }
    QCOMPARE(written.size(), expected.size());
}

void TestCLogger::repeatsOfManyThreadsAreAllCounted()
{
    constexpr int writers = 4;
    constexpr int messages = 250;
    CLogger::getInstance();
    StartLine start(writers);
    std::vector<std::thread> threads;
    threads.reserve(writers);
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([&start] {
            start.wait();
            for (int i = 0; i < messages; ++i) {
                trace("same");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    QCOMPARE(bodies(), (QStringList{traced("same"), QStringLiteral("Repeated [00999] times.")}));
}

void TestCLogger::childrenInheritNoLog()
{
    // Another thread starts programs all the time while this one logs.
    CLogger::getInstance();
    std::atomic<bool> stop(false);
    std::thread writer([&stop] {
        for (int i = 0; !stop; ++i) {
            CLogger::getInstance()->Trace(where, "%d", i / 2);
        }
    });
    QByteArray open;
    for (int i = 0; i < 40; ++i) {
        QProcess process;
        process.start(QStringLiteral("bash"),
                      {QStringLiteral("-c"), QStringLiteral("for f in /proc/$$/fd/*; do readlink $f; done")});
        process.waitForFinished();
        open += process.readAllStandardOutput();
    }
    stop = true;
    writer.join();
    QVERIFY(open.contains("pipe:"));
    QVERIFY2(!open.contains("tst_clogger.log"), open.constData());
}

namespace
{
/// What the program does as a child of the test.
int runAsChild(const QByteArray& mode)
{
    if (mode == "log-deleted") {
        // Qt finds the executable's directory once; afterwards the executable may go.
        Common::getRootPath();
        unlink(QFile::encodeName(QCoreApplication::applicationFilePath()).constData());
        trace("from a child");
        return 0;
    }
    if (mode == "log") {
        trace("from a child");
        std::fputs(QLocale::system().name().toUtf8().constData(), stdout);
        return 0;
    }
    CLogger* logger = CLogger::getInstance();
    if (mode == "console-repeats") {
        logger->EnableConsoleLogging();
        trace("again");
        trace("again");
        trace("again");
        return 0;
    }
    if (mode.startsWith("type-console")) {
        logger->EnableConsoleLogging();
        if (mode.endsWith("-file")) {
            logger->EnableFileLogging();
        }
    } else if (mode != "type-default") {
        logger->UpdateLogType(static_cast<LOGGER::LOG_TYPE>(mode.right(1).toInt()));
    }
    trace("x");
    return 0;
}
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    const QByteArray mode = qgetenv(modeVariable);
    if (!mode.isEmpty()) {
        return runAsChild(mode);
    }
    TestCLogger test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_clogger.moc"
