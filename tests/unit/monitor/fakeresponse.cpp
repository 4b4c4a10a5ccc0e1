#include "fakeresponse.h"

#include "platform/tvcore/protectionconfig.h"
#include "platform/tvcore/virusconfig.h"
#include "platform/tvnotify/tvnotify.h"
#include "scan/cscanmanager.h"

#include <cerrno>

QStringList FakeResponse::calls;
bool FakeResponse::protectionOn = true;
int FakeResponse::protectionAsked = 0;
int FakeResponse::scanResult = 0;
int FakeResponse::scanErrno = 0;
QString FakeResponse::virusName;
QStringList FakeResponse::scanned;
QStringList FakeResponse::virusNamesPassedIn;
int FakeResponse::cleanResult = 0;
QStringList FakeResponse::cleaned;
QVector<VirusReport> FakeResponse::records;
bool FakeResponse::recordResult = true;
QVector<FakeResponse::Popup> FakeResponse::popups;

void FakeResponse::reset()
{
    calls.clear();
    protectionOn = true;
    protectionAsked = 0;
    scanResult = 0;
    scanErrno = 0;
    virusName.clear();
    scanned.clear();
    virusNamesPassedIn.clear();
    cleanResult = 0;
    cleaned.clear();
    records.clear();
    recordResult = true;
    popups.clear();
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

int CScanManager::scanFile(const QString& path, const HeldFile& /*file*/, QString& virusName)
{
    FakeResponse::calls.append(QStringLiteral("scan ") + path);
    FakeResponse::scanned.append(path);
    FakeResponse::virusNamesPassedIn.append(virusName);
    if (FakeResponse::scanResult == 1) {
        virusName = FakeResponse::virusName;
    }
    errno = FakeResponse::scanErrno;
    return FakeResponse::scanResult;
}

int CScanManager::cleanFile(const QString& path, const HeldFile& /*file*/)
{
    FakeResponse::calls.append(QStringLiteral("clean ") + path);
    FakeResponse::cleaned.append(path);
    return FakeResponse::cleanResult;
}

ProtectionConfig::ProtectionConfig() = default;

bool ProtectionConfig::isOnlineProtectionEnabled() const
{
    ++FakeResponse::protectionAsked;
    return FakeResponse::protectionOn;
}

VirusConfig::VirusConfig() = default;

bool VirusConfig::addVirusReport(const VirusReport& report)
{
    FakeResponse::calls.append(QStringLiteral("record"));
    FakeResponse::records.append(report);
    return FakeResponse::recordResult;
}

class PopupSender
{
};

Tvnotify::Tvnotify() = default;
Tvnotify::~Tvnotify() = default;

void Tvnotify::showPopupToUser(const QString& title, const QString& message, const QString& popupType,
                               const QString& iconPath, const QString& primaryAction,
                               const QString& secondaryAction, int position, const QString& moduleName,
                               const QString& closeAt)
{
    FakeResponse::calls.append(QStringLiteral("popup"));
    FakeResponse::popups.append(
        {title, message, popupType, iconPath, primaryAction, secondaryAction, position, moduleName, closeAt});
}
