#include "scan/cscanmanager.h"

#include "common/abandonablework.h"
#include "common/common.h"
#include "common/filename.h"
#include "common/heldfile.h"
#include "common/localtime.h"
#include "logger/clogger.h"
#include "platform/tvcore/scansetting.h"
#include "scan/cscanfile.h"
#include "scan/excludesettings.h"
#include "scan/quarantinecopy.h"
#include "scan/scansettings.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QFileDevice>

#include <cerrno>

using LOGGER::CLogger;

CScanManager* CScanManager::_instance = nullptr;

CScanManager* CScanManager::getInstance()
{
    if (_instance == nullptr) {
        _instance = new CScanManager;
    }
    return _instance;
}

void CScanManager::releaseInstance()
{
    // The pointer stays as it is: nothing releases this manager while the service runs, and whoever did
    // could not go on without it.
    if (_instance != nullptr) {
        delete _instance;
    }
}

CScanManager::CScanManager()
    : m_scanFile(CScanFile::getInstance()),
      m_settings(ScanSettings::getInstance()),
      m_excludes(ExcludeSettings::getInstance()),
      m_lastError(QFileDevice::NoError)
{
    loadSettings();
}

void CScanManager::loadSettings()
{
    const ScanSetting stored = m_scanConfig.getScanSetting();
    m_settings->setScanActionSetting(
        static_cast<ScanSettings::SCAN_ACTION_SETTING>(stored.getScanActionSetting()));
    m_settings->setScanForArchives(stored.isScanArchiveFilesEnabled());
    m_settings->setScanForHeuristics(stored.isScanHeuristicEnabled());
    m_settings->setScanForHTML_XML(stored.isScanHTMLFilesEnabled());
    m_settings->setScanForDoc_Xls(stored.isScanDOCFilesEnabled());
    m_settings->setScanForSWF(stored.isScanSWFFilesEnabled());
    m_settings->setScanForPDF(stored.isScanPDFFilesEnabled());
    m_settings->setScanMemoryAtStartup(stored.isScanMemoryAtStartupEnabled());
    m_settings->setShowReportAfterScan(stored.isShowReportAfterScanEnabled());
    m_settings->setShowErrorFiles(stored.isShowErrorFilesEnabled());
    // Removable media hold archives: in this service the two switches always agree.
    m_settings->setAutoScanRemovables(stored.isScanArchiveFilesEnabled());
    m_settings->setTakeBackupOfFiles(stored.isTakeBackupOfFilesEnabled());
    CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Settings loaded successfully.");
}

bool CScanManager::reloadSettings()
{
    CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Reload settings called.");
    loadSettings();
    m_excludes->reloadExcludes();
    return true;
}

bool CScanManager::reloadDatabase()
{
    return m_scanFile->reloadDatabases();
}

bool CScanManager::isDBLoaded()
{
    return m_scanFile->isDBLoaded();
}

bool CScanManager::isDBLoading()
{
    return m_scanFile->isDBLoading();
}

int CScanManager::scanFile(const QString& path, QString& virusName)
{
    return m_excludes->isFileExcluded(path) ? 0 : m_scanFile->scanFile(path, virusName);
}

int CScanManager::scanFile(const QString& path, const HeldFile& file, QString& virusName)
{
    return m_excludes->isFileExcluded(path) ? 0 : m_scanFile->scanFile(file, virusName);
}

int CScanManager::scanUrl(const QString& url, QString& virusName)
{
    return m_scanFile->scanUrl(url, virusName);
}

bool CScanManager::takebackupOfFile(const QString& path) const
{
    return takeBackup(path, HeldFile(FileName::toBytes(path)));
}

bool CScanManager::takeBackup(const QString& path, const HeldFile& file)
{
    const QString stamp = QString::fromStdString(LocalTime::now().name());
    const QByteArray digest =
        QCryptographicHash::hash(FileName::toBytes(path), QCryptographicHash::Md5).toHex();
    // The file's own name stays out of the quarantine: it is the attacker's text.
    const QString destination = Common::getQuarantinePath() + QLatin1Char('/') + stamp + QLatin1Char('_') +
                                QString::fromLatin1(digest) + QStringLiteral(".tvq");
    const int error = copyIntoQuarantine(file, destination);
    if (error != 0) {
        errno = error;
    }
    return error == 0;
}

int CScanManager::cleanFile(const QString& path)
{
    return cleanFile(path, HeldFile(FileName::toBytes(path)));
}

int CScanManager::cleanFile(const QString& path, const HeldFile& file)
{
    if (m_settings->ScanActionSetting() == ScanSettings::SCAN_ACTION_REPORT_ONLY) {
        return -1;
    }
    const QByteArray name = FileName::toBytes(path);
    int error = 0;
    if (!takeBackup(path, file)) {
        error = errno;
        // An infected file without a copy is still better gone.
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Failed to take backup of file: %s",
                                      name.constData());
    }
    // Unless the copy was only given up because the service ends. A file system may answer the same.
    if (error != ECANCELED || !AbandonableWork::isAwaited()) {
        if (file.remove()) {
            return 0;
        }
        error = errno;
    }
    // An empty path is no removal that failed: Qt tells the two apart, and so do the clients that read this.
    m_lastError = path.isEmpty() ? QFileDevice::NoError : QFileDevice::RemoveError;
    CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Failed to clean file: %s. Error: %d",
                                  name.constData(), m_lastError);
    return 1;
}

int CScanManager::getLastError()
{
    return m_lastError;
}
