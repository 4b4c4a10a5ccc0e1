#include "socket/csocketmanager.h"

#include "logger/clogger.h"
#include "support/fakescanners.h"

#include <QSocketNotifier>
#include <QTest>

#include <array>

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

/// What else the event loop has to do while a client has many requests waiting.
class TestCSocketManagerTurns : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void givesOthersTheirTurnBetweenTwoRequests();
};

void TestCSocketManagerTurns::givesOthersTheirTurnBetweenTwoRequests()
{
    constexpr int requests = 50;
    LOGGER::CLogger::getInstance();
    FakeScanners::reset();
    std::array<int, 2> ends = {};
    QCOMPARE(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    CSocketManager::getInstance()->onClientConnected(ends[0]);
    const QByteArray name("MODULE eager");
    QCOMPARE(::send(ends[1], name.constData(), static_cast<size_t>(name.size()), 0), ssize_t(name.size()));
    char byte = 0;
    QTRY_COMPARE(::recv(ends[1], &byte, 1, MSG_PEEK | MSG_DONTWAIT), ssize_t(1));

    // As the file monitor is: always with something to do.
    const int wake = ::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
    QSocketNotifier notifier(wake, QSocketNotifier::Read);
    int served = 0;
    int mostInOneTurn = 0;
    connect(&notifier, &QSocketNotifier::activated, this, [&] {
        const int now = FakeScanners::calls.size();
        mostInOneTurn = qMax(mostInOneTurn, now - served);
        served = now;
    });

    const QByteArray request("SCAN /a");
    for (int i = 0; i < requests; ++i) {
        QCOMPARE(::send(ends[1], request.constData(), static_cast<size_t>(request.size()), 0),
                 ssize_t(request.size()));
    }
    // The thread has read them all before the first is served.
    for (int unread = 1; unread > 0;) {
        unread = ::recv(ends[0], &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0 ? 1 : 0;
    }
    QTRY_COMPARE(served, requests);
    QVERIFY2(mostInOneTurn <= 2, qPrintable(QString::number(mostInOneTurn)));

    notifier.setEnabled(false);
    ::close(wake);
    ::close(ends[1]);
    CSocketManager::getInstance()->stop();
}

QTEST_GUILESS_MAIN(TestCSocketManagerTurns)
#include "tst_csocketmanagerturns.moc"
