#pragma once

#include "platform/tvcore/tvcoreexport.h"

/// The stored scan settings, a plain value. A new one holds the defaults of an empty store.
class TVCORE_EXPORT ScanSetting
{
public:
    /// What to do with an infected file: 0 only reports it, any other value cleans it. Kept unchanged.
    int getScanActionSetting() const;
    void setScanActionSetting(int action);

    bool isScanArchiveFilesEnabled() const;
    void setScanArchiveFilesEnabled(bool enabled);
    bool isScanHeuristicEnabled() const;
    void setScanHeuristicEnabled(bool enabled);
    bool isScanHTMLFilesEnabled() const;
    void setScanHTMLFilesEnabled(bool enabled);
    bool isScanDOCFilesEnabled() const;
    void setScanDOCFilesEnabled(bool enabled);
    bool isScanSWFFilesEnabled() const;
    void setScanSWFFilesEnabled(bool enabled);
    bool isScanPDFFilesEnabled() const;
    void setScanPDFFilesEnabled(bool enabled);
    bool isScanMemoryAtStartupEnabled() const;
    void setScanMemoryAtStartupEnabled(bool enabled);
    bool isShowReportAfterScanEnabled() const;
    void setShowReportAfterScanEnabled(bool enabled);
    bool isShowErrorFilesEnabled() const;
    void setShowErrorFilesEnabled(bool enabled);
    bool isTakeBackupOfFilesEnabled() const;
    void setTakeBackupOfFilesEnabled(bool enabled);

private:
    int m_action = 1;
    bool m_archiveFiles = true;
    bool m_heuristic = false;
    bool m_htmlFiles = true;
    bool m_docFiles = true;
    bool m_swfFiles = true;
    bool m_pdfFiles = true;
    bool m_memoryAtStartup = false;
    bool m_showReportAfterScan = false;
    bool m_showErrorFiles = false;
    bool m_takeBackupOfFiles = false;
};
