#include "common/common.h"

#include "common/builddate.h"
#include "common/installationroot.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>

#include <sys/stat.h>

namespace
{
/// A directory of the installation that is made on demand.
QString createdBelowRoot(const QString& leaf)
{
    return Common::createDirectoryIfNotExists(Common::getRootPath() + leaf);
}

QString formattedBuildDate(const QString& format)
{
    const QDateTime built = parseBuildDate(QStringLiteral(__DATE__), QStringLiteral(__TIME__));
    return QLocale::c().toString(built, format);
}
} // namespace

QString Common::getRootPath()
{
    static QString m_RootPath;
    if (m_RootPath.isEmpty()) {
        m_RootPath = installationRootOf(QCoreApplication::applicationDirPath());
    }
    return m_RootPath;
}

QString Common::getBinPath()
{
    return getRootPath() + QStringLiteral("/bin");
}

QString Common::getDbPath()
{
    return getRootPath() + QStringLiteral("/db");
}

QString Common::getIconsPath()
{
    return getRootPath() + QStringLiteral("/icons");
}

QString Common::getLibPath()
{
    return getRootPath() + QStringLiteral("/lib");
}

QString Common::getServicesPath()
{
    return createdBelowRoot(QStringLiteral("/services"));
}

QString Common::getSettingsPath()
{
    return createdBelowRoot(QStringLiteral("/settings"));
}

QString Common::getReportsPath()
{
    return createdBelowRoot(QStringLiteral("/reports"));
}

QString Common::getScanReportsPath()
{
    return createdBelowRoot(QStringLiteral("/reports/scanner"));
}

QString Common::getQuarantinePath()
{
    // Nobody else is to get at what lies in it.
    ::mkdir(QFile::encodeName(getRootPath() + QStringLiteral("/quarantine")).constData(), S_IRWXU);
    return createdBelowRoot(QStringLiteral("/quarantine"));
}

QString Common::getLogsPath()
{
    return createdBelowRoot(QStringLiteral("/logs"));
}

QString Common::getUpdPath()
{
    return createdBelowRoot(QStringLiteral("/upd"));
}

QString Common::getPolicyDirPath()
{
    return createdBelowRoot(QStringLiteral("/epl"));
}

QString Common::getWebPolicyDirPath()
{
    return createdBelowRoot(QStringLiteral("/wpl"));
}

QString Common::getAppPolicyDirPath()
{
    return createdBelowRoot(QStringLiteral("/apl"));
}

QString Common::getEdrDirPath()
{
    return createdBelowRoot(QStringLiteral("/edr"));
}

QString Common::getTempDirPath()
{
    QString path = createDirectoryIfNotExists(QStringLiteral("/var/tmp/tvtmp"));
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadUser |
                                    QFile::WriteUser | QFile::ExeUser | QFile::ReadGroup | QFile::WriteGroup |
                                    QFile::ExeGroup | QFile::ReadOther | QFile::WriteOther | QFile::ExeOther);
    return path;
}

QString Common::createDirectoryIfNotExists(const QString& path)
{
    // Asked several times for each file event, so without what QDir would put together first.
    struct stat status = {};
    // No path is the working directory, to QDir too.
    const QByteArray name = path.isEmpty() ? QByteArrayLiteral(".") : QFile::encodeName(path);
    const bool exists = ::stat(name.constData(), &status) == 0 && S_ISDIR(status.st_mode);
    if (!exists && !QDir().mkpath(path)) {
        qDebug() << "Failed to make directory! Error:";
    }
    return path;
}

QString Common::getBuildDateTime()
{
    // Every record of a detection has it.
    static const QString text = formattedBuildDate(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    return text;
}

QString Common::getBuildDate()
{
    return formattedBuildDate(QStringLiteral("yyyy-MM-dd"));
}

QString Common::getBuildVersion()
{
    return formattedBuildDate(QStringLiteral("yyyy.MM.dd.0"));
}

QString Common::getSizeInString(unsigned long long bytes)
{
    static const QStringList largerUnits = {QStringLiteral("KB"), QStringLiteral("MB"), QStringLiteral("GB"),
                                            QStringLiteral("TB")};
    constexpr double step = 1024.0;
    double value = static_cast<double>(bytes);
    QString unit = QStringLiteral("bytes");
    for (auto next = largerUnits.begin(); value >= step && next != largerUnits.end(); ++next) {
        value *= 1 / step;
        unit = *next;
    }
    return QString::number(value, 'f', 2) + QLatin1Char(' ') + unit;
}

unsigned long long Common::getPathSize(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        return 0;
    }
    if (info.isFile()) {
        return static_cast<unsigned long long>(info.size());
    }
    if (!info.isDir()) {
        return 0;
    }
    unsigned long long total = 0;
    const QFileInfoList entries =
        QDir(path).entryInfoList(QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QFileInfo& entry : entries) {
        total += getPathSize(entry.absoluteFilePath());
    }
    return total;
}
