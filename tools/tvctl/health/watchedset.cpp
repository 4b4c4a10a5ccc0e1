#include "tvctl/health/watchedset.h"

#include <sys/sysmacros.h>

namespace
{
constexpr int minorBits = 20;
}

void WatchedSet::add(quint64 device, quint64 inode)
{
    m_directories.insert({device, inode});
    m_devices.insert(device);
    m_inodes.insert(inode);
}

bool WatchedSet::contains(dev_t device, quint64 inode) const
{
    const quint64 printed = static_cast<quint64>(major(device)) << minorBits | minor(device);
    // Some file systems (btrfs) tell of another device than the kernel prints: the inode has to do there.
    return m_devices.contains(printed) ? m_directories.contains({printed, inode}) : m_inodes.contains(inode);
}
