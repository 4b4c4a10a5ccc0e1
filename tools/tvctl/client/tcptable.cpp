#include "tvctl/client/tcptable.h"

#include <QList>

#include <arpa/inet.h>

namespace
{
/// The columns of the table that are of use here, and how many a line has at least.
enum Column
{
    LocalColumn = 1,
    RemoteColumn = 2,
    StateColumn = 3,
    UserColumn = 7,
    InodeColumn = 9,
    LeastColumns = 10
};

bool parseEndpoint(const QByteArray& text, quint32& address, quint16& port)
{
    bool isAddress = false;
    bool isPort = false;
    // The kernel prints the address as a number of the machine, though it lies in network byte order.
    address = ntohl(text.left(8).toUInt(&isAddress, 16));
    port = text.mid(9).toUShort(&isPort, 16);
    return isAddress && isPort && text.size() == 13 && text.at(8) == ':';
}
} // namespace

QVector<TcpSocket> parseTcpTable(const QByteArray& table)
{
    QVector<TcpSocket> sockets;
    for (const QByteArray& line : table.split('\n')) {
        const QList<QByteArray> columns = line.simplified().split(' ');
        TcpSocket socket;
        if (columns.size() < LeastColumns ||
            !parseEndpoint(columns.at(LocalColumn), socket.localAddress, socket.localPort) ||
            !parseEndpoint(columns.at(RemoteColumn), socket.remoteAddress, socket.remotePort)) {
            continue;
        }
        bool isState = false;
        bool isUser = false;
        bool isInode = false;
        socket.state = columns.at(StateColumn).toInt(&isState, 16);
        socket.userId = columns.at(UserColumn).toUInt(&isUser);
        socket.inode = columns.at(InodeColumn).toULongLong(&isInode);
        if (isState && isUser && isInode) {
            sockets += socket;
        }
    }
    return sockets;
}
