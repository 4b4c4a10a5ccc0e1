#include "common/abandonablework.h"

#include <QTest>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

/// What ends with the process happens in a child of this one.
class TestAbandonableWork : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void abandonsWorkThatHasBegun();
    void abandonsWorkAsSoonAsItBegins();
    void doesNotAbandonOtherWork();
    void isAwaitedWhileSomebodyWaits();
    void isCancelled();
    void lastsAsLongAsTheOuter();
};

namespace
{
constexpr int abandoned = 3;
constexpr int workWentOn = 4;
constexpr int tooLate = 5;

template <typename Scenario> int statusOf(const Scenario& scenario)
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(60);
        scenario();
        ::_exit(tooLate);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Ends the process as soon as there is work to abandon, after a while in which that could go on.
std::thread startAbandoning()
{
    return std::thread([] {
        if (AbandonableWork::abandon()) {
            std::this_thread::sleep_for(100ms);
            ::_exit(abandoned);
        }
    });
}
} // namespace

void TestAbandonableWork::abandonsWorkThatHasBegun()
{
    QCOMPARE(statusOf([] {
                 {
                     const AbandonableWork work;
                     startAbandoning().detach();
                     while (!AbandonableWork::isAwaited()) {
                         std::this_thread::yield();
                     }
                     // It is found at once, and does not end in the time that is left.
                     std::this_thread::sleep_for(20ms);
                 }
                 ::_exit(workWentOn);
             }),
             abandoned);
}

void TestAbandonableWork::abandonsWorkAsSoonAsItBegins()
{
    QCOMPARE(statusOf([] {
                 startAbandoning().detach();
                 while (!AbandonableWork::isAwaited()) {
                     std::this_thread::yield();
                 }
                 {
                     const AbandonableWork work;
                     ::_exit(workWentOn);
                 }
             }),
             abandoned);
}

void TestAbandonableWork::doesNotAbandonOtherWork()
{
    QCOMPARE(statusOf([] {
                 {
                     const AbandonableWork work;
                 }
                 startAbandoning().detach();
                 std::this_thread::sleep_for(500ms);
                 ::_exit(workWentOn);
             }),
             workWentOn);
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

void TestAbandonableWork::lastsAsLongAsTheOuter()
{
    QCOMPARE(statusOf([] {
                 const AbandonableWork outer;
                 {
                     const AbandonableWork inner;
                 }
                 startAbandoning().detach();
                 std::this_thread::sleep_for(500ms);
                 ::_exit(workWentOn);
             }),
             abandoned);
}

QTEST_GUILESS_MAIN(TestAbandonableWork)
#include "tst_abandonablework.moc"
