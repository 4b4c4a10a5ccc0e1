#include "ioc/iocreportmanager.h"

#include "common/common.h"
#include "common/filename.h"
#include "common/uniquefd.h"
#include "ioc/iocreportline.h"

#include <QDateTime>

#include <fcntl.h>
#include <unistd.h>

namespace
{
constexpr mode_t reportMode = 0666;
} // namespace

IOCReportManager* IOCReportManager::_instance = nullptr;

IOCReportManager* IOCReportManager::getInstance()
{
    if (_instance == nullptr) {
        _instance = new IOCReportManager;
    }
    return _instance;
}

void IOCReportManager::releaseInstance()
{
    // The pointer stays as it is: nothing releases this manager while the service runs, and whoever did
    // could not go on without it.
    if (_instance != nullptr) {
        delete _instance;
    }
}

int IOCReportManager::addFileInReport(const QString& filePath, const QString& hash, const QString& action,
                                      int hashKind)
{
    // Once, for the name and the record: at midnight they would disagree otherwise.
    const QDateTime now = QDateTime::currentDateTime();
    const QByteArray name =
        FileName::toBytes(Common::getReportsPath() + QLatin1Char('/') + iocReportFileName(now));
    const QByteArray line = iocReportLine(now, filePath, hash, action, hashKind);
    const UniqueFd report(::open(name.constData(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, reportMode));
    if (!report.isValid()) {
        return 0;
    }
    // One call, so that a record of another writer never lands in the middle. A report that is cut short by
    // a full disk is no reason to answer the detection differently.
    [[maybe_unused]] const ssize_t written =
        ::write(report.get(), line.constData(), static_cast<size_t>(line.size()));
    return 1;
}
