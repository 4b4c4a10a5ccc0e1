#include "platform/tvcore/scansetting.h"

#include <QTest>

namespace
{
struct Switch
{
    const char* name;
    bool (ScanSetting::*get)() const;
    void (ScanSetting::*set)(bool);
    bool byDefault;
};

const Switch switches[] = {
    {"archives", &ScanSetting::isScanArchiveFilesEnabled, &ScanSetting::setScanArchiveFilesEnabled, true},
    {"heuristics", &ScanSetting::isScanHeuristicEnabled, &ScanSetting::setScanHeuristicEnabled, false},
    {"HTML", &ScanSetting::isScanHTMLFilesEnabled, &ScanSetting::setScanHTMLFilesEnabled, true},
    {"documents", &ScanSetting::isScanDOCFilesEnabled, &ScanSetting::setScanDOCFilesEnabled, true},
    {"SWF", &ScanSetting::isScanSWFFilesEnabled, &ScanSetting::setScanSWFFilesEnabled, true},
    {"PDF", &ScanSetting::isScanPDFFilesEnabled, &ScanSetting::setScanPDFFilesEnabled, true},
    {"memory", &ScanSetting::isScanMemoryAtStartupEnabled, &ScanSetting::setScanMemoryAtStartupEnabled,
     false},
    {"report", &ScanSetting::isShowReportAfterScanEnabled, &ScanSetting::setShowReportAfterScanEnabled,
     false},
    {"error files", &ScanSetting::isShowErrorFilesEnabled, &ScanSetting::setShowErrorFilesEnabled, false},
    {"backup", &ScanSetting::isTakeBackupOfFilesEnabled, &ScanSetting::setTakeBackupOfFilesEnabled, false},
};
} // namespace

class TestScanSetting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hasTheDefaultsOfAnEmptyStore();
    void eachSwitchChangesItselfAlone();
    void keepsAnyAction_data();
    void keepsAnyAction();
};

void TestScanSetting::hasTheDefaultsOfAnEmptyStore()
{
    const ScanSetting setting;
    QCOMPARE(setting.getScanActionSetting(), 1);
    for (const Switch& each : switches) {
        QVERIFY2((setting.*each.get)() == each.byDefault, each.name);
    }
}

void TestScanSetting::eachSwitchChangesItselfAlone()
{
    for (const Switch& changed : switches) {
        ScanSetting setting;
        (setting.*changed.set)(!changed.byDefault);
        for (const Switch& each : switches) {
            const bool expected = each.name == changed.name ? !each.byDefault : each.byDefault;
            QVERIFY2((setting.*each.get)() == expected, each.name);
        }
        QCOMPARE(setting.getScanActionSetting(), 1);
        (setting.*changed.set)(changed.byDefault);
        QVERIFY2((setting.*changed.get)() == changed.byDefault, changed.name);
    }
}

void TestScanSetting::keepsAnyAction_data()
{
    QTest::addColumn<int>("action");
    QTest::newRow("report only") << 0;
    QTest::newRow("clean") << 1;
    QTest::newRow("unknown") << 4711;
    QTest::newRow("negative") << -1;
}

void TestScanSetting::keepsAnyAction()
{
    QFETCH(int, action);
    ScanSetting setting;
    setting.setScanActionSetting(action);
    QCOMPARE(setting.getScanActionSetting(), action);
}

QTEST_GUILESS_MAIN(TestScanSetting)
#include "tst_scansetting.moc"
