#include "tvctl/sweep/background.h"

#include <QTest>

#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

class TestBackground : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void standsBackForAll();
};

void TestBackground::standsBackForAll()
{
    const bool isIdle = ::sched_getscheduler(0) == SCHED_IDLE;
    goToBackground();
    QCOMPARE(::getpriority(PRIO_PROCESS, 0), 19);
    // Not everybody may leave the idle class, which stands back even more.
    const int now = ::sched_getscheduler(0);
    QVERIFY(now == SCHED_BATCH || (isIdle && now == SCHED_IDLE));
    QCOMPARE(::syscall(SYS_ioprio_get, 1, 0) >> 13, 3L);
}

QTEST_GUILESS_MAIN(TestBackground)
#include "tst_background.moc"
