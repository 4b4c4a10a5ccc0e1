#include "common/abandonablework.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>

#include <chrono>
#include <future>
#include <thread>

#include <unistd.h>

using namespace std::chrono_literals;

/// What ends with the process happens in one of its own: this program started again with the name of a
/// scenario.
class TestAbandonableWork : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void abandonsWhatMayBe_data();
    void abandonsWhatMayBe();
    void isAwaitedWhileSomebodyWaits();
    void isCancelled();
};

namespace
{
constexpr int abandoned = 3;
constexpr int workWentOn = 4;

/// Ends the process once there is work to abandon, after a while in which that could go on.
void startAbandoning()
{
    std::thread([] {
        if (AbandonableWork::abandon()) {
            std::this_thread::sleep_for(200ms);
            ::_exit(abandoned);
        }
    }).detach();
    while (!AbandonableWork::isAwaited()) {
        std::this_thread::yield();
    }
}

void runScenario(const QByteArray& scenario)
{
    if (scenario == "work that has begun") {
        const AbandonableWork work;
        startAbandoning();
        // It is found at once.
        std::this_thread::sleep_for(50ms);
    } else if (scenario == "work that begins") {
        startAbandoning();
        const AbandonableWork work;
        ::_exit(workWentOn);
    } else if (scenario == "work in work") {
        const AbandonableWork outer;
        {
            const AbandonableWork inner;
        }
        startAbandoning();
        std::this_thread::sleep_for(50ms);
    } else if (scenario == "work that has ended") {
        {
            const AbandonableWork work;
        }
        startAbandoning();
        std::this_thread::sleep_for(500ms);
    }
    ::_exit(workWentOn);
}
} // namespace

void TestAbandonableWork::abandonsWhatMayBe_data()
{
    QTest::addColumn<QString>("scenario");
    QTest::addColumn<int>("status");
    QTest::newRow("begun") << QStringLiteral("work that has begun") << abandoned;
    QTest::newRow("begins") << QStringLiteral("work that begins") << abandoned;
    QTest::newRow("nested") << QStringLiteral("work in work") << abandoned;
    QTest::newRow("ended") << QStringLiteral("work that has ended") << workWentOn;
}

void TestAbandonableWork::abandonsWhatMayBe()
{
    QFETCH(QString, scenario);
    QFETCH(int, status);
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--scenario"), scenario});
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), status);
}

void TestAbandonableWork::isAwaitedWhileSomebodyWaits()
{
    QVERIFY(!AbandonableWork::isAwaited());
    auto waiting = std::async(std::launch::async, &AbandonableWork::abandon);
    QTRY_VERIFY(AbandonableWork::isAwaited());
    AbandonableWork::cancel();
    QVERIFY(!waiting.get());
    QVERIFY(!AbandonableWork::isAwaited());
}

void TestAbandonableWork::isCancelled()
{
    AbandonableWork::cancel();
    QVERIFY(!AbandonableWork::abandon());
    // Once.
    auto waiting = std::async(std::launch::async, &AbandonableWork::abandon);
    QCOMPARE(waiting.wait_for(50ms), std::future_status::timeout);
    AbandonableWork::cancel();
    QVERIFY(!waiting.get());
    const AbandonableWork work;
}

int main(int argc, char* argv[])
{
    if (argc == 3 && qstrcmp(argv[1], "--scenario") == 0) {
        runScenario(argv[2]);
    }
    QCoreApplication application(argc, argv);
    TestAbandonableWork test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_abandonablework.moc"
