#pragma once

#include <QByteArray>
#include <QVector>
#include <QtGlobal>

/// A line of the kernel's table of this machine's TCP sockets (IPv4).
struct TcpSocket
{
    enum State
    {
        Established = 1,
        Listen = 10
    };

    /// In host byte order.
    quint32 localAddress = 0;
    quint16 localPort = 0;
    quint32 remoteAddress = 0;
    quint16 remotePort = 0;
    int state = 0;
    /// Of the process that made it; means nothing without an inode.
    uint userId = 0;
    /// 0 for a socket that no process has in hands.
    quint64 inode = 0;
};

/// The sockets in `table`, the content of /proc/net/tcp; lines that are none are left out. Pure.
QVector<TcpSocket> parseTcpTable(const QByteArray& table);
