#include "tvctl/health/loadoutcome.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using Result = LoadOutcome::Result;
Q_DECLARE_METATYPE(LoadOutcome::Result)

class TestLoadOutcome : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsALine_data();
    void readsALine();
    void leavesOtherLinesAlone_data();
    void leavesOtherLinesAlone();
    void takesTheLastOfTheLog_data();
    void takesTheLastOfTheLog();
    void findsItWhereverItStands_data();
    void findsItWhereverItStands();
    void givesUp();
    void doesNotReadWhatIsNoLog();
};

namespace
{
const QByteArray stamp = QByteArrayLiteral("2026-11-21 12:30:05:007  ");
const QByteArray started = QByteArrayLiteral("[INFO]  [LoggerStarted] :: Build Date: 2026-11-20 10:00:00");
const QByteArray loading =
    QByteArrayLiteral("[TRACE]  [CScanFile::initEngine] :: Successfully Scan Engine Initialize.");
const QByteArray loaded =
    QByteArrayLiteral("[TRACE]  [CScanFile::loadDatabases] :: Successfully Compiled Engine.");
const QByteArray failed = QByteArrayLiteral(
    "[ERROR]  [CScanFile::loadDatabases] :: [0x00000000]: Failed to load database. Path: a b.cvd Error: 4");

QByteArray logOf(const QByteArrayList& lines)
{
    QByteArray text;
    for (const QByteArray& line : lines) {
        text += stamp + line + "\r\n";
    }
    return text;
}

LoadOutcome outcomeIn(const QByteArray& log, qint64 maxBytes = 1024LL * 1024 * 1024)
{
    QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("log"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(log) != log.size()) {
        qFatal("cannot write the log");
    }
    file.close();
    return readLoadOutcome(path, maxBytes);
}
} // namespace

void TestLoadOutcome::readsALine_data()
{
    QTest::addColumn<QByteArray>("rest");
    QTest::addColumn<Result>("result");
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("code");
    const QByteArray error = "[ERROR]  [CScanFile::loadDatabases] :: [0x0000000C]: ";
    QTest::newRow("started") << started << Result::Starting << QString() << 0;
    QTest::newRow("loading") << loading << Result::Loading << QString() << 0;
    QTest::newRow("loaded") << loaded << Result::Loaded << QString() << 0;
    QTest::newRow("not loaded") << failed << Result::Failed << QStringLiteral("a b.cvd") << 4;
    QTest::newRow("not compiled") << error + "Failed to compile engine. Error: 20" << Result::Failed
                                  << QString() << 20;
    QTest::newRow("no engine") << QByteArray("[ERROR]  [CScanFile::initEngine] :: [0x00000000]: "
                                             "Failed to create scan engine!")
                               << Result::Failed << QString() << 0;
    QTest::newRow("no library") << QByteArray("[ERROR]  [CScanFile::initEngine] :: [0x00000000]: "
                                              "Failed to init scan engine!")
                                << Result::Failed << QString() << 0;
}

void TestLoadOutcome::readsALine()
{
    QFETCH(const QByteArray, rest);
    const auto outcome = loadOutcomeOfLine(stamp + rest);
    QVERIFY(outcome);
    QTEST(outcome->result, "result");
    QTEST(outcome->file, "file");
    QTEST(outcome->errorCode, "code");
    QCOMPARE(outcome->time, QDateTime(QDate(2026, 11, 21), QTime(12, 30, 5, 7)));
}

void TestLoadOutcome::leavesOtherLinesAlone_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("counter") << QByteArray("Repeated [00001] times.");
    QTest::newRow("no time") << loaded;
    QTest::newRow("bad time") << "2026-13-21 12:30:05:007  " + loaded;
    QTest::newRow("one blank") << stamp.chopped(1) + loaded;
    QTest::newRow("other level") << stamp + QByteArray(loaded).replace("TRACE", "INFO");
    QTest::newRow("other place") << stamp + QByteArray(loaded).replace("loadDatabases", "scanFile");
    QTest::newRow("more text") << stamp + loaded + " ";
    QTest::newRow("no code") << stamp + QByteArray(failed).replace("Error: 4", "Error: x");
    QTest::newRow("no number") << stamp + QByteArray(failed).replace("[0x00000000]: ", "");
    // What a file may be called.
    QTest::newRow("in a name")
        << stamp +
               "[ERROR]  [FileMonitor::scanFile] :: [0x00000002]: Error File Scanning | "
               "Error:8 | /home/u/" +
               stamp + loaded;
    QTest::newRow("settings") << stamp +
                                     "[TRACE]  [CScanManager::loadSettings] :: Settings loaded successfully.";
}

void TestLoadOutcome::leavesOtherLinesAlone()
{
    QFETCH(const QByteArray, line);
    QVERIFY(!loadOutcomeOfLine(line));
}

void TestLoadOutcome::takesTheLastOfTheLog_data()
{
    QTest::addColumn<QByteArray>("log");
    QTest::addColumn<Result>("result");
    const QByteArray other = "[INFO]  [CSocketThread::runSocketListner] :: Socket Listening";
    QTest::newRow("empty") << QByteArray() << Result::Unknown;
    QTest::newRow("other things") << logOf({other, other}) << Result::Unknown;
    QTest::newRow("loaded") << logOf({started, other, loading, loaded, other}) << Result::Loaded;
    QTest::newRow("only line") << logOf({loaded}) << Result::Loaded;
    QTest::newRow("failed") << logOf({started, loading, failed, other}) << Result::Failed;
    QTest::newRow("failed later") << logOf({started, loading, loaded, other, loading, failed})
                                  << Result::Failed;
    QTest::newRow("mended") << logOf({started, loading, failed, loading, loaded}) << Result::Loaded;
    QTest::newRow("started again") << logOf({started, loading, loaded, started, other}) << Result::Starting;
    QTest::newRow("loading again") << logOf({started, loading, loaded, other, loading}) << Result::Loading;
    QTest::newRow("repeated") << logOf({started, loading, loaded, other}) + "Repeated [00007] times.\r\n"
                              << Result::Loaded;
    QTest::newRow("being written") << logOf({started, loading, loaded}) + stamp + failed.chopped(3)
                                   << Result::Loaded;
    QTest::newRow("nothing but that") << stamp + loaded << Result::Unknown;
    QTest::newRow("other line ends") << logOf({started}) + stamp + loaded + "\n" << Result::Starting;
}

void TestLoadOutcome::takesTheLastOfTheLog()
{
    QFETCH(const QByteArray, log);
    QTEST(outcomeIn(log).result, "result");
}

void TestLoadOutcome::findsItWhereverItStands_data()
{
    // Around the borders of what is read at once.
    QTest::addColumn<int>("behind");
    for (const int border : {64 * 1024, 128 * 1024}) {
        for (int shift = -160; shift <= 8; ++shift) {
            QTest::addRow("%d", border + shift) << border + shift;
        }
    }
}

void TestLoadOutcome::findsItWhereverItStands()
{
    QFETCH(const int, behind);
    const QByteArray line = stamp + "[INFO]  [x] :: y\r\n";
    QByteArray rest = line.repeated(behind / line.size() - 1);
    rest += stamp + "[INFO]  [x] :: " + QByteArray(behind - rest.size() - stamp.size() - 17, 'z') + "\r\n";
    QCOMPARE(rest.size(), behind);
    QCOMPARE(outcomeIn(logOf({started, failed}) + rest).file, QStringLiteral("a b.cvd"));
}

void TestLoadOutcome::givesUp()
{
    const QByteArray log = logOf({loaded}) + QByteArray(1024 * 1024, 'x') + "\r\n";
    QCOMPARE(outcomeIn(log, 256 * 1024).result, Result::Unknown);
    // A line without an end is no matter either.
    QCOMPARE(outcomeIn(logOf({loaded}) + QByteArray(8 * 1024 * 1024, 'x')).result, Result::Loaded);
    QCOMPARE(outcomeIn(logOf({loaded}) + QByteArray(8 * 1024 * 1024, 'x') + "\r\n").result, Result::Loaded);
}

void TestLoadOutcome::doesNotReadWhatIsNoLog()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("log"));
    QCOMPARE(readLoadOutcome(path).result, Result::Unknown);
    QCOMPARE(::mkfifo(path.toUtf8().constData(), 0600), 0);
    QCOMPARE(readLoadOutcome(path).result, Result::Unknown);
    QFile target(directory.filePath(QStringLiteral("target")));
    QVERIFY(target.open(QIODevice::WriteOnly));
    target.write(logOf({loaded}));
    target.close();
    QCOMPARE(readLoadOutcome(target.fileName()).result, Result::Loaded);
    QVERIFY(QFile::remove(path));
    QVERIFY(target.link(path));
    QCOMPARE(readLoadOutcome(path).result, Result::Unknown);
}

QTEST_GUILESS_MAIN(TestLoadOutcome)
#include "tst_loadoutcome.moc"
