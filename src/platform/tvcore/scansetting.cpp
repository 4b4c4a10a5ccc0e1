#include "platform/tvcore/scansetting.h"

int ScanSetting::getScanActionSetting() const
{
    return m_action;
}

void ScanSetting::setScanActionSetting(int action)
{
    m_action = action;
}

bool ScanSetting::isScanArchiveFilesEnabled() const
{
    return m_archiveFiles;
}

void ScanSetting::setScanArchiveFilesEnabled(bool enabled)
{
    m_archiveFiles = enabled;
}

bool ScanSetting::isScanHeuristicEnabled() const
{
    return m_heuristic;
}

void ScanSetting::setScanHeuristicEnabled(bool enabled)
{
    m_heuristic = enabled;
}

bool ScanSetting::isScanHTMLFilesEnabled() const
{
    return m_htmlFiles;
}

void ScanSetting::setScanHTMLFilesEnabled(bool enabled)
{
    m_htmlFiles = enabled;
}

bool ScanSetting::isScanDOCFilesEnabled() const
{
    return m_docFiles;
}

void ScanSetting::setScanDOCFilesEnabled(bool enabled)
{
    m_docFiles = enabled;
}

bool ScanSetting::isScanSWFFilesEnabled() const
{
    return m_swfFiles;
}

void ScanSetting::setScanSWFFilesEnabled(bool enabled)
{
    m_swfFiles = enabled;
}

bool ScanSetting::isScanPDFFilesEnabled() const
{
    return m_pdfFiles;
}

void ScanSetting::setScanPDFFilesEnabled(bool enabled)
{
    m_pdfFiles = enabled;
}

bool ScanSetting::isScanMemoryAtStartupEnabled() const
{
    return m_memoryAtStartup;
}

void ScanSetting::setScanMemoryAtStartupEnabled(bool enabled)
{
    m_memoryAtStartup = enabled;
}

bool ScanSetting::isShowReportAfterScanEnabled() const
{
    return m_showReportAfterScan;
}

void ScanSetting::setShowReportAfterScanEnabled(bool enabled)
{
    m_showReportAfterScan = enabled;
}

bool ScanSetting::isShowErrorFilesEnabled() const
{
    return m_showErrorFiles;
}

void ScanSetting::setShowErrorFilesEnabled(bool enabled)
{
    m_showErrorFiles = enabled;
}

bool ScanSetting::isTakeBackupOfFilesEnabled() const
{
    return m_takeBackupOfFiles;
}

void ScanSetting::setTakeBackupOfFilesEnabled(bool enabled)
{
    m_takeBackupOfFiles = enabled;
}
