#include "socket/csocketmanager.h"

#include "counts.h"
#include "fakesockets.h"
#include "logger/clogger.h"
#include "socket/cclientthread.h"
#include "support/fakescanners.h"
#include "support/logreader.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QTest>

#include <array>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

/// The end of a manager that has clients in every state.
class TestCSocketManagerStop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endsEverythingAtOnce();
};

namespace
{
int connectClient()
{
    const int peer = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(FakeSockets::port));
    const bool connected = QTest::qWaitFor([peer, &address] {
        return ::connect(peer, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    });
    if (!connected) {
        qFatal("nobody listens");
    }
    return peer;
}

void sendText(int peer, const char* text)
{
    if (::send(peer, text, strlen(text), MSG_NOSIGNAL) < 0) {
        qFatal("cannot send");
    }
}

QByteArray received(int peer)
{
    char buffer[4096];
    const ssize_t size = ::recv(peer, buffer, sizeof(buffer), MSG_DONTWAIT);
    return QByteArray(buffer, static_cast<int>(qMax<ssize_t>(size, 0)));
}
} // namespace

void TestCSocketManagerStop::endsEverythingAtOnce()
{
    FakeSockets::reset();
    LOGGER::CLogger::getInstance();
    const int descriptors = openDescriptors();
    const int threads = runningThreads();

    CSocketManager* manager = CSocketManager::getInstance();
    manager->startListening();
    manager->startListening();
    QTRY_COMPARE(FakeSockets::backlog.load(), 2);
    QCOMPARE(FakeSockets::binds.load(), 1);

    // Served, and waiting in a receive.
    const int idle = connectClient();
    sendText(idle, "MODULE idle");
    QByteArray reply;
    QTRY_COMPARE((reply += received(idle)), QByteArray("REGISTERED!"));

    // Gone, its thread about to end.
    const int gone = connectClient();
    sendText(gone, "MODULE gone");
    reply.clear();
    QTRY_COMPARE((reply += received(gone)), QByteArray("REGISTERED!"));

    // More sent than is served, as no events are processed from here on: its thread waits for room. Packets
    // are not joined, each is a request.
    std::array<int, 2> ends = {};
    QCOMPARE(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    manager->onClientConnected(ends[0]);
    const int eager = ends[1];
    const QByteArray request("RELOADDB");
    int sent = 0;
    int unread = 0;
    const QDeadlineTimer giveUp(10000);
    do {
        if (::send(eager, request.constData(), static_cast<size_t>(request.size()), MSG_DONTWAIT) > 0) {
            sent += request.size();
        }
        QCOMPARE(::ioctl(ends[0], FIONREAD, &unread), 0);
    } while ((unread == 0 || sent - unread < CClientThread::unservedLimit * request.size()) &&
             !giveUp.hasExpired());
    QCOMPARE(sent - unread, CClientThread::unservedLimit * request.size());

    // The listener is in the second after the client before, and never accepts this one.
    const int last = connectClient();
    sendText(last, "MODULE last");
    ::close(gone);

    QElapsedTimer timer;
    timer.start();
    manager->stop();
    QVERIFY2(timer.elapsed() < 500, qPrintable(QString::number(timer.elapsed())));

    // A thread's entry may outlive the join by a moment.
    QTRY_COMPARE(runningThreads(), threads);
    char byte = 0;
    QCOMPARE(::recv(idle, &byte, 1, 0), ssize_t(0));
    ::close(idle);
    ::close(eager);
    ::close(last);
    QCoreApplication::processEvents();
    QVERIFY(FakeScanners::calls.isEmpty());

    // Twice does no harm, nor does the destruction that follows.
    manager->stop();
    CSocketManager::releaseInstance();
    QCOMPARE(openDescriptors(), descriptors);
    // The pointer stays as it was; a new manager would hold a descriptor.
    QVERIFY(CSocketManager::getInstance() == manager);
    QCOMPARE(openDescriptors(), descriptors);
}

QTEST_GUILESS_MAIN(TestCSocketManagerStop)
#include "tst_csocketmanagerstop.moc"
