#include "scan/scansettings.h"

ScanSettings* ScanSettings::_instance = nullptr;

ScanSettings* ScanSettings::getInstance()
{
    if (_instance == nullptr) {
        _instance = new ScanSettings;
    }
    return _instance;
}

void ScanSettings::releaseInstance()
{
    delete _instance;
    _instance = nullptr;
}

ScanSettings::SCAN_MODE ScanSettings::ScanMode() const
{
    return m_scanMode;
}

void ScanSettings::setScanMode(SCAN_MODE mode)
{
    m_scanMode = mode;
}

ScanSettings::SCAN_OPTION ScanSettings::ScanOption() const
{
    return m_scanOption;
}

void ScanSettings::setScanOption(SCAN_OPTION option)
{
    m_scanOption = option;
}

ScanSettings::SCAN_ACTION_SETTING ScanSettings::ScanActionSetting() const
{
    return m_scanAction;
}

void ScanSettings::setScanActionSetting(SCAN_ACTION_SETTING action)
{
    m_scanAction = action;
}

bool ScanSettings::ScanForArchives() const
{
    return m_archives;
}

void ScanSettings::setScanForArchives(bool on)
{
    m_archives = on;
}

bool ScanSettings::ScanForHeuristics() const
{
    return m_heuristics;
}

void ScanSettings::setScanForHeuristics(bool on)
{
    m_heuristics = on;
}

bool ScanSettings::ScanForHTML_XML() const
{
    return m_htmlXml;
}

void ScanSettings::setScanForHTML_XML(bool on)
{
    m_htmlXml = on;
}

bool ScanSettings::ScanForDoc_Xls() const
{
    return m_docXls;
}

void ScanSettings::setScanForDoc_Xls(bool on)
{
    m_docXls = on;
}

bool ScanSettings::ScanForSWF() const
{
    return m_swf;
}

void ScanSettings::setScanForSWF(bool on)
{
    m_swf = on;
}

bool ScanSettings::ScanForPDF() const
{
    return m_pdf;
}

void ScanSettings::setScanForPDF(bool on)
{
    m_pdf = on;
}

bool ScanSettings::ScanMemoryAtStartup() const
{
    return m_memoryAtStartup;
}

void ScanSettings::setScanMemoryAtStartup(bool on)
{
    m_memoryAtStartup = on;
}

bool ScanSettings::ShowReportAfterScan() const
{
    return m_reportAfterScan;
}

void ScanSettings::setShowReportAfterScan(bool on)
{
    m_reportAfterScan = on;
}

bool ScanSettings::ShowErrorFiles() const
{
    return m_errorFiles;
}

void ScanSettings::setShowErrorFiles(bool on)
{
    m_errorFiles = on;
}

bool ScanSettings::AutoScanRemovables() const
{
    return m_autoScanRemovables;
}

void ScanSettings::setAutoScanRemovables(bool on)
{
    m_autoScanRemovables = on;
}

bool ScanSettings::TakeBackupOfFiles() const
{
    return m_takeBackup;
}

void ScanSettings::setTakeBackupOfFiles(bool on)
{
    m_takeBackup = on;
}
