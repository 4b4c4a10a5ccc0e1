#include "socket/csocketmanager.h"

#include "counts.h"
#include "fakescanners.h"
#include "fakesockets.h"
#include "logger/clogger.h"
#include "socket/cclientthread.h"
#include "support/logreader.h"

#include <QElapsedTimer>
#include <QTest>

#include <arpa/inet.h>
#include <netinet/in.h>
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

    // More sent than is served, as no events are processed from here on; the listener pauses after it.
    const int eager = connectClient();
    sendText(eager, "MODULE eager");
    reply.clear();
    QTRY_COMPARE((reply += received(eager)), QByteArray("REGISTERED!"));
    ::close(gone);
    for (int i = 0; i < 10 * CClientThread::unservedLimit; ++i) {
        sendText(eager, "SCAN /a");
    }

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
    FakeScanners::calls.clear();
    QCoreApplication::processEvents();
    QVERIFY(FakeScanners::calls.isEmpty());

    // Twice does no harm, nor does the destruction that follows.
    manager->stop();
    CSocketManager::releaseInstance();
    QCOMPARE(openDescriptors(), descriptors);
}

QTEST_GUILESS_MAIN(TestCSocketManagerStop)
#include "tst_csocketmanagerstop.moc"
