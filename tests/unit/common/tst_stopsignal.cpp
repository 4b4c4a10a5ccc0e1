#include "common/stopsignal.h"

#include <QElapsedTimer>
#include <QTest>

#include <array>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

using namespace std::chrono_literals;

class TestStopSignal : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sleepsForTheTime();
    void endsASleep();
    void doesNotSleepAfterwards();
    void waitsForInput();
    void endsAWaitForInput();
    void prefersTheStopToInput();
};

void TestStopSignal::sleepsForTheTime()
{
    const StopSignal signal;
    QElapsedTimer timer;
    timer.start();
    signal.sleep(120ms);
    QVERIFY(timer.elapsed() >= 120);
    QVERIFY(!signal.isRaised());
}

void TestStopSignal::endsASleep()
{
    StopSignal signal;
    QElapsedTimer timer;
    timer.start();
    std::thread sleeper([&signal] { signal.sleep(60s); });
    signal.raise();
    sleeper.join();
    QVERIFY(signal.isRaised());
    QVERIFY(timer.elapsed() < 10000);
}

void TestStopSignal::doesNotSleepAfterwards()
{
    StopSignal signal;
    signal.raise();
    signal.raise();
    QElapsedTimer timer;
    timer.start();
    signal.sleep(60s);
    signal.sleep(60s);
    QVERIFY(timer.elapsed() < 10000);
}

void TestStopSignal::waitsForInput()
{
    std::array<int, 2> ends = {};
    QCOMPARE(::pipe2(ends.data(), O_CLOEXEC), 0);
    const StopSignal signal;
    std::thread writer([&ends] {
        std::this_thread::sleep_for(20ms);
        [[maybe_unused]] const ssize_t written = ::write(ends[1], "x", 1);
    });
    QVERIFY(signal.waitForInput(ends[0]));
    char byte = 0;
    QCOMPARE(::read(ends[0], &byte, 1), ssize_t(1));
    writer.join();
    // The end of the other side is something to be told, too.
    ::close(ends[1]);
    QVERIFY(signal.waitForInput(ends[0]));
    ::close(ends[0]);
}

void TestStopSignal::endsAWaitForInput()
{
    std::array<int, 2> ends = {};
    QCOMPARE(::pipe2(ends.data(), O_CLOEXEC), 0);
    StopSignal signal;
    bool answer = true;
    std::thread waiter([&] { answer = signal.waitForInput(ends[0]); });
    signal.raise();
    waiter.join();
    QVERIFY(!answer);
    ::close(ends[0]);
    ::close(ends[1]);
}

void TestStopSignal::prefersTheStopToInput()
{
    std::array<int, 2> ends = {};
    QCOMPARE(::pipe2(ends.data(), O_CLOEXEC), 0);
    QCOMPARE(::write(ends[1], "x", 1), ssize_t(1));
    StopSignal signal;
    signal.raise();
    QVERIFY(!signal.waitForInput(ends[0]));
    ::close(ends[0]);
    ::close(ends[1]);
}

QTEST_GUILESS_MAIN(TestStopSignal)
#include "tst_stopsignal.moc"
