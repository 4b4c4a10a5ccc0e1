#include "support/fakescanners.h"

#include "ioc/iocscanmanager.h"
#include "scan/cscanmanager.h"

QStringList FakeScanners::calls;
int FakeScanners::scanResult = 0;
int FakeScanners::urlResult = 0;
QString FakeScanners::virusName;
int FakeScanners::cleanResult = 0;
int FakeScanners::lastError = 0;
int FakeScanners::iocResult = 0;
QString FakeScanners::hash;
bool FakeScanners::reloadResult = true;
int FakeScanners::timesLoading = 0;
int FakeScanners::timesIocLoading = 0;
int FakeScanners::loadingAsked = 0;
int FakeScanners::iocLoadingAsked = 0;

void FakeScanners::reset()
{
    calls.clear();
    scanResult = 0;
    urlResult = 0;
    virusName.clear();
    cleanResult = 0;
    lastError = 0;
    iocResult = 0;
    hash.clear();
    reloadResult = true;
    timesLoading = 0;
    timesIocLoading = 0;
    loadingAsked = 0;
    iocLoadingAsked = 0;
}

CScanManager* CScanManager::_instance = nullptr;

CScanManager* CScanManager::getInstance()
{
    if (_instance == nullptr) {
        _instance = new CScanManager;
    }
    return _instance;
}

CScanManager::CScanManager() : m_scanFile(nullptr), m_settings(nullptr), m_excludes(nullptr), m_lastError(0)
{
}

bool CScanManager::isDBLoading()
{
    ++FakeScanners::loadingAsked;
    return FakeScanners::timesLoading-- > 0;
}

int CScanManager::scanFile(const QString& path, QString& virusName)
{
    FakeScanners::calls.append(QStringLiteral("scan ") + path);
    if (FakeScanners::scanResult == 1) {
        virusName = FakeScanners::virusName;
    }
    return FakeScanners::scanResult;
}

int CScanManager::scanUrl(const QString& url, QString& virusName)
{
    FakeScanners::calls.append(QStringLiteral("url ") + url);
    if (FakeScanners::urlResult == 1) {
        virusName = FakeScanners::virusName.isEmpty() ? url : FakeScanners::virusName;
    }
    return FakeScanners::urlResult;
}

int CScanManager::cleanFile(const QString& path)
{
    FakeScanners::calls.append(QStringLiteral("clean ") + path);
    return FakeScanners::cleanResult;
}

int CScanManager::getLastError()
{
    return FakeScanners::lastError;
}

bool CScanManager::reloadDatabase()
{
    FakeScanners::calls.append(QStringLiteral("reload db"));
    return FakeScanners::reloadResult;
}

bool CScanManager::reloadSettings()
{
    FakeScanners::calls.append(QStringLiteral("reload settings"));
    return FakeScanners::reloadResult;
}

IOCScanManager* IOCScanManager::_instance = nullptr;

IOCScanManager* IOCScanManager::getInstance()
{
    if (_instance == nullptr) {
        _instance = new IOCScanManager;
    }
    return _instance;
}

IOCScanManager::IOCScanManager() : m_scanFile(nullptr), m_report(nullptr)
{
}

bool IOCScanManager::isDBLoading()
{
    ++FakeScanners::iocLoadingAsked;
    return FakeScanners::timesIocLoading-- > 0;
}

int IOCScanManager::scanFile(const QString& path, QString& hash)
{
    FakeScanners::calls.append(QStringLiteral("ioc ") + path);
    if (FakeScanners::iocResult != 0) {
        hash = FakeScanners::hash;
    }
    return FakeScanners::iocResult;
}

bool IOCScanManager::reloadDatabase()
{
    FakeScanners::calls.append(QStringLiteral("reload ioc db"));
    return FakeScanners::reloadResult;
}

bool IOCScanManager::reloadSettings()
{
    FakeScanners::calls.append(QStringLiteral("reload ioc settings"));
    return FakeScanners::reloadResult;
}
