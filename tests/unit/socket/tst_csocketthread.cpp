#include "socket/csocketthread.h"

#include "counts.h"
#include "fakesockets.h"
#include "logger/clogger.h"
#include "support/limiteddescriptors.h"
#include "support/logreader.h"

#include <QElapsedTimer>
#include <QTest>
#include <QVector>

#include <cerrno>
#include <memory>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

class TestCSocketThread : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void listensOnItsPortByDefault();
    void asksForAPlainSharedTcpSocket();
    void usesTheLowBitsOfThePort();
    void tellsASocketThatFails();
    void goesOnWithoutTheOption();
    void tellsAPortThatIsTaken();
    void leaksNothingOfTheReserve();
    void endsWhenListeningFails();
    void endsWhenAcceptingFails();
    void endsAtAClientOfTheReserve();
    void goesOnAfterAClientThatIsGone_data();
    void goesOnAfterAClientThatIsGone();
    void announcesClientsOneASecond();
    void sharesThePort();
    void startsAnewAfterTenSeconds();
    void stops_data();
    void stops();
    void stopsBetweenTwoClients();
    void staysStopped();

private:
    /// Connects a client, as soon as somebody listens.
    void connectClient();
    /// What is logged from now on until there are `count` lines.
    QVector<LogLine> waitForLines(int count);

    std::unique_ptr<CSocketThread> m_listener;
    std::unique_ptr<LogReader> m_log;
    QVector<int> m_peers;
    // Filled on the main thread.
    QVector<int> m_announced;
};

namespace
{
const char* const location = "CSocketThread::runSocketListner";
const LogLine in = {"DEBUG", location, "IN"};
const LogLine out = {"DEBUG", location, "OUT"};
const LogLine listening = {"INFO", location, "Socket Listening"};

LogLine error(int code, const char* text)
{
    return {"ERROR", location, errorCode(code) + text};
}

LogLine connected(int descriptor)
{
    return {"INFO", location, "127.0.0.1 - Connected on socket. - " + QByteArray::number(descriptor)};
}
} // namespace

void TestCSocketThread::init()
{
    FakeSockets::reset();
    LOGGER::CLogger::getInstance()->Info("next", "%s", QTest::currentTestFunction());
    m_log = std::make_unique<LogReader>();
    m_announced.clear();
    m_listener = std::make_unique<CSocketThread>();
    connect(m_listener.get(), &CSocketThread::clientConnected, this,
            [this](int descriptor) { m_announced.append(descriptor); });
}

void TestCSocketThread::cleanup()
{
    m_listener.reset();
    QCoreApplication::processEvents();
    for (const int descriptor : qAsConst(m_peers) + m_announced) {
        ::close(descriptor);
    }
    m_peers.clear();
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_TRACE);
}

void TestCSocketThread::connectClient()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(FakeSockets::port));
    const bool connected = QTest::qWaitFor([&address, this] {
        const int peer = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        m_peers.append(peer);
        return ::connect(peer, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    });
    if (!connected) {
        qFatal("nobody listens");
    }
}

QVector<LogLine> TestCSocketThread::waitForLines(int count)
{
    QVector<LogLine> lines;
    const bool came = QTest::qWaitFor(
        [&lines, count, this] {
            lines += m_log->takeNew();
            return lines.size() >= count;
        },
        30000);
    if (!came) {
        qWarning("only %d lines", lines.size());
    }
    return lines;
}

void TestCSocketThread::listensOnItsPortByDefault()
{
    QCOMPARE(m_listener->getSocketPort(), 8889);
    m_listener->setSocketPort(1234);
    QCOMPARE(m_listener->getSocketPort(), 1234);
    QVERIFY(!m_listener->isRunning());
}

void TestCSocketThread::asksForAPlainSharedTcpSocket()
{
    m_listener->stop();
    QCOMPARE(m_listener->runSocketListner(), 1);
    QCOMPARE(FakeSockets::family, AF_INET);
    QCOMPARE(FakeSockets::type, static_cast<int>(SOCK_STREAM) | SOCK_CLOEXEC | SOCK_NONBLOCK);
    QCOMPARE(FakeSockets::protocol, 6);
    QCOMPARE(FakeSockets::optionLevel, SOL_SOCKET);
    QCOMPARE(FakeSockets::optionName, SO_REUSEPORT);
    QCOMPARE(FakeSockets::optionValue, 1);
    QCOMPARE(FakeSockets::address.sin_family, static_cast<sa_family_t>(AF_INET));
    QCOMPARE(FakeSockets::address.sin_addr.s_addr, INADDR_ANY);
    QCOMPARE(ntohs(FakeSockets::address.sin_port), uint16_t(8889));
    QCOMPARE(FakeSockets::addressSize, socklen_t(16));
    QCOMPARE(FakeSockets::backlog.load(), 2);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({listening}));
}

void TestCSocketThread::usesTheLowBitsOfThePort()
{
    m_listener->setSocketPort(FakeSockets::port + 3 * 65536);
    m_listener->stop();
    QCOMPARE(m_listener->runSocketListner(), 1);
    QCOMPARE(static_cast<int>(ntohs(FakeSockets::address.sin_port)), FakeSockets::port.load());
}

void TestCSocketThread::tellsASocketThatFails()
{
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_DEBUG);
    FakeSockets::socketError = EMFILE;
    const int before = openDescriptors();
    QCOMPARE(m_listener->runSocketListner(), 0);
    QCOMPARE(openDescriptors(), before);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({in, error(EMFILE, "Socket Failed!"), out}));
}

void TestCSocketThread::goesOnWithoutTheOption()
{
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_DEBUG);
    FakeSockets::optionError = ENOPROTOOPT;
    ::close(FakeSockets::holder);
    FakeSockets::holder = -1;
    m_listener->stop();
    QCOMPARE(m_listener->runSocketListner(), 1);
    QCOMPARE(m_log->takeNew(),
             QVector<LogLine>({in, error(ENOPROTOOPT, "setsockopt Failed!"), listening, out}));
}

void TestCSocketThread::tellsAPortThatIsTaken()
{
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_DEBUG);
    ::close(FakeSockets::holder);
    FakeSockets::holder = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in any = [] {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(FakeSockets::port));
        return address;
    }();
    QCOMPARE(::bind(FakeSockets::holder, reinterpret_cast<const sockaddr*>(&any), sizeof(any)), 0);
    const int before = openDescriptors();
    QCOMPARE(m_listener->runSocketListner(), 0);
    // The one descriptor that stays open on purpose.
    QCOMPARE(openDescriptors(), before + 1);
    QCOMPARE(m_listener->runSocketListner(), 0);
    QCOMPARE(openDescriptors(), before + 2);
    const LogLine failed = error(EADDRINUSE, "bind Failed!");
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({in, failed, out, in, failed, out}));
}

void TestCSocketThread::leaksNothingOfTheReserve()
{
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_DEBUG);
    FakeSockets::bindError = EADDRINUSE;
    const int before = openDescriptors();
    // Room for one more.
    const LimitedDescriptors limited(static_cast<rlim_t>(2 * (lowestFreeDescriptor() + 1)));
    QCOMPARE(m_listener->runSocketListner(), 0);
    QCOMPARE(m_listener->runSocketListner(), 0);
    QCOMPARE(openDescriptors(), before + 1);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({in, error(EADDRINUSE, "bind Failed!"), out, in,
                                                 error(EMFILE, "Socket Failed!"), out}));
}

void TestCSocketThread::endsWhenListeningFails()
{
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_DEBUG);
    FakeSockets::listenError = EADDRINUSE;
    const int before = openDescriptors();
    QCOMPARE(m_listener->runSocketListner(), 1);
    QCOMPARE(openDescriptors(), before);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({in, listening, out}));
}

void TestCSocketThread::endsWhenAcceptingFails()
{
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_DEBUG);
    FakeSockets::acceptError = EMFILE;
    const int before = openDescriptors();
    m_listener->start();
    connectClient();
    QCOMPARE(waitForLines(3), QVector<LogLine>({in, listening, out}));
    m_listener->stop();
    QVERIFY(m_listener->wait(30000));
    QCOMPARE(openDescriptors(), before + m_peers.size());
    QVERIFY(m_announced.isEmpty());
}

void TestCSocketThread::endsAtAClientOfTheReserve()
{
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_DEBUG);
    m_listener->start();
    QCOMPARE(waitForLines(2), QVector<LogLine>({in, listening}));
    {
        const LimitedDescriptors limited(static_cast<rlim_t>(2 * lowestFreeDescriptor()));
        connectClient();
        QCOMPARE(waitForLines(1), QVector<LogLine>({out}));
    }
    m_listener->stop();
    QVERIFY(m_listener->wait(30000));
    QVERIFY(m_announced.isEmpty());
    char byte = 0;
    QCOMPARE(::recv(m_peers.last(), &byte, 1, 0), ssize_t(0));
}

void TestCSocketThread::goesOnAfterAClientThatIsGone_data()
{
    QTest::addColumn<int>("code");
    QTest::newRow("nothing there after all") << EAGAIN;
    QTest::newRow("interrupted") << EINTR;
}

void TestCSocketThread::goesOnAfterAClientThatIsGone()
{
    QFETCH(int, code);
    FakeSockets::acceptFailures = 3;
    FakeSockets::acceptError = code;
    m_listener->start();
    connectClient();
    QTRY_COMPARE(m_announced.size(), 1);
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({listening, connected(m_announced.at(0))}));
}

void TestCSocketThread::announcesClientsOneASecond()
{
    m_listener->start();
    QElapsedTimer timer;
    timer.start();
    connectClient();
    connectClient();
    connectClient();
    QTRY_COMPARE_WITH_TIMEOUT(m_announced.size(), 3, 20000);
    QVERIFY(timer.elapsed() >= 2000);
    QVector<LogLine> expected = {listening};
    for (const int descriptor : qAsConst(m_announced)) {
        expected.append(connected(descriptor));
        QVERIFY((::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0);
        QVERIFY((::fcntl(descriptor, F_GETFL) & O_NONBLOCK) == 0);
    }
    QCOMPARE(m_log->takeNew(), expected);
}

void TestCSocketThread::sharesThePort()
{
    CSocketThread second;
    m_listener->start();
    QCOMPARE(waitForLines(1), QVector<LogLine>({listening}));
    second.start();
    // The same line again is told by a counter.
    const QVector<LogLine> lines = waitForLines(1);
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.at(0).message.startsWith("Repeated ["), lines.at(0).message.constData());
}

void TestCSocketThread::startsAnewAfterTenSeconds()
{
    FakeSockets::bindError = EADDRINUSE;
    QElapsedTimer timer;
    timer.start();
    m_listener->start();
    QCOMPARE(waitForLines(1), QVector<LogLine>({error(EADDRINUSE, "bind Failed!")}));
    QVERIFY(timer.elapsed() < 9000);
    FakeSockets::bindError = 0;
    m_listener->setSocketPort(FakeSockets::port);
    QCOMPARE(waitForLines(1), QVector<LogLine>({listening}));
    QVERIFY(timer.elapsed() >= 10000);
    QCOMPARE(static_cast<int>(ntohs(FakeSockets::address.sin_port)), FakeSockets::port.load());
}

void TestCSocketThread::stops_data()
{
    QTest::addColumn<int>("bindCode");
    QTest::addColumn<bool>("client");
    QTest::newRow("while it waits for a client") << 0 << false;
    QTest::newRow("in the second after a client") << 0 << true;
    QTest::newRow("in the ten seconds after a failure") << EADDRINUSE << false;
}

void TestCSocketThread::stops()
{
    QFETCH(int, bindCode);
    QFETCH(bool, client);
    FakeSockets::bindError = bindCode;
    m_listener->start();
    QCOMPARE(waitForLines(1).size(), 1);
    if (client) {
        connectClient();
        QTRY_COMPARE(m_announced.size(), 1);
    }
    QElapsedTimer timer;
    timer.start();
    m_listener->stop();
    QVERIFY(m_listener->wait(30000));
    QVERIFY2(timer.elapsed() < 500, qPrintable(QString::number(timer.elapsed())));
}

void TestCSocketThread::stopsBetweenTwoClients()
{
    m_listener->start();
    connectClient();
    connectClient();
    QTRY_COMPARE(m_announced.size(), 1);
    m_listener->stop();
    QVERIFY(m_listener->wait(30000));
    QCoreApplication::processEvents();
    QCOMPARE(m_announced.size(), 1);
}

void TestCSocketThread::staysStopped()
{
    m_listener->stop();
    m_listener->start();
    QVERIFY(m_listener->wait(30000));
    QCOMPARE(FakeSockets::binds.load(), 0);
    m_listener->start();
    QVERIFY(m_listener->wait(30000));
    QCOMPARE(FakeSockets::binds.load(), 0);
}

QTEST_GUILESS_MAIN(TestCSocketThread)
#include "tst_csocketthread.moc"
