#include "app/processmonitor.h"

#include <QTest>

class TestProcessMonitor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsNothing();
};

void TestProcessMonitor::startsNothing()
{
    ProcessMonitor monitor;
    QVERIFY(monitor.parent() == nullptr);
    QVERIFY(!monitor.startMonitoring());
    QVERIFY(monitor.children().isEmpty());
}

QTEST_GUILESS_MAIN(TestProcessMonitor)
#include "tst_processmonitor.moc"
