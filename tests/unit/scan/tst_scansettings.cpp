#include "scan/scansettings.h"

#include <QTest>

#include <array>

using Getter = bool (ScanSettings::*)() const;
using Setter = void (ScanSettings::*)(bool);
Q_DECLARE_METATYPE(Getter)
Q_DECLARE_METATYPE(Setter)

namespace
{
struct Switch
{
    const char* name;
    Getter get;
    Setter set;
};

constexpr std::array<Switch, 11> switches = {{
    {"archives", &ScanSettings::ScanForArchives, &ScanSettings::setScanForArchives},
    {"heuristics", &ScanSettings::ScanForHeuristics, &ScanSettings::setScanForHeuristics},
    {"HTML and XML", &ScanSettings::ScanForHTML_XML, &ScanSettings::setScanForHTML_XML},
    {"documents", &ScanSettings::ScanForDoc_Xls, &ScanSettings::setScanForDoc_Xls},
    {"SWF", &ScanSettings::ScanForSWF, &ScanSettings::setScanForSWF},
    {"PDF", &ScanSettings::ScanForPDF, &ScanSettings::setScanForPDF},
    {"memory at start-up", &ScanSettings::ScanMemoryAtStartup, &ScanSettings::setScanMemoryAtStartup},
    {"report after scan", &ScanSettings::ShowReportAfterScan, &ScanSettings::setShowReportAfterScan},
    {"error files", &ScanSettings::ShowErrorFiles, &ScanSettings::setShowErrorFiles},
    {"removables", &ScanSettings::AutoScanRemovables, &ScanSettings::setAutoScanRemovables},
    {"backup", &ScanSettings::TakeBackupOfFiles, &ScanSettings::setTakeBackupOfFiles},
}};
} // namespace

class TestScanSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void startsWithTheDefaults();
    void keepsEachSwitchApart_data();
    void keepsEachSwitchApart();
    void keepsAnyValueUnchanged_data();
    void keepsAnyValueUnchanged();
    void isOneObject();
    void startsAfreshAfterRelease();
};

void TestScanSettings::cleanup()
{
    ScanSettings::releaseInstance();
}

void TestScanSettings::startsWithTheDefaults()
{
    const ScanSettings& settings = *ScanSettings::getInstance();
    QCOMPARE(static_cast<int>(settings.ScanMode()), 1);
    QCOMPARE(static_cast<int>(settings.ScanOption()), 1);
    QCOMPARE(static_cast<int>(settings.ScanActionSetting()), 0);
    for (const Switch& one : switches) {
        QVERIFY2(!(settings.*one.get)(), one.name);
    }
}

void TestScanSettings::keepsEachSwitchApart_data()
{
    QTest::addColumn<Getter>("get");
    QTest::addColumn<Setter>("set");
    for (const Switch& one : switches) {
        QTest::newRow(one.name) << one.get << one.set;
    }
}

void TestScanSettings::keepsEachSwitchApart()
{
    QFETCH(Getter, get);
    QFETCH(Setter, set);
    ScanSettings& settings = *ScanSettings::getInstance();
    (settings.*set)(true);
    for (const Switch& one : switches) {
        QVERIFY2((settings.*one.get)() == (one.get == get), one.name);
    }
    (settings.*set)(false);
    QVERIFY(!(settings.*get)());
}

void TestScanSettings::keepsAnyValueUnchanged_data()
{
    QTest::addColumn<int>("value");
    for (const int value : {0, 1, 2, 99, -1, INT_MAX, INT_MIN}) {
        QTest::addRow("%d", value) << value;
    }
}

void TestScanSettings::keepsAnyValueUnchanged()
{
    QFETCH(int, value);
    ScanSettings& settings = *ScanSettings::getInstance();
    settings.setScanMode(static_cast<ScanSettings::SCAN_MODE>(value));
    QCOMPARE(static_cast<int>(settings.ScanMode()), value);
    QCOMPARE(static_cast<int>(settings.ScanOption()), 1);
    settings.setScanOption(static_cast<ScanSettings::SCAN_OPTION>(value));
    QCOMPARE(static_cast<int>(settings.ScanOption()), value);
    QCOMPARE(static_cast<int>(settings.ScanActionSetting()), 0);
    settings.setScanActionSetting(static_cast<ScanSettings::SCAN_ACTION_SETTING>(value));
    QCOMPARE(static_cast<int>(settings.ScanActionSetting()), value);
}

void TestScanSettings::isOneObject()
{
    QCOMPARE(ScanSettings::getInstance(), ScanSettings::getInstance());
}

void TestScanSettings::startsAfreshAfterRelease()
{
    ScanSettings::getInstance()->setScanForPDF(true);
    ScanSettings::releaseInstance();
    QVERIFY(!ScanSettings::getInstance()->ScanForPDF());
    ScanSettings::releaseInstance();
    // Nothing to release is no error.
    ScanSettings::releaseInstance();
}

QTEST_APPLESS_MAIN(TestScanSettings)
#include "tst_scansettings.moc"
