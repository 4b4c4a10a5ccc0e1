#include "tvctl/health/packagefacts.h"

#include "common/filename.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <sys/stat.h>

namespace
{
constexpr int systemctlTimeoutMs = 5000;
constexpr mode_t forRoot = 0700;
constexpr mode_t forAll = 0755;

PackageFacts::Link linkOf(const QString& root, const QString& name, const QString& target, mode_t mode)
{
    PackageFacts::Link link;
    link.path = root + QLatin1Char('/') + name;
    link.expectedTarget = target;
    link.expectedMode = mode;
    link.target = QFile::symLinkTarget(link.path);
    struct stat status = {};
    if (::stat(FileName::toBytes(link.path).constData(), &status) == 0) {
        link.isDirectory = S_ISDIR(status.st_mode);
        link.mode = status.st_mode & ALLPERMS;
        link.owner = status.st_uid;
    }
    return link;
}

QVector<PackageFacts::Link> linksOf(const QString& root)
{
    QVector<PackageFacts::Link> links;
    const QString state = QStringLiteral("/var/lib/talvenor/");
    for (const char* name : {"db", "upd"}) {
        links += linkOf(root, QLatin1String(name), state + QLatin1String(name), forAll);
    }
    for (const char* name : {"settings", "quarantine", "reports", "apl", "edr", "epl", "services", "wpl"}) {
        links += linkOf(root, QLatin1String(name), state + QLatin1String(name), forRoot);
    }
    links += linkOf(root, QStringLiteral("logs"), QStringLiteral("/var/log/talvenor"), forRoot);
    return links;
}

QVector<PackageFacts::Unit> unitsOfSystemd(const QStringList& names)
{
    if (!QFileInfo::exists(QStringLiteral("/run/systemd/system"))) {
        return {};
    }
    QProcess systemctl;
    // By its whole path: as root, nothing is started that somebody may have put into the way.
    systemctl.start(QStringLiteral("/usr/bin/systemctl"),
                    QStringList{QStringLiteral("show"),
                                QStringLiteral("--property=Id,LoadState,UnitFileState,ActiveState")} +
                        names);
    if (!systemctl.waitForFinished(systemctlTimeoutMs)) {
        systemctl.kill();
        systemctl.waitForFinished(systemctlTimeoutMs);
        return {};
    }
    return PackageFacts::parseUnits(systemctl.readAllStandardOutput());
}

bool isPackageAt(const QString& root)
{
    return root == QLatin1String("/usr/lib/Talvenor") &&
           QFileInfo::exists(QStringLiteral("/var/lib/dpkg/info/tvfilemon.list"));
}
} // namespace

QVector<PackageFacts::Unit> PackageFacts::parseUnits(const QByteArray& output)
{
    QVector<Unit> units;
    Unit unit;
    // An empty line stands between two units, and ends the last one here.
    const QStringList lines = QString::fromUtf8(output).split(QLatin1Char('\n')) + QStringList{QString()};
    for (const QString& line : lines) {
        const QString name = line.section(QLatin1Char('='), 0, 0);
        const QString value = line.section(QLatin1Char('='), 1);
        if (name == QLatin1String("Id")) {
            unit.name = value;
        } else if (name == QLatin1String("LoadState")) {
            unit.loadState = value;
        } else if (name == QLatin1String("UnitFileState")) {
            unit.fileState = value;
        } else if (name == QLatin1String("ActiveState")) {
            unit.activeState = value;
        } else if (line.isEmpty() && !unit.name.isEmpty()) {
            units += unit;
            unit = {};
        }
    }
    return units;
}

PackageFacts PackageFacts::gather(const QString& root)
{
    PackageFacts facts;
    facts.isPackage = isPackageAt(root);
    if (facts.isPackage) {
        facts.units = unitsOfSystemd(
            {QStringLiteral("tvfilemon.service"), QStringLiteral("tvfilemon-firewall.service"),
             QStringLiteral("tvfilemon-limits.service"), QStringLiteral("tvfilemon-update.timer"),
             QStringLiteral("tvfilemon-sweep.timer"), QStringLiteral("tvfilemon-full-sweep.timer")});
        facts.links = linksOf(root);
    }
    return facts;
}

bool PackageFacts::isUpdating(const QString& root)
{
    if (!isPackageAt(root)) {
        return false;
    }
    const QVector<Unit> units = unitsOfSystemd({QStringLiteral("tvfilemon-update.service")});
    return !units.isEmpty() && units.first().activeState == QLatin1String("activating");
}
