#include "tvctl/health/storefacts.h"

#include "platform/tvcore/iocscanconfig.h"
#include "platform/tvcore/protectionconfig.h"
#include "platform/tvcore/scanconfig.h"
#include "platform/tvcore/virusconfig.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/installation/storeaccess.h"

#include <QDateTime>
#include <QDir>
#include <QRegularExpression>

#include <unistd.h>

StoreFacts StoreFacts::read(const Installation& installation)
{
    StoreFacts facts;
    try {
        StoreAccess::requireSettings(installation);
        const IOCScanConfig ioc;
        facts.isRealtimeOn = ProtectionConfig().isOnlineProtectionEnabled();
        facts.scanAction = ScanConfig().getScanSetting().getScanActionSetting();
        facts.isIocOn = ioc.getScanSettings().getEnable();
        facts.iocAction = ioc.getScanSettings().getAction();
        facts.md5Hashes = qMax(0, ioc.getHashCount(IOCScanConfig::MD5));
        facts.sha1Hashes = qMax(0, ioc.getHashCount(IOCScanConfig::SHA1));
        facts.sha256Hashes = qMax(0, ioc.getHashCount(IOCScanConfig::SHA256));
    } catch (const ToolError& error) {
        facts.settingsProblem = error.message();
    }
    try {
        StoreAccess::requireReports(installation);
        facts.detectionsOfLastDay =
            VirusConfig().getVirusReportCount(QDateTime::currentDateTimeUtc().addDays(-1), QDateTime());
    } catch (const ToolError& error) {
        facts.reportsProblem = error.message();
    }
    facts.isHidden = ::geteuid() != 0 && !(facts.hasSettings() && facts.hasReports());
    // The database alone, not the log beside it.
    facts.damaged = QDir(installation.settings())
                        .entryList({QStringLiteral("*.db.corrupt-*")}, QDir::Files, QDir::Name)
                        .filter(QRegularExpression(QStringLiteral("(?<!-wal|-shm)$")));
    return facts;
}
