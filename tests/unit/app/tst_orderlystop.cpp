#include "app/orderlystop.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <cstdio>

#include <unistd.h>

/// The stop in processes of their own: this program started again with the name of a scenario.
class TestOrderlyStop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endsTheLoop_data();
    void endsTheLoop();
};

namespace
{
constexpr int stoppedInTime = 0;
constexpr int timedOut = 7;

/// Runs one scenario; the result is the exit status of the process.
int runScenario(const QByteArray& scenario)
{
    const OrderlyStop stop;
    QTimer::singleShot(20000, [] { QCoreApplication::exit(timedOut); });
    if (scenario == "before the loop") {
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
