#include "tvctl/installation/storeaccess.h"

#include "common/filename.h"
#include "platform/tvcore/iocscanconfig.h"
#include "platform/tvcore/tvcore.h"
#include "platform/tvcore/virusconfig.h"
#include "tvctl/console/toolerror.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QThread>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace
{
/// A person waits for a store that others use; the library's reads are made for a service, which does not.
constexpr qint64 patienceMs = 2000;
constexpr unsigned long pauseMs = 20;

QString lastMessage;

void keepMessage(QtMsgType /*type*/, const QMessageLogContext& context, const QString& message)
{
    if (context.category != nullptr && std::strcmp(context.category, "tvcore") == 0) {
        lastMessage = message;
    }
}

/// The library makes a store that is missing, but not where there is no installation.
void requireDirectory(const Installation& installation)
{
    const QByteArray directory = FileName::toBytes(installation.settings());
    struct stat status = {};
    if (::stat(directory.constData(), &status) != 0) {
        const int error = errno;
        if (error == ENOENT) {
            throw ToolError(
                QStringLiteral("there is no %1: start tvfilemon once, or name its root with --root")
                    .arg(installation.settings()));
        }
        throw ToolError(
            QStringLiteral("cannot reach %1: %2%3")
                .arg(installation.settings(), qt_error_string(error), StoreAccess::privilegeHint()));
    }
    if (::access(directory.constData(), R_OK | X_OK) != 0) {
        throw ToolError(
            QStringLiteral("cannot look into %1: %2%3")
                .arg(installation.settings(), qt_error_string(errno), StoreAccess::privilegeHint()));
    }
}

/// Whether `read` tells a number of records, which is negative when the store cannot be read.
template <typename Read> bool canRead(const Read& read)
{
    if (read() >= 0) {
        return true;
    }
    QElapsedTimer waiting;
    waiting.start();
    while (!waiting.hasExpired(patienceMs)) {
        QThread::msleep(pauseMs);
        if (read() >= 0) {
            // All that was to be told is that it took more than one try.
            lastMessage.clear();
            return true;
        }
    }
    return false;
}
} // namespace

void StoreAccess::begin(const Installation& installation)
{
    qInstallMessageHandler(keepMessage);
    TvCore::setDirectory(installation.settings());
}

void StoreAccess::requireSettings(const Installation& installation)
{
    requireDirectory(installation);
    if (!canRead([] { return IOCScanConfig().getHashCount(IOCScanConfig::MD5); })) {
        throw ToolError(notRead(QStringLiteral("the settings")));
    }
}

void StoreAccess::confirmSettings(const Installation& installation)
{
    if (!TvCore::couldReadSettings()) {
        // Says what is wrong, unless that has just passed.
        requireSettings(installation);
        throw ToolError(notRead(QStringLiteral("the settings")));
    }
}

void StoreAccess::requireReports(const Installation& installation)
{
    requireDirectory(installation);
    if (!canRead([] { return VirusConfig().getVirusReportCount(QDateTime(), QDateTime()); })) {
        throw ToolError(notRead(QStringLiteral("the detection records")));
    }
}

QString StoreAccess::takeMessage()
{
    QString message;
    message.swap(lastMessage);
    return message;
}

QString StoreAccess::notRead(const QString& what)
{
    const QString reason = takeMessage();
    return QStringLiteral("%1 cannot be read%2%3")
        .arg(what, reason.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(reason),
             ::geteuid() == 0 ? QStringLiteral("; try again when nobody else uses the store")
                              : privilegeHint());
}

QString StoreAccess::notWritten(const QString& what)
{
    const QString reason = takeMessage();
    return QStringLiteral("%1 could not be stored, nothing was changed%2%3")
        .arg(what, reason.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(reason), privilegeHint());
}

QString StoreAccess::privilegeHint()
{
    return ::geteuid() == 0 ? QString() : QStringLiteral("; run it as root: sudo tvctl ...");
}
