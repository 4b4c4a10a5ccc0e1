#include "tvctl/health/serviceprocess.h"

#include "common/filename.h"
#include "tvctl/health/processstat.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <optional>

#include <climits>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
const QLatin1String deletedSuffix(" (deleted)");

QString linkTarget(const QByteArray& path)
{
    QByteArray target(PATH_MAX, Qt::Uninitialized);
    const ssize_t length = ::readlink(path.constData(), target.data(), static_cast<size_t>(target.size()));
    target.truncate(static_cast<int>(qMax<ssize_t>(length, 0)));
    return FileName::toText(target);
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QVector<qint64> processIds()
{
    QVector<qint64> ids;
    for (const QString& name : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool isNumber = false;
        const qint64 id = name.toLongLong(&isNumber);
        if (isNumber) {
            ids += id;
        }
    }
    return ids;
}

std::optional<RunningProcess> describe(qint64 id, QByteArray& name)
{
    const QString directory = QStringLiteral("/proc/%1").arg(id);
    const auto stat = parseProcessStat(contentOf(directory + QStringLiteral("/stat")));
    if (!stat || stat->state == 'Z') {
        return std::nullopt;
    }
    name = stat->name;
    RunningProcess process;
    process.id = id;
    process.program = linkTarget(directory.toLatin1() + "/exe");
    if (process.program.endsWith(deletedSuffix)) {
        process.program.chop(deletedSuffix.size());
        process.isOutdated = true;
    }
    process.isStopped = stat->state == 'T' || stat->state == 't';
    const auto ticksPerSecond = static_cast<quint64>(::sysconf(_SC_CLK_TCK));
    const double up = contentOf(QStringLiteral("/proc/uptime")).split(' ').first().toDouble();
    process.uptimeSeconds =
        qMax<qint64>(0, static_cast<qint64>(up) - static_cast<qint64>(stat->startTicks / ticksPerSecond));
    return process;
}

bool isOwnedByRoot(qint64 id)
{
    struct stat status = {};
    return ::stat(QStringLiteral("/proc/%1").arg(id).toLatin1().constData(), &status) == 0 &&
           status.st_uid == 0;
}

bool holdsOneOf(qint64 id, const QSet<quint64>& sockets)
{
    static const QLatin1String prefix("socket:[");
    const QString directory = QStringLiteral("/proc/%1/fd").arg(id);
    // Links to sockets lead nowhere, which is "system" to QDir.
    for (const QString& name : QDir(directory).entryList(QDir::Files | QDir::System)) {
        const QString target = linkTarget((directory + QLatin1Char('/') + name).toLatin1());
        if (target.startsWith(prefix) &&
            sockets.contains(target.mid(prefix.size()).chopped(1).toULongLong())) {
            return true;
        }
    }
    return false;
}
} // namespace

QVector<RunningProcess> ServiceProcess::find(const Installation& installation)
{
    // The kernel's links hold no links themselves.
    const QString program = QFileInfo(installation.program()).canonicalFilePath();
    const QByteArray name = QFileInfo(installation.program()).fileName().toLatin1();
    QVector<RunningProcess> found;
    for (const qint64 id : processIds()) {
        QByteArray ownName;
        const auto process = describe(id, ownName);
        if (!process) {
            continue;
        }
        const bool isHidden = process->program.isEmpty() && ownName == name && isOwnedByRoot(id);
        // A program that was removed has no canonical path any more.
        const bool isOurs = !process->program.isEmpty() &&
                            (process->program == program || process->program == installation.program());
        if (isHidden || isOurs) {
            found += *process;
        }
    }
    return found;
}

QVector<RunningProcess> ServiceProcess::holdersOf(const QSet<quint64>& sockets)
{
    QVector<RunningProcess> holders;
    for (const qint64 id : processIds()) {
        if (!sockets.isEmpty() && holdsOneOf(id, sockets)) {
            QByteArray name;
            if (const auto process = describe(id, name)) {
                holders += *process;
            }
        }
    }
    return holders;
}
