#pragma once

#include <QPair>
#include <QSet>
#include <QtGlobal>

/// Directories that somebody watches, by what the kernel prints about its watches. Pure.
class WatchedSet
{
public:
    /// `device` as the kernel prints it: twelve bits of the major number, then twenty of the minor.
    void add(quint64 device, quint64 inode);

    /// Whether the directory with these numbers, from `stat`, is watched.
    bool contains(dev_t device, quint64 inode) const;

    int size() const
    {
        return m_directories.size();
    }
    bool isEmpty() const
    {
        return m_directories.isEmpty();
    }

private:
    QSet<QPair<quint64, quint64>> m_directories;
    QSet<quint64> m_devices;
    QSet<quint64> m_inodes;
};
