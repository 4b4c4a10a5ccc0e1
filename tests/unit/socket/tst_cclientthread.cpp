#include "socket/cclientthread.h"

#include "logger/clogger.h"
#include "support/logreader.h"

#include <QElapsedTimer>
#include <QMetaMethod>
#include <QTest>

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

class TestCClientThread : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void keepsWhatItIsGiven();
    void declaresItsSignalsInOrder();
    void makesOneMessageOfOneReceive_data();
    void makesOneMessageOfOneReceive();
    void joinsWhatArrivedTogether();
    void splitsWhatIsTooLong_data();
    void splitsWhatIsTooLong();
    void saysGoodbyeOnce();
    void saysGoodbyeToAResetConnection();
    void saysGoodbyeWithoutADescriptor();
    void tellsNoOldErrorOfAClientThatCloses();
    void leavesTheDescriptorOpen();
    void lingersBeforeItEnds();
    void logsWhatItReceivesWhenDebugging();
    void stopsReadingWhileTooMuchIsUnserved();
    void stopsReadingWhileTooManyBytesAreUnserved();
    void stopsOutOfAReceive();
    void stopsOutOfAWaitForRoom();
    void stopsBeforeItReads();

private:
    void usePair(int type);
    void start();
    /// Only counts what is received, at once. Every packet is a receive of its own, and a full queue makes
    /// the sender wait.
    void startAndCount();
    void sendBytes(const QByteArray& bytes) const;

    std::array<int, 2> m_ends = {-1, -1};
    std::unique_ptr<CClientThread> m_thread;
    std::unique_ptr<LogReader> m_log;
    // Filled on the main thread.
    QStringList m_messages;
    std::atomic<int> m_received = 0;
    QList<int> m_goodbyes;
};

namespace
{
LogLine goodbye(int error)
{
    return {"ERROR", "CClientThread::connectToSocket", errorCode(error) + "Client Disconnected or timeouted"};
}
} // namespace

void TestCClientThread::init()
{
    LOGGER::CLogger::getInstance()->Info("next", "%s", QTest::currentTestFunction());
    m_log = std::make_unique<LogReader>();
    m_messages.clear();
    m_goodbyes.clear();
    m_thread = std::make_unique<CClientThread>();
    connect(m_thread.get(), &CClientThread::receivedMessage, this,
            [this](int socket, const QString& message) {
                QCOMPARE(socket, m_ends[0]);
                m_messages.append(message);
                m_thread->messageServed();
            });
    connect(m_thread.get(), &CClientThread::clientDisconnected, this,
            [this](int socket) { m_goodbyes.append(socket); });
    usePair(SOCK_STREAM);
}

void TestCClientThread::cleanup()
{
    m_thread->stop();
    ::shutdown(m_ends[0], SHUT_RDWR);
    m_thread->wait();
    // What it announced last must not come in the next test.
    QCoreApplication::processEvents();
    m_thread.reset();
    for (int& end : m_ends) {
        ::close(end);
        end = -1;
    }
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_TRACE);
}

void TestCClientThread::startAndCount()
{
    usePair(SOCK_SEQPACKET);
    m_thread->disconnect();
    m_received = 0;
    connect(
        m_thread.get(), &CClientThread::receivedMessage, this, [this] { ++m_received; },
        Qt::DirectConnection);
    start();
}

void TestCClientThread::usePair(int type)
{
    for (const int end : m_ends) {
        ::close(end);
    }
    if (::socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, m_ends.data()) != 0) {
        qFatal("no sockets");
    }
    m_thread->setClientSocket(m_ends[0]);
}

void TestCClientThread::start()
{
    m_thread->start();
}

void TestCClientThread::sendBytes(const QByteArray& bytes) const
{
    if (::send(m_ends[1], bytes.constData(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL) !=
        bytes.size()) {
        qFatal("cannot send");
    }
}

void TestCClientThread::keepsWhatItIsGiven()
{
    QCOMPARE(m_thread->getClientSocket(), m_ends[0]);
    QCOMPARE(m_thread->getModuleName(), QString());
    m_thread->setModuleName(QStringLiteral("demo"));
    QCOMPARE(m_thread->getModuleName(), QStringLiteral("demo"));
}

void TestCClientThread::declaresItsSignalsInOrder()
{
    const QMetaObject& meta = CClientThread::staticMetaObject;
    QList<QByteArray> methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        methods.append(meta.method(i).methodSignature());
    }
    QCOMPARE(methods, QList<QByteArray>({"receivedMessage(int,QString)", "sendMessage(int,QString)",
                                         "clientDisconnected(int)", "connectToSocket()"}));
}

void TestCClientThread::makesOneMessageOfOneReceive_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("message");
    QTest::newRow("plain") << QByteArray("SCAN /a b") << QStringLiteral("SCAN /a b");
    QTest::newRow("line ends stay") << QByteArray(" SCAN /a\r\n") << QStringLiteral(" SCAN /a\r\n");
    QTest::newRow("UTF-8") << QByteArray("SCAN /\xC3\xB6\xE4\xB8\xAD")
                           << QStringLiteral("SCAN /\u00F6\u4E2D");
    QTest::newRow("not UTF-8") << QByteArray("SCAN /\xFF/a") << QStringLiteral("SCAN /\uFFFD/a");
    QTest::newRow("byte order mark") << QByteArray("\xEF\xBB\xBFSCAN /a") << QStringLiteral("SCAN /a");
    QTest::newRow("cut at a zero byte") << QByteArray("SCAN /a\0/b", 10) << QStringLiteral("SCAN /a");
    QTest::newRow("zero byte first") << QByteArray("\0SCAN", 5) << QString();
    QTest::newRow("zero bytes only") << QByteArray(4096, '\0') << QString();
    QTest::newRow("control characters")
        << QByteArray("\x01\x1B[2J\x7F") << QStringLiteral("\u0001\u001B[2J\u007F");
    QTest::newRow("4095 bytes") << QByteArray(4095, 'x') << QString(4095, QLatin1Char('x'));
    QTest::newRow("4096 bytes") << QByteArray(4096, 'x') << QString(4096, QLatin1Char('x'));
}

void TestCClientThread::makesOneMessageOfOneReceive()
{
    QFETCH(QByteArray, bytes);
    start();
    // The second shows that nothing of the first is left.
    for (int round = 1; round <= 2; ++round) {
        sendBytes(bytes);
        QTRY_COMPARE(m_messages.size(), round);
        QTEST(m_messages.last(), "message");
        sendBytes("x");
        QTRY_COMPARE(m_messages.size(), round + 1);
        QCOMPARE(m_messages.takeLast(), QStringLiteral("x"));
    }
}

void TestCClientThread::joinsWhatArrivedTogether()
{
    sendBytes("SCAN /a");
    sendBytes("SCAN /b");
    start();
    QTRY_COMPARE(m_messages, QStringList(QStringLiteral("SCAN /aSCAN /b")));
}

void TestCClientThread::splitsWhatIsTooLong_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("messages");
    const QString full(4096, QLatin1Char('x'));
    QTest::newRow("4097 bytes") << QByteArray(4097, 'x') << QStringList({full, QStringLiteral("x")});
    QTest::newRow("8192 bytes") << QByteArray(8192, 'x') << QStringList({full, full});
    QTest::newRow("in the middle of a character")
        << QByteArray(4095, 'x') + "\xC3\xB6y"
        << QStringList({full.left(4095) + QChar(0xFFFD), QStringLiteral("\uFFFDy")});
}

void TestCClientThread::splitsWhatIsTooLong()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, messages);
    sendBytes(bytes);
    start();
    QTRY_COMPARE(m_messages.size(), 2);
    QCOMPARE(m_messages, messages);
}

void TestCClientThread::saysGoodbyeOnce()
{
    start();
    sendBytes("a");
    QTRY_COMPARE(m_messages.size(), 1);
    sendBytes("b");
    ::close(m_ends[1]);
    m_ends[1] = -1;
    QVERIFY(m_thread->wait(10000));
    QTRY_COMPARE(m_goodbyes, QList<int>({m_ends[0]}));
    // What was sent before is never lost.
    QCOMPARE(m_messages, QStringList({QStringLiteral("a"), QStringLiteral("b")}));
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({goodbye(0)}));
}

void TestCClientThread::saysGoodbyeToAResetConnection()
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* const raw = reinterpret_cast<sockaddr*>(&address);
    QCOMPARE(::bind(listener, raw, sizeof(address)), 0);
    QCOMPARE(::listen(listener, 1), 0);
    QCOMPARE(::getsockname(listener, raw, &size), 0);
    for (const int end : m_ends) {
        ::close(end);
    }
    m_ends[1] = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    QCOMPARE(::connect(m_ends[1], raw, sizeof(address)), 0);
    m_ends[0] = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ::close(listener);
    m_thread->setClientSocket(m_ends[0]);

    start();
    sendBytes("a");
    QTRY_COMPARE(m_messages.size(), 1);
    const linger reset = {1, 0};
    QCOMPARE(::setsockopt(m_ends[1], SOL_SOCKET, SO_LINGER, &reset, sizeof(reset)), 0);
    ::close(m_ends[1]);
    m_ends[1] = -1;
    QVERIFY(m_thread->wait(10000));
    QTRY_COMPARE(m_goodbyes.size(), 1);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({goodbye(ECONNRESET)}));
}

void TestCClientThread::saysGoodbyeWithoutADescriptor()
{
    m_thread->setClientSocket(-1);
    m_thread->connectToSocket();
    QCOMPARE(m_goodbyes, QList<int>({-1}));
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({goodbye(EBADF)}));
}

void TestCClientThread::tellsNoOldErrorOfAClientThatCloses()
{
    ::shutdown(m_ends[1], SHUT_RDWR);
    errno = ENOENT;
    m_thread->connectToSocket();
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({goodbye(0)}));
}

void TestCClientThread::leavesTheDescriptorOpen()
{
    start();
    ::shutdown(m_ends[1], SHUT_RDWR);
    QVERIFY(m_thread->wait(10000));
    m_thread.reset();
    QVERIFY(::fcntl(m_ends[0], F_GETFD) >= 0);
    m_thread = std::make_unique<CClientThread>();
}

void TestCClientThread::lingersBeforeItEnds()
{
    ::shutdown(m_ends[1], SHUT_RDWR);
    QElapsedTimer timer;
    timer.start();
    std::atomic<qint64> announced = -1;
    connect(
        m_thread.get(), &CClientThread::clientDisconnected, this,
        [&announced, &timer] { announced = timer.elapsed(); }, Qt::DirectConnection);
    start();
    QVERIFY(m_thread->wait(10000));
    // It is announced first, so that the number is free as soon as may be.
    QVERIFY(announced >= 0);
    QVERIFY(timer.elapsed() - announced >= 100);
}

void TestCClientThread::logsWhatItReceivesWhenDebugging()
{
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_DEBUG);
    sendBytes("SCAN %s /a");
    start();
    QTRY_COMPARE(m_messages.size(), 1);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"DEBUG", "CClientThread::connectToSocket",
                                                  "Recieved From Socket: SCAN %s /a"}}));
}

void TestCClientThread::stopsReadingWhileTooMuchIsUnserved()
{
    startAndCount();
    const auto fill = [this] {
        while (::send(m_ends[1], "SCAN /a", 7, MSG_DONTWAIT | MSG_NOSIGNAL) == 7) {
        }
        return errno;
    };
    QElapsedTimer timer;
    timer.start();
    do {
        QCOMPARE(fill(), EAGAIN);
    } while (m_received < CClientThread::unservedLimit && timer.elapsed() < 10000);
    QCOMPARE(m_received.load(), CClientThread::unservedLimit);
    QCOMPARE(fill(), EAGAIN);
    for (int served = 1; served <= 20; ++served) {
        m_thread->messageServed();
        QTRY_COMPARE(m_received.load(), CClientThread::unservedLimit + served);
    }
}

void TestCClientThread::stopsReadingWhileTooManyBytesAreUnserved()
{
    startAndCount();
    const QByteArray longest(4096, 'a');
    const auto fill = [&longest, this] {
        while (::send(m_ends[1], longest.constData(), static_cast<size_t>(longest.size()),
                      MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
        }
    };
    const int limit = static_cast<int>(CClientThread::unservedBytesLimit) / longest.size();
    QTRY_VERIFY((fill(), m_received >= limit));
    for (int served = 1; served <= 2 * limit; ++served) {
        m_thread->messageServed();
        QTRY_COMPARE(m_received.load(), limit + served);
        fill();
    }
    QTest::qWait(20);
    QCOMPARE(m_received.load(), 3 * limit);
}

void TestCClientThread::stopsOutOfAReceive()
{
    start();
    sendBytes("a");
    QTRY_COMPARE(m_messages.size(), 1);
    m_thread->stop();
    ::shutdown(m_ends[0], SHUT_RDWR);
    QVERIFY(m_thread->wait(10000));
    QTRY_COMPARE(m_goodbyes.size(), 1);
}

void TestCClientThread::stopsOutOfAWaitForRoom()
{
    startAndCount();
    for (int i = 0; i < CClientThread::unservedLimit + 3; ++i) {
        sendBytes("a");
    }
    QTRY_COMPARE(m_received.load(), CClientThread::unservedLimit);
    m_thread->stop();
    QVERIFY(m_thread->wait(10000));
    QCOMPARE(m_received.load(), CClientThread::unservedLimit);
}

void TestCClientThread::stopsBeforeItReads()
{
    sendBytes("a");
    m_thread->stop();
    start();
    QVERIFY(m_thread->wait(10000));
    QTRY_COMPARE(m_goodbyes.size(), 1);
    QVERIFY(m_messages.isEmpty());
}

QTEST_GUILESS_MAIN(TestCClientThread)
#include "tst_cclientthread.moc"
