#include "tvctl/scanner/filecleaner.h"

#include "common/filename.h"
#include "platform/tvcore/scanconfig.h"
#include "tvctl/client/servicereply.h"

#include <QCryptographicHash>
#include <QDir>

#include <cerrno>

#include <sys/stat.h>

namespace
{
constexpr int reportOnly = 0;

bool isThere(const QString& path)
{
    struct stat status = {};
    return ::lstat(FileName::toBytes(path).constData(), &status) == 0;
}
} // namespace

FileCleaner::FileCleaner(ServiceConnection& connection, const Installation& installation,
                         std::optional<bool> isReportOnly)
    : m_connection(connection),
      m_installation(installation),
      m_isReportOnly(isReportOnly)
{
}

FileCleaner::Result FileCleaner::clean(const QString& path)
{
    const Request request = makeRequest(QByteArrayLiteral("CLEAN"), path);
    if (!request.isValid()) {
        return {Result::Kind::NotRemoved, QStringLiteral("not removed: ") + request.problem};
    }
    if (m_isReportOnly.value_or(false)) {
        return {Result::Kind::ReportOnly, QStringLiteral("not removed: the settings only allow reports")};
    }
    if (!isThere(path)) {
        return {Result::Kind::NotRemoved, QStringLiteral("not removed: it is not there any more")};
    }
    const int before = copiesOf(path);
    const auto reply = m_connection.ask(request);
    if (!reply) {
        return {Result::Kind::NoService, QStringLiteral("nobody knows whether it was removed")};
    }
    if (ServiceReply::clean(*reply) != ServiceReply::Clean::Removed) {
        return explainNotRemoved();
    }
    // A file that cannot be copied is removed all the same.
    const int after = copiesOf(path);
    if (before < 0 || after < 0) {
        return {Result::Kind::Removed, QStringLiteral("removed")};
    }
    return {Result::Kind::Removed, after > before
                                       ? QStringLiteral("removed; its copy is in the quarantine")
                                       : QStringLiteral("removed; there is no copy of it in the quarantine")};
}

FileCleaner::Result FileCleaner::explainNotRemoved() const
{
    return {Result::Kind::NotRemoved,
            m_isReportOnly
                ? QStringLiteral("not removed: tvfilemon could not do it; its log tells why: %1")
                      .arg(m_installation.logFile())
                : QStringLiteral("not removed: the settings only allow reports, or tvfilemon could "
                                 "not do it")};
}

/// How many copies of files at this path there are; -1 when that cannot be seen.
int FileCleaner::copiesOf(const QString& path) const
{
    const QDir quarantine(m_installation.quarantine());
    struct stat status = {};
    if (::stat(FileName::toBytes(quarantine.path()).constData(), &status) != 0) {
        // It is made with the first copy.
        return errno == ENOENT ? 0 : -1;
    }
    if (S_ISDIR(status.st_mode) && !quarantine.isReadable()) {
        return -1;
    }
    // A copy is named by the time and the digest of the path.
    const QByteArray digest =
        QCryptographicHash::hash(FileName::toBytes(path), QCryptographicHash::Md5).toHex();
    return quarantine.entryList({QStringLiteral("*_%1.tvq").arg(QString::fromLatin1(digest))}, QDir::Files)
        .size();
}

bool FileCleaner::isReportOnlyStored()
{
    return ScanConfig().getScanSetting().getScanActionSetting() == reportOnly;
}

QString FileCleaner::nameOf(Result::Kind kind)
{
    switch (kind) {
    case Result::Kind::Removed:
        return QStringLiteral("removed");
    case Result::Kind::ReportOnly:
        return QStringLiteral("report only");
    case Result::Kind::NoService:
        return QStringLiteral("unknown");
    default:
        return QStringLiteral("not removed");
    }
}
