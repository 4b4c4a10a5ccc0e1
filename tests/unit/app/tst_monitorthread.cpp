#include "app/monitorthread.h"

#include "support/logreader.h"

#include <QSignalSpy>
#include <QTest>

#include <atomic>
#include <cerrno>

namespace
{
std::atomic<int> inotifyAsked = 0;
} // namespace

// The monitor finds no inotify, so that nothing of this machine is watched.
extern "C" int inotify_init1(int) noexcept
{
    ++inotifyAsked;
    errno = EMFILE;
    return -1;
}

class TestMonitorThread : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsItsMonitorAndEnds();
    void saysThatItStops();
    void nothingEmitsAboutToStop();
};

void TestMonitorThread::startsItsMonitorAndEnds()
{
    MonitorThread thread;
    QVERIFY(thread.parent() == nullptr);
    QCOMPARE(inotifyAsked.load(), 0);
    thread.start();
    QVERIFY(thread.wait(20000));
    QCOMPARE(inotifyAsked.load(), 1);
}

void TestMonitorThread::saysThatItStops()
{
    MonitorThread thread;
    LogReader log;
    thread.start();
    thread.stop();
    QVERIFY(thread.isFinished());
    QCOMPARE(log.takeNew(), QVector<LogLine>({{"TRACE", "MonitorThread::stop", "Stopping Monitoring!"}}));
}

void TestMonitorThread::nothingEmitsAboutToStop()
{
    MonitorThread thread;
    const QSignalSpy spy(&thread, &MonitorThread::aboutToStop);
    QVERIFY(spy.isValid());
    thread.start();
    thread.stop();
    QCOMPARE(spy.count(), 0);
}

QTEST_GUILESS_MAIN(TestMonitorThread)
#include "tst_monitorthread.moc"
