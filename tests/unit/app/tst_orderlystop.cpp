#include "app/orderlystop.h"
#include "common/abandonablework.h"
#include "support/fakethreads.h"
#include "support/limiteddescriptors.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>
#include <QTimer>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <optional>
#include <thread>

#include <unistd.h>

/// The stop in processes of their own: this program started again with the name of a scenario.
class TestOrderlyStop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endsTheLoop_data();
    void endsTheLoop();
    void endsInTheMiddleOfWork_data();
    void endsInTheMiddleOfWork();
    void isKilledWithoutADescriptor();
};

namespace
{
constexpr int stoppedInTime = 0;
constexpr int timedOut = 7;
constexpr int workEnded = 8;

using namespace std::chrono_literals;

/// Longer than the stop waits for anything.
void workForLong()
{
    std::this_thread::sleep_for(10s);
}

void print(const char* text)
{
    std::fputs(text, stdout);
    std::fflush(stdout);
}

/// Runs one scenario; the result is the exit status of the process.
int runScenario(const QByteArray& scenario)
{
    FakeThreads::noneLeft = scenario == "without a thread";
    std::optional<LimitedDescriptors> none;
    if (scenario == "without a descriptor") {
        none.emplace(0);
    }
    const OrderlyStop stop([] { print("last work"); });
    none.reset();
    QTimer::singleShot(20000, [] { QCoreApplication::exit(timedOut); });
    if (scenario == "before the loop" || scenario == "without a descriptor") {
        ::raise(SIGTERM);
    } else if (scenario == "many before the loop") {
        for (int i = 0; i < 1000; ++i) {
            ::raise(SIGTERM);
        }
    } else if (scenario == "in the loop") {
        QTimer::singleShot(0, [] { ::raise(SIGTERM); });
    } else if (scenario == "interrupt") {
        QTimer::singleShot(0, [] { ::raise(SIGINT); });
    } else if (scenario == "broken pipe") {
        ::raise(SIGPIPE);
        QTimer::singleShot(0, [] { QCoreApplication::exit(stoppedInTime); });
    } else if (scenario == "in abandonable work") {
        const AbandonableWork work;
        ::raise(SIGTERM);
        workForLong();
        return workEnded;
    } else if (scenario == "before abandonable work") {
        ::raise(SIGTERM);
        while (!AbandonableWork::isAwaited()) {
            std::this_thread::sleep_for(1ms);
        }
        print("a step, ");
        const AbandonableWork work;
        return workEnded;
    } else if (scenario == "in brief work") {
        const AbandonableWork work;
        ::raise(SIGTERM);
    } else if (scenario == "without a thread") {
        const AbandonableWork work;
        ::raise(SIGTERM);
        std::this_thread::sleep_for(1s);
        print("work is over");
    } else if (scenario == "in work that counts") {
        ::raise(SIGTERM);
        std::this_thread::sleep_for(1s);
        print("a step");
    }
    return QCoreApplication::exec();
}
} // namespace

void TestOrderlyStop::endsTheLoop_data()
{
    QTest::addColumn<QString>("scenario");
    for (const char* scenario :
         {"before the loop", "many before the loop", "in the loop", "interrupt", "broken pipe"}) {
        QTest::newRow(scenario) << QString::fromLatin1(scenario);
    }
}

void TestOrderlyStop::endsTheLoop()
{
    QFETCH(QString, scenario);
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--scenario"), scenario});
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), stoppedInTime);
}

void TestOrderlyStop::endsInTheMiddleOfWork_data()
{
    QTest::addColumn<QString>("scenario");
    QTest::addColumn<QString>("done");
    QTest::newRow("in abandonable work")
        << QStringLiteral("in abandonable work") << QStringLiteral("last work");
    QTest::newRow("before abandonable work")
        << QStringLiteral("before abandonable work") << QStringLiteral("a step, last work");
    // These come to the loop.
    QTest::newRow("in brief work") << QStringLiteral("in brief work") << QString();
    QTest::newRow("in work that counts") << QStringLiteral("in work that counts") << QStringLiteral("a step");
    QTest::newRow("without a thread") << QStringLiteral("without a thread") << QStringLiteral("work is over");
}

void TestOrderlyStop::endsInTheMiddleOfWork()
{
    QFETCH(QString, scenario);
    QFETCH(QString, done);
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--scenario"), scenario});
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), stoppedInTime);
    QCOMPARE(QString::fromLatin1(process.readAllStandardOutput()), done);
}

void TestOrderlyStop::isKilledWithoutADescriptor()
{
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(),
                  {QStringLiteral("--scenario"), QStringLiteral("without a descriptor")});
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    QCOMPARE(process.exitCode(), SIGTERM);
}

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--scenario") == 0) {
        return runScenario(argv[2]);
    }
    TestOrderlyStop test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_orderlystop.moc"
