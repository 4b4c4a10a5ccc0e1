#include "tvctl/health/inotifyuse.h"

#include <QByteArrayList>
#include <QDir>
#include <QFile>

#include <climits>

#include <unistd.h>

namespace
{
const QByteArray inodePrefix = QByteArrayLiteral("ino:");
const QByteArray devicePrefix = QByteArrayLiteral("sdev:");

qint64 numberIn(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return -1;
    }
    bool isNumber = false;
    const qint64 number = file.readAll().trimmed().toLongLong(&isNumber);
    return isNumber ? number : -1;
}

/// The same thing is limited for the user and for all in the namespace: the smaller one counts.
qint64 smallerOf(const QString& userLimit, const QString& namespaceLimit)
{
    const qint64 first = numberIn(QStringLiteral("/proc/sys/fs/inotify/") + userLimit);
    const qint64 second = numberIn(QStringLiteral("/proc/sys/user/") + namespaceLimit);
    return first < 0 || second < 0 ? qMax(first, second) : qMin(first, second);
}
} // namespace

void parseInotifyInfo(const QByteArray& text, WatchedSet& watched)
{
    for (const QByteArray& line : text.split('\n')) {
        const QByteArrayList fields = line.split(' ');
        bool hasInode = false;
        bool hasDevice = false;
        const quint64 inode = fields.value(2).mid(inodePrefix.size()).toULongLong(&hasInode, 16);
        const quint64 device = fields.value(3).mid(devicePrefix.size()).toULongLong(&hasDevice, 16);
        if (line.startsWith("inotify wd:") && fields.value(2).startsWith(inodePrefix) &&
            fields.value(3).startsWith(devicePrefix) && hasInode && hasDevice) {
            watched.add(device, inode);
        }
    }
}

std::optional<InotifyUse> inotifyUseOf(qint64 id)
{
    const QString process = QStringLiteral("/proc/%1").arg(id);
    const QByteArray descriptors = (process + QStringLiteral("/fd")).toLatin1();
    if (::access(descriptors.constData(), R_OK) != 0) {
        return std::nullopt;
    }
    InotifyUse use;
    for (const QString& name : QDir(process + QStringLiteral("/fd")).entryList(QDir::Files | QDir::System)) {
        QByteArray target(PATH_MAX, Qt::Uninitialized);
        const ssize_t length = ::readlink((descriptors + '/' + name.toLatin1()).constData(), target.data(),
                                          static_cast<size_t>(target.size()));
        target.truncate(static_cast<int>(qMax<ssize_t>(length, 0)));
        QFile info(process + QStringLiteral("/fdinfo/") + name);
        if (target == "anon_inode:inotify" && info.open(QIODevice::ReadOnly)) {
            ++use.instances;
            parseInotifyInfo(info.readAll(), use.watched);
        }
    }
    return use;
}

InotifyLimits InotifyLimits::read()
{
    InotifyLimits limits;
    limits.watches = smallerOf(QStringLiteral("max_user_watches"), QStringLiteral("max_inotify_watches"));
    limits.instances =
        smallerOf(QStringLiteral("max_user_instances"), QStringLiteral("max_inotify_instances"));
    limits.queuedEvents = numberIn(QStringLiteral("/proc/sys/fs/inotify/max_queued_events"));
    return limits;
}
