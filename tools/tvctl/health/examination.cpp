#include "tvctl/health/examination.h"

#include "common/filename.h"
#include "tvctl/health/databasechecks.h"
#include "tvctl/health/packagechecks.h"
#include "tvctl/health/servicechecks.h"
#include "tvctl/health/servicefacts.h"
#include "tvctl/health/storefacts.h"
#include "tvctl/health/systemchecks.h"
#include "tvctl/installation/localadvice.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QVector>

#include <chrono>
#include <optional>

#include <unistd.h>

using std::chrono::milliseconds;

namespace
{
/// Long enough for a large file that is being scanned, mostly.
constexpr milliseconds serviceLimit(5000);
constexpr milliseconds walkLimit(10000);
/// Of the files of one directory; whoever fills an installation with more has other troubles.
constexpr int maxListed = 1000;

/// The installation's directories, and the files of those whose files are run, loaded or shown.
QVector<DirectoryFacts> partsOf(const Installation& installation)
{
    const QStringList loaded = {installation.root() + QStringLiteral("/bin"),
                                installation.root() + QStringLiteral("/lib"), installation.databases()};
    QStringList paths = {installation.root()};
    // The service makes these when it needs them.
    for (const QString& path :
         {installation.settings(), installation.quarantine(), installation.reports(), installation.logs()}) {
        if (QFileInfo::exists(path)) {
            paths += path;
        }
    }
    for (const QString& directory : loaded) {
        paths += directory;
        const QStringList names = QDir(directory).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString& name : names.mid(0, maxListed)) {
            paths += directory + QLatin1Char('/') + name;
        }
    }
    // The icons are shown to every user, and the shells of all of them, root's too, run the completions.
    for (const QString& directory :
         {installation.root() + QStringLiteral("/icons"), installation.root() + QStringLiteral("/share")}) {
        if (QFileInfo::exists(directory)) {
            paths += directory;
            QDirIterator entries(directory, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot,
                                 QDirIterator::Subdirectories);
            for (int count = 0; count < maxListed && entries.hasNext(); ++count) {
                paths += entries.next();
            }
        }
    }
    QVector<DirectoryFacts> parts;
    for (const QString& path : qAsConst(paths)) {
        parts += DirectoryFacts::of(path);
    }
    return parts;
}

QVector<DirectoryFacts> directoriesAbove(const QString& path)
{
    QVector<DirectoryFacts> above;
    QString directory = QFileInfo(path).canonicalFilePath();
    while (directory.size() > 1) {
        directory = QFileInfo(directory).path();
        above += DirectoryFacts::of(directory);
    }
    return above;
}

/// Where the engine of the service, process `id`, unpacks. The service keeps that directory open.
std::optional<DirectoryFacts> engineDirectoryOf(qint64 id)
{
    const QDir descriptors(QStringLiteral("/proc/%1/fd").arg(id));
    for (const QString& name : descriptors.entryList(QDir::Dirs)) {
        const QString target = QFile::symLinkTarget(descriptors.filePath(name));
        if (QFileInfo(target).fileName().startsWith(QLatin1String("tvfilemon-engine-"))) {
            // By its descriptor: a service may have a /run of its own.
            DirectoryFacts facts = DirectoryFacts::of(descriptors.filePath(name));
            facts.path = target;
            return facts;
        }
    }
    return std::nullopt;
}

Finding checkEngineDirectory(const ServiceFacts& service)
{
    if (service.processes.isEmpty()) {
        return SystemChecks::engineDirectory({}, SystemChecks::Process::None);
    }
    const qint64 id = service.processes.first().id;
    const QByteArray descriptors = QStringLiteral("/proc/%1/fd").arg(id).toLatin1();
    return ::access(descriptors.constData(), R_OK) == 0
               ? SystemChecks::engineDirectory(engineDirectoryOf(id), SystemChecks::Process::Visible)
               : SystemChecks::engineDirectory({}, SystemChecks::Process::Hidden);
}

/// Others are kept away when one's own attempt was refused where somebody listens.
LocalAccess accessToPort(const ServiceFacts& service, bool isRoot)
{
    if (service.isBarred()) {
        return LocalAccess::Refused;
    }
    return isRoot && service.probe.answers() ? tryLocalAccess(ServiceConnection::port, anybody)
                                             : LocalAccess::Unknown;
}

Findings checkService(const Installation& installation, const ServiceFacts& service,
                      const SignatureFiles& files, bool isRoot)
{
    return {
        ServiceChecks::service(service), ServiceChecks::portOwner(service, installation, isRoot),
        ServiceChecks::engine(service, files, installation.logFile()),
        ServiceChecks::portExposure(service, reachableInterfaces(), lookAtFirewall(ServiceConnection::port)),
        ServiceChecks::portUsers(service, accessToPort(service, isRoot))};
}

Findings checkDatabases(const Installation& installation, const ServiceFacts& service,
                        const SignatureFiles& files)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    return {DatabaseChecks::databases(files, installation.databases()),
            DatabaseChecks::lastLoad(service.load, installation.logFile(), service.probe.detects()),
            DatabaseChecks::freshness(files, now),
            DatabaseChecks::update(UpdateStatus::read(installation.updateStatusFile()), now),
            DatabaseChecks::clock(files, now)};
}

Findings checkFiles(const Installation& installation, const ServiceFacts& service, bool isRoot)
{
    const DirectoryFacts quarantine = DirectoryFacts::of(installation.quarantine());
    const DirectoryFacts settings = DirectoryFacts::of(installation.settings());
    const DirectoryFacts logs = DirectoryFacts::of(installation.logs());
    return {SystemChecks::directories(partsOf(installation), directoriesAbove(installation.root())),
            SystemChecks::privacy({settings, quarantine}),
            SystemChecks::quarantine(quarantine, isRoot),
            SystemChecks::diskSpace({quarantine, settings, logs}),
            checkEngineDirectory(service),
            SystemChecks::log(logs, DirectoryFacts::of(installation.logFile()), isRoot)};
}

Findings checkKernel(const ServiceFacts& service, bool isPackage)
{
    const WatchFacts watches = WatchFacts::gather(service, walkLimit);
    return {ServiceChecks::watches(service, watches),
            SystemChecks::watchLimit(watches.limits, watches.need, isPackage),
            SystemChecks::eventQueue(watches.limits, watches.need, isPackage),
            SystemChecks::instanceLimit(watches.limits, isPackage)};
}

Findings checkStores(const Installation& installation)
{
    const StoreFacts stores = StoreFacts::read(installation);
    return {SystemChecks::protection(stores), SystemChecks::scanAction(stores),
            SystemChecks::stores(stores, installation.settings()),
            SystemChecks::sqliteDriver(QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE")))};
}
} // namespace

Findings examine(const Installation& installation)
{
    const bool isRoot = ::geteuid() == 0;
    ServiceConnection connection;
    const ServiceFacts service = ServiceFacts::gather(installation, connection, serviceLimit);
    const SignatureFiles files = signaturesOf(installation);
    const PackageFacts package = PackageFacts::gather(installation.root());
    Findings findings = checkService(installation, service, files, isRoot) +
                        checkDatabases(installation, service, files) + checkStores(installation) +
                        checkFiles(installation, service, isRoot) + checkKernel(service, package.isPackage) +
                        Findings{PackageChecks::units(package), PackageChecks::links(package)};
    const LocalAdvice advice(installation);
    for (Finding& finding : findings) {
        finding.fix = advice.wordedFor(finding.fix);
    }
    return findings;
}
