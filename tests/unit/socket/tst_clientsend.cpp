#include "socket/clientsend.h"

#include <QElapsedTimer>
#include <QTest>
#include <QVector>

#include <array>
#include <cerrno>
#include <csignal>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
struct SendCall
{
    int socket;
    QByteArray data;
    int flags;
};
QVector<SendCall> sendCalls;
} // namespace

extern "C" ssize_t send(int socket, const void* data, size_t size, int flags)
{
    using Send = ssize_t (*)(int, const void*, size_t, int);
    static const auto real = reinterpret_cast<Send>(::dlsym(RTLD_NEXT, "send"));
    sendCalls.append({socket, QByteArray(static_cast<const char*>(data), static_cast<int>(size)), flags});
    return real(socket, data, size, flags);
}

class TestClientSend : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void sendsByOneCall_data();
    void sendsByOneCall();
    void survivesAPeerThatIsGone();
    void givesUpOnAClientThatDoesNotRead();
    void failsWithoutADescriptor();

private:
    QByteArray received() const;

    std::array<int, 2> m_ends = {};
};

void TestClientSend::init()
{
    sendCalls.clear();
    QCOMPARE(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_ends.data()), 0);
    limitSendTime(m_ends[0]);
}

void TestClientSend::cleanup()
{
    ::close(m_ends[0]);
    ::close(m_ends[1]);
}

QByteArray TestClientSend::received() const
{
    QByteArray data(1 << 20, '\0');
    const ssize_t size = ::recv(m_ends[1], data.data(), static_cast<size_t>(data.size()), MSG_DONTWAIT);
    return data.left(static_cast<int>(size));
}

void TestClientSend::sendsByOneCall_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("a word") << QByteArray("CLEAN");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("1023 bytes") << QByteArray(1023, 'x');
    QTest::newRow("1024 bytes") << QByteArray(1024, 'x');
    QTest::newRow("1025 bytes") << QByteArray(1025, 'x');
    QTest::newRow("100,000 bytes") << QByteArray(100000, 'x');
    QTest::newRow("a zero byte") << QByteArray("a\0b", 3);
}

void TestClientSend::sendsByOneCall()
{
    QFETCH(QByteArray, text);
    QCOMPARE(sendToClient(m_ends[0], text), ssize_t(text.size()));
    QCOMPARE(sendCalls.size(), 1);
    QCOMPARE(sendCalls.at(0).socket, m_ends[0]);
    QCOMPARE(sendCalls.at(0).data, text);
    QCOMPARE(sendCalls.at(0).flags, static_cast<int>(MSG_NOSIGNAL));
    if (!text.isEmpty()) {
        QCOMPARE(received(), text);
    }
    // Still open.
    QCOMPARE(sendToClient(m_ends[0], "more"), ssize_t(4));
    QCOMPARE(received(), QByteArray("more"));
}

void TestClientSend::survivesAPeerThatIsGone()
{
    ::signal(SIGPIPE, SIG_DFL);
    ::close(m_ends[1]);
    QCOMPARE(sendToClient(m_ends[0], "CLEAN"), ssize_t(-1));
    QVERIFY(::fcntl(m_ends[0], F_GETFD) >= 0);
    m_ends[1] = -1;
}

void TestClientSend::givesUpOnAClientThatDoesNotRead()
{
    const QByteArray filling(1 << 16, 'x');
    while (::send(m_ends[0], filling.constData(), static_cast<size_t>(filling.size()), MSG_DONTWAIT) > 0) {
    }
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(sendToClient(m_ends[0], "CLEAN"), ssize_t(-1));
    const qint64 first = timer.elapsed();
    QVERIFY2(first >= 90 && first < 2000, qPrintable(QString::number(first)));
    // Shut down and not closed; what is sent from now on costs nothing.
    QVERIFY(::fcntl(m_ends[0], F_GETFD) >= 0);
    timer.start();
    for (int i = 0; i < 100; ++i) {
        QCOMPARE(sendToClient(m_ends[0], "CLEAN"), ssize_t(-1));
    }
    QVERIFY(timer.elapsed() < 90);
    char byte = 0;
    QCOMPARE(::recv(m_ends[0], &byte, 1, 0), ssize_t(0));
}

void TestClientSend::failsWithoutADescriptor()
{
    QCOMPARE(sendToClient(-1, "CLEAN"), ssize_t(-1));
    QCOMPARE(errno, EBADF);
}

QTEST_GUILESS_MAIN(TestClientSend)
#include "tst_clientsend.moc"
