#pragma once

#include <QDateTime>
#include <QStringList>

/// The scan switches in memory: what the engine reads on every scan and the manager on every clean.
///
/// Filled from the configuration store by CScanManager; values are kept as they come, unchecked.
/// Made and used on the main thread.
class ScanSettings
{
public:
    /// The values are the store's; nothing here interprets them.
    enum SCAN_MODE : int
    {
        SCAN_MODE_DEFAULT = 1
    };
    enum SCAN_OPTION : int
    {
        SCAN_OPTION_DEFAULT = 1
    };
    /// Any value but report-only means to clean.
    enum SCAN_ACTION_SETTING : int
    {
        SCAN_ACTION_REPORT_ONLY = 0,
        SCAN_ACTION_CLEAN = 1
    };

    static ScanSettings* getInstance();
    static void releaseInstance();

    ScanSettings(const ScanSettings&) = delete;
    ScanSettings& operator=(const ScanSettings&) = delete;

    SCAN_MODE ScanMode() const;
    void setScanMode(SCAN_MODE mode);
    SCAN_OPTION ScanOption() const;
    void setScanOption(SCAN_OPTION option);
    SCAN_ACTION_SETTING ScanActionSetting() const;
    void setScanActionSetting(SCAN_ACTION_SETTING action);
    bool ScanForArchives() const;
    void setScanForArchives(bool on);
    bool ScanForHeuristics() const;
    void setScanForHeuristics(bool on);
    bool ScanForHTML_XML() const;
    void setScanForHTML_XML(bool on);
    bool ScanForDoc_Xls() const;
    void setScanForDoc_Xls(bool on);
    bool ScanForSWF() const;
    void setScanForSWF(bool on);
    bool ScanForPDF() const;
    void setScanForPDF(bool on);
    bool ScanMemoryAtStartup() const;
    void setScanMemoryAtStartup(bool on);
    bool ShowReportAfterScan() const;
    void setShowReportAfterScan(bool on);
    bool ShowErrorFiles() const;
    void setShowErrorFiles(bool on);
    bool AutoScanRemovables() const;
    void setAutoScanRemovables(bool on);
    bool TakeBackupOfFiles() const;
    void setTakeBackupOfFiles(bool on);

private:
    ScanSettings() = default;
    ~ScanSettings() = default;

    static ScanSettings* _instance;

    SCAN_MODE m_scanMode = SCAN_MODE_DEFAULT;
    SCAN_OPTION m_scanOption = SCAN_OPTION_DEFAULT;
    SCAN_ACTION_SETTING m_scanAction = SCAN_ACTION_REPORT_ONLY;
    // Part of the suite's settings model; this service neither fills nor reads these three.
    QDateTime m_scheduleStart;
    QDateTime m_scheduleEnd;
    QStringList m_schedulePaths;
    bool m_archives = false;
    bool m_heuristics = false;
    bool m_htmlXml = false;
    bool m_docXls = false;
    bool m_swf = false;
    bool m_pdf = false;
    bool m_memoryAtStartup = false;
    bool m_reportAfterScan = false;
    bool m_errorFiles = false;
    bool m_autoScanRemovables = false;
    bool m_takeBackup = false;
};
