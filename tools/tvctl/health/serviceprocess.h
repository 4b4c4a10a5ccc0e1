#pragma once

#include "tvctl/installation/installation.h"

#include <QSet>
#include <QString>
#include <QVector>
#include <QtGlobal>

/// A process of this machine.
struct RunningProcess
{
    qint64 id = 0;
    /// Its program's file; empty when the kernel does not tell, which it tells only root about others.
    QString program;
    /// The program's file was replaced or removed since it was started.
    bool isOutdated = false;
    /// Somebody has stopped it (SIGSTOP), so that it does nothing.
    bool isStopped = false;
    qint64 uptimeSeconds = 0;
};

/// Looks for the service among the processes, whether or not it answers.
namespace ServiceProcess
{
/// The processes of the installation's program. Without root's rights the program of others' processes is
/// hidden: then those count that have its name and are root's.
QVector<RunningProcess> find(const Installation& installation);

/// The processes that hold one of the sockets with these inodes. Without root's rights only one's own.
QVector<RunningProcess> holdersOf(const QSet<quint64>& sockets);
} // namespace ServiceProcess
