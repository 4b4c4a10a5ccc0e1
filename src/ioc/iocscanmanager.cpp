#include "ioc/iocscanmanager.h"

#include "common/filename.h"
#include "common/heldfile.h"
#include "ioc/iocreportmanager.h"
#include "ioc/iocscanfile.h"
#include "logger/clogger.h"

#include <QByteArray>

#include <cerrno>

using LOGGER::CLogger;

namespace
{
enum Action : int
{
    ACTION_ALLOW = 0,
    ACTION_RENAME = 1,
    ACTION_DELETE = 2
};

enum Result : int
{
    RESULT_NONE = 0,
    RESULT_ALLOWED = 1,
    RESULT_RENAMED = 2,
    RESULT_DELETED = 3,
    RESULT_FAILED = 4
};

constexpr int sha1Length = 40;
constexpr int sha256Length = 64;

int hashKindOf(const QString& hash)
{
    switch (hash.size()) {
    case sha256Length:
        return 6;
    case sha1Length:
        return 5;
    default:
        return 4;
    }
}
} // namespace

IOCScanManager* IOCScanManager::_instance = nullptr;

IOCScanManager* IOCScanManager::getInstance()
{
    if (_instance == nullptr) {
        _instance = new IOCScanManager;
    }
    return _instance;
}

void IOCScanManager::releaseInstance()
{
    // The pointer stays as it is: nothing releases this manager while the service runs, and whoever did
    // could not go on without it.
    if (_instance != nullptr) {
        delete _instance;
    }
}

IOCScanManager::IOCScanManager()
    : m_scanFile(IOCScanFile::getInstance()),
      m_report(IOCReportManager::getInstance())
{
    loadSettings();
}

void IOCScanManager::loadSettings()
{
    m_settings = m_iocConfig.getScanSettings();
    if (m_settings.getEnable()) {
        m_scanFile->loadDatabases();
    }
    CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Settings loaded successfully.");
}

bool IOCScanManager::reloadSettings()
{
    CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Reload settings called.");
    loadSettings();
    return true;
}

bool IOCScanManager::reloadDatabase()
{
    return m_scanFile->reloadDatabases();
}

bool IOCScanManager::isDBLoaded()
{
    return m_scanFile->isDBLoaded();
}

bool IOCScanManager::isDBLoading()
{
    return m_scanFile->isDBLoading();
}

int IOCScanManager::scanFile(const QString& path, QString& hash)
{
    if (!m_settings.getEnable()) {
        return RESULT_NONE;
    }
    const QByteArray pathBytes = FileName::toBytes(path);
    // Held until the action is carried out: the path may lead to another file by then.
    const HeldFile file(pathBytes);
    if (m_scanFile->scanFile(path, file, hash) == 0) {
        return RESULT_NONE;
    }

    QString letters;
    int result = RESULT_NONE;
    switch (m_settings.getAction()) {
    case ACTION_RENAME: {
        const QByteArray newName = pathBytes + ".IOCOFF";
        const bool renamed = file.rename(newName.mid(newName.lastIndexOf('/') + 1));
        const int error = errno;
        letters = QStringLiteral("IR");
        result = renamed ? RESULT_RENAMED : RESULT_FAILED;
        if (renamed) {
            CLogger::getInstance()->Info(__PRETTY_FUNCTION__, "IOC File Renamed: %s", newName.constData());
        } else {
            CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "IOC Failed to Rename: %s",
                                          newName.constData());
        }
        break;
    }
    case ACTION_DELETE: {
        const bool removed = file.remove();
        const int error = errno;
        letters = QStringLiteral("ID");
        result = removed ? RESULT_DELETED : RESULT_FAILED;
        if (removed) {
            CLogger::getInstance()->Info(__PRETTY_FUNCTION__, "IOC File Removed: %s", pathBytes.constData());
        } else {
            CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "IOC Failed to Remove: %s",
                                          pathBytes.constData());
        }
        break;
    }
    case ACTION_ALLOW:
        letters = QStringLiteral("IA");
        result = RESULT_ALLOWED;
        break;
    default:
        // Reported without letters: nothing was done, and nobody said to allow it.
        break;
    }

    const int reported = m_report->addFileInReport(path, hash, letters, hashKindOf(hash));
    const int error = errno;
    if (reported == 0) {
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Failed to add report in IOC Scan Report.");
    }
    return result;
}
