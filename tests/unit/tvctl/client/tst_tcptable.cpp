#include "tvctl/client/tcptable.h"

#include "tvctl/client/portowner.h"

#include <QTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
/// As a kernel prints it on a machine whose bytes begin with the lowest.
const QByteArray sample =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode        "
    "      "
    "                                       \n"
    "   0: 00000000:22B9 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 31415 1 "
    "0000000000000000 100 0 0 10 0                     \n"
    "   1: 0100007F:0CEA 00000000:0000 0A 00000000:00000000 00:00000000 00000000   106        0 20001 1 "
    "0000000000000000 100 0 0 10 0                     \n"
    "   2: 0100007F:22B9 0100007F:C350 01 00000000:00000000 00:00000000 00000000     0        0 31417 1 "
    "0000000000000000 20 4 30 10 -1                    \n"
    "   3: 0100007F:22B9 0100007F:C351 01 00000000:0000000C 00:00000000 00000000     0        0 0 1 "
    "0000000000000000 20 0 0 10 -1                     \n"
    "   4: 0F02000A:9C40 08080808:01BB 06 00000000:00000000 03:000012A4 00000000     0        0 0 3 "
    "0000000000000000                                      \n"
    "   5: 0100007F:C350 0100007F:22B9 01 00000000:00000000 02:0000A5D9 00000000 4294967294        0 "
    "18446744073709551615 2 0000000000000000 20 4 30 10 -1\n";
} // namespace

class TestTcpTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsWhatAKernelPrints();
    void leavesOutWhatIsNoSocket_data();
    void leavesOutWhatIsNoSocket();
    void readsTheTableOfThisMachine();
};

void TestTcpTable::readsWhatAKernelPrints()
{
    const QVector<TcpSocket> sockets = parseTcpTable(sample);
    QCOMPARE(sockets.size(), 6);

    QCOMPARE(sockets.at(0).localAddress, quint32(INADDR_ANY));
    QCOMPARE(sockets.at(0).localPort, quint16(8889));
    QCOMPARE(sockets.at(0).state, int(TcpSocket::Listen));
    QCOMPARE(sockets.at(0).userId, 0U);
    QCOMPARE(sockets.at(0).inode, quint64(31415));

    QCOMPARE(sockets.at(1).localAddress, quint32(INADDR_LOOPBACK));
    QCOMPARE(sockets.at(1).localPort, quint16(3306));
    QCOMPARE(sockets.at(1).userId, 106U);

    QCOMPARE(sockets.at(2).remoteAddress, quint32(INADDR_LOOPBACK));
    QCOMPARE(sockets.at(2).remotePort, quint16(50000));
    QCOMPARE(sockets.at(2).state, int(TcpSocket::Established));

    QCOMPARE(sockets.at(3).inode, quint64(0));

    QCOMPARE(sockets.at(4).localAddress, quint32(0x0A00020F));
    QCOMPARE(sockets.at(4).remoteAddress, quint32(0x08080808));
    QCOMPARE(sockets.at(4).remotePort, quint16(443));

    QCOMPARE(sockets.at(5).userId, 4294967294U);
    QCOMPARE(sockets.at(5).inode, quint64(18446744073709551615ULL));
}

void TestTcpTable::leavesOutWhatIsNoSocket_data()
{
    QTest::addColumn<QByteArray>("line");
    const QByteArray good =
        "0: 0100007F:22B9 0100007F:C350 01 00000000:00000000 00:00000000 00000000 7 0 31417 1 0";
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("cut short") << good.left(good.indexOf(" 31417"));
    QTest::newRow("address too short") << QByteArray(good).replace("0100007F:22B9", "100007F:22B9");
    QTest::newRow("of the other protocol")
        << QByteArray(good).replace("0100007F:22B9", "0000000000000000FFFF00000100007F:22B9");
    QTest::newRow("no port") << QByteArray(good).replace("0100007F:22B9", "0100007F");
    QTest::newRow("no digits") << QByteArray(good).replace("0100007F:C350", "0100007F:C35X");
    QTest::newRow("no state") << QByteArray(good).replace(" 01 ", " -- ");
    QTest::newRow("no user") << QByteArray(good).replace(" 7 ", " x ");
    QTest::newRow("user too large") << QByteArray(good).replace(" 7 ", " 4294967296 ");
    QTest::newRow("no inode") << QByteArray(good).replace("31417", "3141?");
}

void TestTcpTable::leavesOutWhatIsNoSocket()
{
    QFETCH(QByteArray, line);
    QCOMPARE(parseTcpTable(line).size(), 0);
    // What stands around it is read all the same.
    QCOMPARE(parseTcpTable(sample + line + '\n' + sample).size(), 12);
}

void TestTcpTable::readsTheTableOfThisMachine()
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    QCOMPARE(::bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
    QCOMPARE(::listen(listener, 1), 0);
    QCOMPARE(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    int found = 0;
    for (const TcpSocket& socket : tcpSockets()) {
        if (socket.state == TcpSocket::Listen && socket.localPort == ntohs(address.sin_port)) {
            ++found;
            QCOMPARE(socket.localAddress, quint32(INADDR_LOOPBACK));
            QCOMPARE(socket.userId, ::geteuid());
            QVERIFY(socket.inode != 0);
        }
    }
    QCOMPARE(found, 1);
    ::close(listener);
}

QTEST_GUILESS_MAIN(TestTcpTable)
#include "tst_tcptable.moc"
