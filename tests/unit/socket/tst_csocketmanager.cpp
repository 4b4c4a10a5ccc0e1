#include "socket/csocketmanager.h"

#include "counts.h"
#include "logger/clogger.h"
#include "support/fakescanners.h"
#include "support/fakethreads.h"
#include "support/limiteddescriptors.h"
#include "support/logreader.h"

#include <QElapsedTimer>
#include <QMetaMethod>
#include <QSet>
#include <QTest>

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <random>
#include <thread>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

/// The dispatcher over fake scanners. Clients are pairs of connected sockets, handed to the slots.
class TestCSocketManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void isOneInstanceWithFourSlots();
    void answers_data();
    void answers();
    void leavesTheScannersAloneWithoutAName_data();
    void leavesTheScannersAloneWithoutAName();
    void registersAndRegistersAnew();
    void forgetsTheNameWithTheClient();
    void logs_data();
    void logs();
    void waitsForTheDatabase_data();
    void waitsForTheDatabase();
    void answersALongReplyWhole();
    void sendsATextDirectly_data();
    void sendsATextDirectly();
    void servesManyRequestsOfOneClientInOrder();
    void servesAtOnceWhenNothingWaits();
    void answersWhatWasQueuedBeforeItCloses();
    void executesWhatAClientLeftBehind();
    void shutsDownAClientThatDoesNotRead();
    void closesEachDescriptorOnce();
    void letsGoOfAClientWithoutAThread();
    void letsGoOfAClientWhoseThreadWouldTakeTheReserve();
    void givesEveryReplyToTheClientThatAsked();
    void leaksNothingInTenThousandConnections();
    void survivesAnything();

private:
    /// A client of the manager; returns its own end.
    int connectClient();
    QByteArray ask(int peer, const QByteArray& request);

    CSocketManager* m_manager = nullptr;
    std::unique_ptr<LogReader> m_log;
    QVector<int> m_peers;
    /// The manager's end of the client that was connected last.
    int m_served = -1;
    /// Those that are none of the manager's.
    int m_threads = 0;
};

namespace
{
const char* const dispatch = "CSocketManager::onClientReceivedMessage";

void sendBytes(int peer, const QByteArray& bytes)
{
    if (::send(peer, bytes.constData(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL) != bytes.size()) {
        qFatal("cannot send");
    }
}

/// Counts the queued calls of an object.
class CallCounter : public QObject
{
public:
    bool eventFilter(QObject*, QEvent* event) override
    {
        calls += event->type() == QEvent::MetaCall ? 1 : 0;
        return false;
    }

    int calls = 0;
};

QByteArray received(int peer)
{
    QByteArray buffer(1 << 16, '\0');
    const ssize_t size = ::recv(peer, buffer.data(), static_cast<size_t>(buffer.size()), MSG_DONTWAIT);
    return buffer.left(static_cast<int>(qMax<ssize_t>(size, 0)));
}
} // namespace

void TestCSocketManager::initTestCase()
{
    m_threads = runningThreads();
}

void TestCSocketManager::init()
{
    FakeThreads::noneLeft = false;
    FakeScanners::reset();
    m_manager = CSocketManager::getInstance();
    LOGGER::CLogger::getInstance()->Info("next", "%s", QTest::currentTestFunction());
    m_log = std::make_unique<LogReader>();
}

void TestCSocketManager::cleanup()
{
    FakeThreads::noneLeft = false;
    for (const int peer : qAsConst(m_peers)) {
        ::close(peer);
    }
    m_peers.clear();
    QTRY_COMPARE(runningThreads(), m_threads);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_TRACE);
}

int TestCSocketManager::connectClient()
{
    std::array<int, 2> ends = {};
    // Packets keep their bounds, so each is a request of its own and each reply is seen as it was sent.
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        qFatal("no sockets");
    }
    m_manager->onClientConnected(ends[0]);
    m_served = ends[0];
    m_peers.append(ends[1]);
    return ends[1];
}

QByteArray TestCSocketManager::ask(int peer, const QByteArray& request)
{
    sendBytes(peer, request);
    QByteArray reply;
    QElapsedTimer timer;
    timer.start();
    while ((reply = received(peer)).isEmpty() && timer.elapsed() < 10000) {
        QCoreApplication::processEvents();
        std::this_thread::yield();
    }
    return reply;
}

void TestCSocketManager::isOneInstanceWithFourSlots()
{
    QCOMPARE(CSocketManager::getInstance(), m_manager);
    const QMetaObject& meta = CSocketManager::staticMetaObject;
    QList<QByteArray> methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        methods.append(meta.method(i).methodSignature());
    }
    QCOMPARE(methods, QList<QByteArray>({"onClientConnected(int)", "onClientReceivedMessage(int,QString)",
                                         "onClientSendMessage(int,QString)", "onClientDisconnected(int)"}));
}

void TestCSocketManager::answers_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("call");
    const auto row = [](const char* name, const QByteArray& request, int result, const QByteArray& reply,
                        const QString& call = QString()) {
        QTest::newRow(name) << request << result << reply << call;
    };
    row("module", "MODULE other", 0, "REGISTERED!");
    row("module, lower case", "module other", 0, "REGISTERED!");
    row("scan, clean", "SCAN /a", 0, "CLEAN", QStringLiteral("scan /a"));
    row("scan, infected", "SCAN /a", 1, "INFECTED Test-Name", QStringLiteral("scan /a"));
    row("scan, error", "SCAN /a", 8, "ERROR 8", QStringLiteral("scan /a"));
    row("scan, negative", "SCAN /a", -5, "ERROR -5", QStringLiteral("scan /a"));
    row("scan, lower case", "scan /a", 0, "CLEAN", QStringLiteral("scan /a"));
    row("scan, spaces", "SCAN /a b  c", 0, "CLEAN", QStringLiteral("scan /a b  c"));
    row("scan, line ends", "SCAN /a\r\n", 0, "CLEAN", QStringLiteral("scan /a"));
    row("scan, line ends inside", "SCAN \n/a\r/b\n", 0, "CLEAN", QStringLiteral("scan /a/b"));
    row("scan, no argument", "SCAN", 0, "CLEAN", QStringLiteral("scan "));
    row("scan, line end instead", "SCAN\n", 0, "INVALID COMMAND!");
    row("scan, leading space", " SCAN /a", 0, "INVALID COMMAND!");
    row("scan, not UTF-8", "SCAN /\xFF", 8, "ERROR 8", QStringLiteral("scan /\uFFFD"));
    row("clean, removed", "CLEAN /a", 0, "FAILED 9", QStringLiteral("clean /a"));
    row("clean, not removed", "CLEAN /a", 1, "CLEANED", QStringLiteral("clean /a"));
    row("clean, report only", "clean /a", -1, "CLEANED", QStringLiteral("clean /a"));
    row("url, clean", "SCANURL http://x/", 0, "CLEAN", QStringLiteral("url http://x/"));
    row("url, bad", "ScanUrl http://x/", 1, "INFECTED Test-Name", QStringLiteral("url http://x/"));
    row("url, error", "SCANURL http://x/", 2, "ERROR 2", QStringLiteral("url http://x/"));
    row("ioc, none", "SCANIOC /a", 0, "CLEAN", QStringLiteral("ioc /a"));
    const QByteArray sha1(40, 'b');
    row("ioc, allowed", "SCANIOC /a", 1, "SHA1:IA:" + sha1, QStringLiteral("ioc /a"));
    row("ioc, renamed", "scanioc /a", 2, "SHA1:IR:" + sha1, QStringLiteral("ioc /a"));
    row("ioc, deleted", "SCANIOC /a", 3, "SHA1:ID:" + sha1, QStringLiteral("ioc /a"));
    row("ioc, failed", "SCANIOC /a", 4, "SHA1:" + sha1 + ":ERROR", QStringLiteral("ioc /a"));
    row("ioc, negative", "SCANIOC /a", -1, "SHA1:" + sha1 + ":ERROR", QStringLiteral("ioc /a"));
    row("reload db", "RELOADDB", 1, "SUCCESS", QStringLiteral("reload db"));
    row("reload db, line end", "reloaddb\r\n", 1, "SUCCESS", QStringLiteral("reload db"));
    row("reload db, letters", "RELOADDBASE now", 1, "SUCCESS", QStringLiteral("reload db"));
    row("reload db, failed", "RELOADDB", 0, "FAILED", QStringLiteral("reload db"));
    row("reload settings", "RELOADSETTINGS", 1, "SUCCESS", QStringLiteral("reload settings"));
    row("reload settings, failed", "RELOADSETT", 0, "FAILED", QStringLiteral("reload settings"));
    row("reload ioc db", "RELOADIOCDB", 1, "SUCCESS", QStringLiteral("reload ioc db"));
    row("reload ioc db, failed", "RELOADIOCDB", 0, "FAILED", QStringLiteral("reload ioc db"));
    row("reload ioc settings", "ReloadIocSett", 1, "SUCCESS", QStringLiteral("reload ioc settings"));
    row("reload ioc settings, failed", "RELOADIOCSETT", 0, "FAILED", QStringLiteral("reload ioc settings"));
    row("nothing known", "HELLO", 0, "INVALID COMMAND!");
    row("a space", " ", 0, "INVALID COMMAND!");
    row("a zero byte", QByteArray(1, '\0'), 0, "INVALID COMMAND!");
    row("not UTF-8", "\xFF\xFE", 0, "INVALID COMMAND!");
    row("control characters", "\x01\x02\x1B[2J", 0, "INVALID COMMAND!");
    row("4096 bytes", QByteArray(4096, 'x'), 0, "INVALID COMMAND!");
    row("a path of 4096 bytes", "SCAN /" + QByteArray(4090, 'p'), 8, "ERROR 8",
        QStringLiteral("scan /") + QString(4090, QLatin1Char('p')));
}

void TestCSocketManager::answers()
{
    QFETCH(QByteArray, request);
    QFETCH(int, result);
    QFETCH(QString, call);
    const int peer = connectClient();
    QCOMPARE(ask(peer, "MODULE demo"), QByteArray("REGISTERED!"));
    FakeScanners::scanResult = result;
    FakeScanners::urlResult = result;
    FakeScanners::cleanResult = result;
    FakeScanners::iocResult = result;
    FakeScanners::reloadResult = result != 0;
    FakeScanners::virusName = QStringLiteral("Test-Name");
    FakeScanners::hash = QString(40, QLatin1Char('b'));
    FakeScanners::lastError = 9;
    QTEST(ask(peer, request), "reply");
    QCOMPARE(FakeScanners::calls, call.isEmpty() ? QStringList() : QStringList(call));
}

void TestCSocketManager::leavesTheScannersAloneWithoutAName_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("scan") << QByteArray("SCAN /a") << QByteArray("INVALID COMMAND!");
    QTest::newRow("clean") << QByteArray("CLEAN /a") << QByteArray("INVALID COMMAND!");
    QTest::newRow("url") << QByteArray("SCANURL x") << QByteArray("INVALID COMMAND!");
    QTest::newRow("ioc") << QByteArray("SCANIOC /a") << QByteArray("INVALID COMMAND!");
    QTest::newRow("reload db") << QByteArray("RELOADDB") << QByteArray("SUCCESS");
    QTest::newRow("reload settings") << QByteArray("RELOADSETT") << QByteArray("SUCCESS");
    QTest::newRow("reload ioc db") << QByteArray("RELOADIOCDB") << QByteArray("SUCCESS");
    QTest::newRow("reload ioc settings") << QByteArray("RELOADIOCSETT") << QByteArray("SUCCESS");
}

void TestCSocketManager::leavesTheScannersAloneWithoutAName()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, reply);
    const bool reloads = reply == "SUCCESS";
    const int peer = connectClient();
    QCOMPARE(ask(peer, request), reply);
    // An empty name is none.
    for (const char* registration : {"MODULE", "MODULE ", "MODULE \r\n"}) {
        QCOMPARE(ask(peer, registration), QByteArray("REGISTERED!"));
        QCOMPARE(ask(peer, request), reply);
    }
    QCOMPARE(FakeScanners::calls.size(), reloads ? 4 : 0);
    QCOMPARE(FakeScanners::loadingAsked + FakeScanners::iocLoadingAsked, 0);
}

void TestCSocketManager::registersAndRegistersAnew()
{
    const int peer = connectClient();
    const int other = connectClient();
    FakeScanners::scanResult = 1;
    FakeScanners::virusName = QStringLiteral("V");
    QCOMPARE(ask(peer, "MODULE first name"), QByteArray("REGISTERED!"));
    QCOMPARE(ask(peer, "SCAN /a"), QByteArray("INFECTED V"));
    QCOMPARE(ask(other, "SCAN /a"), QByteArray("INVALID COMMAND!"));
    QCOMPARE(ask(peer, "MODULE second"), QByteArray("REGISTERED!"));
    QCOMPARE(ask(peer, "SCAN /a"), QByteArray("INFECTED V"));
    QCOMPARE(ask(peer, "MODULE "), QByteArray("REGISTERED!"));
    QCOMPARE(ask(peer, "SCAN /a"), QByteArray("INVALID COMMAND!"));
    QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"INFO", dispatch, "Virus Found[first name]: /a INFECTED V"},
                                                 {"INFO", dispatch, "Virus Found[second]: /a INFECTED V"}}));
}

void TestCSocketManager::forgetsTheNameWithTheClient()
{
    const int peer = connectClient();
    const int descriptor = m_served;
    QCOMPARE(ask(peer, "MODULE demo"), QByteArray("REGISTERED!"));
    ::close(peer);
    m_peers.removeLast();
    QTRY_VERIFY(::fcntl(descriptor, F_GETFD) < 0);
    // The number is free and the next client gets it.
    int next = -1;
    do {
        next = connectClient();
    } while (m_served < descriptor);
    QCOMPARE(m_served == descriptor || m_peers.contains(descriptor), true);
    QCOMPARE(ask(next, "SCAN /a"), QByteArray("INVALID COMMAND!"));
}

void TestCSocketManager::logs_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QByteArray>("message");
    const QByteArray info("INFO");
    const QByteArray trace("TRACE");
    const QByteArray hash(64, 'c');
    QTest::newRow("scan, clean") << QByteArray("SCAN /a") << 0 << QByteArray() << QByteArray();
    QTest::newRow("scan, infected") << QByteArray("SCAN /a b\r\n") << 1 << info
                                    << QByteArray("Virus Found[demo]: /a b INFECTED Test-Name");
    QTest::newRow("scan, percent signs")
        << QByteArray("SCAN /%s%n") << 1 << info << QByteArray("Virus Found[demo]: /%s%n INFECTED Test-Name");
    QTest::newRow("scan, UTF-8") << QByteArray("SCAN /\xC3\xB6") << 1 << info
                                 << QByteArray("Virus Found[demo]: /\xC3\xB6 INFECTED Test-Name");
    QTest::newRow("scan, error") << QByteArray("SCAN /a") << 8 << QByteArray() << QByteArray();
    QTest::newRow("clean, removed") << QByteArray("CLEAN /a") << 0 << QByteArray() << QByteArray();
    QTest::newRow("clean, failed") << QByteArray("CLEAN /a") << 1 << QByteArray() << QByteArray();
    QTest::newRow("url, clean") << QByteArray("SCANURL u") << 0 << QByteArray() << QByteArray();
    QTest::newRow("url, bad") << QByteArray("SCANURL u") << 1 << info
                              << QByteArray("Bad URL Found[demo]: u INFECTED Test-Name");
    QTest::newRow("url, error") << QByteArray("SCANURL u") << 2 << QByteArray() << QByteArray();
    QTest::newRow("ioc, none") << QByteArray("SCANIOC /a") << 0 << QByteArray() << QByteArray();
    QTest::newRow("ioc, allowed") << QByteArray("SCANIOC /a") << 1 << info
                                  << "IDC File Detected[demo]: /a SHA256:IA:" + hash;
    QTest::newRow("ioc, renamed") << QByteArray("SCANIOC /a") << 2 << info
                                  << "IDC File Detected[demo]: /a SHA256:IR:" + hash;
    QTest::newRow("ioc, deleted") << QByteArray("SCANIOC /a") << 3 << info
                                  << "IDC File Detected[demo]: /a SHA256:ID:" + hash;
    QTest::newRow("ioc, failed") << QByteArray("SCANIOC /a") << 4 << info
                                 << "IDC File Detected[demo]: /a SHA256:" + hash + ":ERROR";
    QTest::newRow("ioc, above four") << QByteArray("SCANIOC /a") << 5 << info
                                     << "IDC File Detected[demo]: /a SHA256:" + hash + ":ERROR";
    QTest::newRow("ioc, negative") << QByteArray("SCANIOC /a") << -1 << QByteArray() << QByteArray();
    QTest::newRow("db") << QByteArray("RELOADDB") << 1 << trace << QByteArray("Reload DB command recieved.");
    QTest::newRow("settings") << QByteArray("RELOADSETT") << 0 << trace
                              << QByteArray("Reload settings command recieved.");
    QTest::newRow("ioc db") << QByteArray("RELOADIOCDB") << 1 << trace
                            << QByteArray("Reload IOCDB command recieved.");
    QTest::newRow("ioc settings") << QByteArray("RELOADIOCSETT") << 0 << trace
                                  << QByteArray("Reload IOCSettings command recieved.");
    QTest::newRow("invalid") << QByteArray("HELLO") << 0 << QByteArray() << QByteArray();
    QTest::newRow("module") << QByteArray("MODULE demo") << 0 << QByteArray() << QByteArray();
}

void TestCSocketManager::logs()
{
    QFETCH(QByteArray, request);
    QFETCH(int, result);
    QFETCH(QByteArray, level);
    QFETCH(QByteArray, message);
    const int peer = connectClient();
    QCOMPARE(ask(peer, "MODULE demo"), QByteArray("REGISTERED!"));
    FakeScanners::scanResult = result;
    FakeScanners::urlResult = result;
    FakeScanners::cleanResult = result;
    FakeScanners::iocResult = result;
    FakeScanners::reloadResult = result != 0;
    FakeScanners::virusName = QStringLiteral("Test-Name");
    FakeScanners::hash = QString(64, QLatin1Char('c'));
    QVERIFY(!ask(peer, request).isEmpty());
    QCOMPARE(m_log->takeNew(),
             level.isEmpty() ? QVector<LogLine>() : QVector<LogLine>({{level, dispatch, message}}));
}

void TestCSocketManager::waitsForTheDatabase_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("loading");
    QTest::addColumn<int>("iocLoading");
    QTest::addColumn<int>("seconds");
    QTest::newRow("scan") << QByteArray("SCAN /a") << 2 << 0 << 2;
    QTest::newRow("scan does not mind the hashes") << QByteArray("SCAN /a") << 0 << 5 << 0;
    QTest::newRow("ioc") << QByteArray("SCANIOC /a") << 0 << 2 << 2;
    QTest::newRow("ioc does not mind the signatures") << QByteArray("SCANIOC /a") << 5 << 0 << 0;
    QTest::newRow("url") << QByteArray("SCANURL u") << 5 << 5 << 0;
    QTest::newRow("clean") << QByteArray("CLEAN /a") << 5 << 5 << 0;
    QTest::newRow("reload") << QByteArray("RELOADDB") << 5 << 5 << 0;
}

void TestCSocketManager::waitsForTheDatabase()
{
    QFETCH(QByteArray, request);
    QFETCH(int, loading);
    QFETCH(int, iocLoading);
    QFETCH(int, seconds);
    const int peer = connectClient();
    QCOMPARE(ask(peer, "MODULE demo"), QByteArray("REGISTERED!"));
    FakeScanners::timesLoading = loading;
    FakeScanners::timesIocLoading = iocLoading;
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!ask(peer, request).isEmpty());
    const qint64 elapsed = timer.elapsed();
    QVERIFY2(elapsed >= seconds * 1000LL && elapsed < seconds * 1000LL + 900,
             qPrintable(QString::number(elapsed)));
    QCOMPARE(FakeScanners::calls.size(), 1);
}

void TestCSocketManager::answersALongReplyWhole()
{
    const int peer = connectClient();
    QCOMPARE(ask(peer, "MODULE demo"), QByteArray("REGISTERED!"));
    FakeScanners::scanResult = 1;
    for (const int length : {1014, 1015, 1016, 5000, 50000}) {
        FakeScanners::virusName = QString(length, QLatin1Char('v'));
        QCOMPARE(ask(peer, "SCAN /a"), "INFECTED " + QByteArray(length, 'v'));
    }
}

void TestCSocketManager::sendsATextDirectly_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("plain") << QStringLiteral("hello") << QByteArray("hello");
    QTest::newRow("UTF-8") << QStringLiteral("\u00F6") << QByteArray("\xC3\xB6");
    QTest::newRow("percent signs") << QStringLiteral("%s%n") << QByteArray("%s%n");
    QTest::newRow("cut at a zero") << QStringLiteral("ab") + QChar(0) + QStringLiteral("c")
                                   << QByteArray("ab");
    QTest::newRow("1024 bytes") << QString(1024, QLatin1Char('x')) << QByteArray(1024, 'x');
    QTest::newRow("10,000 bytes") << QString(10000, QLatin1Char('x')) << QByteArray(10000, 'x');
}

void TestCSocketManager::sendsATextDirectly()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, sent);
    LOGGER::CLogger::getInstance()->UpdateLogLevel(LOGGER::LOG_LEVEL_DEBUG);
    const int peer = connectClient();
    QCOMPARE(m_manager->onClientSendMessage(m_served, text), sent.size());
    QCOMPARE(received(peer), sent);
    if (sent.size() < 100) {
        QCOMPARE(m_log->takeNew(), QVector<LogLine>({{"DEBUG", "CSocketManager::onClientSendMessage",
                                                      "Send message: " + sent}}));
    }
    QCOMPARE(m_manager->onClientSendMessage(-1, text), -1);
}

void TestCSocketManager::servesManyRequestsOfOneClientInOrder()
{
    constexpr int requests = 500;
    const int peer = connectClient();
    QCOMPARE(ask(peer, "MODULE demo"), QByteArray("REGISTERED!"));
    // Reads all the time, as the queue of replies is short and who leaves it full is disconnected.
    std::atomic<int> replies = 0;
    std::thread reader([&replies, peer] {
        char reply[64];
        while (::recv(peer, reply, sizeof(reply), 0) > 0) {
            ++replies;
        }
    });
    QStringList expected;
    for (int i = 0; i < requests; ++i) {
        const QByteArray request = "SCAN /" + QByteArray::number(i);
        expected.append(QStringLiteral("scan /%1").arg(i));
        // Not waiting in the call: the one that makes room again is this very thread.
        while (::send(peer, request.constData(), static_cast<size_t>(request.size()), MSG_DONTWAIT) < 0) {
            QCoreApplication::processEvents();
        }
    }
    const bool allServed = QTest::qWaitFor([&replies] { return replies == requests; }, 20000);
    ::shutdown(peer, SHUT_RDWR);
    reader.join();
    QVERIFY(allServed);
    QCOMPARE(FakeScanners::calls, expected);
}

void TestCSocketManager::servesAtOnceWhenNothingWaits()
{
    constexpr int requests = 100;
    const int peer = connectClient();
    QCOMPARE(ask(peer, "MODULE demo"), QByteArray("REGISTERED!"));
    CallCounter counter;
    m_manager->installEventFilter(&counter);
    for (int i = 0; i < requests; ++i) {
        QCOMPARE(ask(peer, "SCAN /a"), QByteArray("CLEAN"));
    }
    // What the client's thread announces, and no call of the manager to itself.
    QCOMPARE(counter.calls, requests);
}

void TestCSocketManager::answersWhatWasQueuedBeforeItCloses()
{
    const int peer = connectClient();
    const int descriptor = m_served;
    sendBytes(peer, "MODULE demo");
    sendBytes(peer, "SCAN /a");
    sendBytes(peer, "SCAN /b");
    ::shutdown(peer, SHUT_WR);
    QTRY_VERIFY(::fcntl(descriptor, F_GETFD) < 0);
    QCOMPARE(received(peer), QByteArray("REGISTERED!"));
    QCOMPARE(received(peer), QByteArray("CLEAN"));
    QCOMPARE(received(peer), QByteArray("CLEAN"));
    char byte = 0;
    QCOMPARE(::recv(peer, &byte, 1, 0), ssize_t(0));
}

void TestCSocketManager::executesWhatAClientLeftBehind()
{
    const int peer = connectClient();
    sendBytes(peer, "MODULE demo");
    sendBytes(peer, "CLEAN /a");
    ::close(peer);
    m_peers.removeLast();
    QTRY_COMPARE(FakeScanners::calls, QStringList(QStringLiteral("clean /a")));
}

void TestCSocketManager::shutsDownAClientThatDoesNotRead()
{
    const int deaf = connectClient();
    const int descriptor = m_served;
    const int other = connectClient();
    QCOMPARE(ask(deaf, "MODULE deaf"), QByteArray("REGISTERED!"));
    QCOMPARE(ask(other, "MODULE other"), QByteArray("REGISTERED!"));
    while (::send(descriptor, "filling", 7, MSG_DONTWAIT) == 7) {
    }
    QElapsedTimer timer;
    timer.start();
    m_manager->onClientReceivedMessage(descriptor, QStringLiteral("SCAN /deaf"));
    QVERIFY2(timer.elapsed() >= 90 && timer.elapsed() < 900, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(::fcntl(descriptor, F_GETFD) >= 0);
    QCOMPARE(ask(other, "SCAN /other"), QByteArray("CLEAN"));
    QTRY_VERIFY(::fcntl(descriptor, F_GETFD) < 0);
}

void TestCSocketManager::closesEachDescriptorOnce()
{
    const int peer = connectClient();
    const int descriptor = m_served;
    ::close(peer);
    m_peers.removeLast();
    QTRY_VERIFY(::fcntl(descriptor, F_GETFD) < 0);
    // The number now belongs to somebody else, whom a second goodbye must not hurt.
    const int stranger = ::fcntl(0, F_DUPFD_CLOEXEC, descriptor);
    QCOMPARE(stranger, descriptor);
    m_manager->onClientDisconnected(descriptor);
    QVERIFY(::fcntl(stranger, F_GETFD) >= 0);
    ::close(stranger);
    m_manager->onClientDisconnected(-1);
    m_manager->onClientDisconnected(99999);
}

void TestCSocketManager::letsGoOfAClientWithoutAThread()
{
    FakeThreads::noneLeft = true;
    const int peer = connectClient();
    const int descriptor = m_served;
    FakeThreads::noneLeft = false;
    QVERIFY(::fcntl(descriptor, F_GETFD) < 0);
    char byte = 0;
    QCOMPARE(::recv(peer, &byte, 1, 0), ssize_t(0));
    QCOMPARE(ask(connectClient(), "MODULE next"), QByteArray("REGISTERED!"));
}

void TestCSocketManager::letsGoOfAClientWhoseThreadWouldTakeTheReserve()
{
    int peer = -1;
    {
        // Up to the two ends of the connection.
        const LimitedDescriptors limited(static_cast<rlim_t>(2 * (lowestFreeDescriptor() + 2)));
        peer = connectClient();
    }
    char byte = 0;
    QCOMPARE(::recv(peer, &byte, 1, MSG_DONTWAIT), ssize_t(0));
    QVERIFY(::fcntl(m_served, F_GETFD) < 0);
    QCOMPARE(ask(connectClient(), "MODULE next"), QByteArray("REGISTERED!"));
}

void TestCSocketManager::givesEveryReplyToTheClientThatAsked()
{
    constexpr int clients = 2000;
    constexpr int atOnce = 6;
    const int descriptors = openDescriptors();
    FakeScanners::urlResult = 1;
    std::mt19937 random(815);
    struct Client
    {
        int peer;
        QByteArray token;
    };
    QVector<Client> connected;
    QSet<int> numbers;
    int replies = 0;
    for (int i = 0; i < clients; ++i) {
        const QByteArray token = "t" + QByteArray::number(i);
        connected.append({connectClient(), token});
        numbers.insert(m_served);
        // Only few of them wait for what they asked.
        sendBytes(connected.last().peer, "MODULE " + token);
        for (unsigned left = random() % 4; left > 0; --left) {
            sendBytes(connected.last().peer, "SCANURL " + token);
        }
        if (random() % 2 == 0) {
            char byte = 0;
            while (::recv(connected.last().peer, &byte, 1, MSG_PEEK | MSG_DONTWAIT) != 1) {
                QCoreApplication::processEvents();
                std::this_thread::yield();
            }
        }
        // Somebody leaves, and his number is soon another's.
        while (connected.size() > atOnce || (!connected.isEmpty() && random() % 3 == 0)) {
            const Client client = connected.takeAt(static_cast<int>(random() % unsigned(connected.size())));
            for (QByteArray reply = received(client.peer); !reply.isEmpty(); reply = received(client.peer)) {
                ++replies;
                QVERIFY2(reply == "REGISTERED!" || reply == "INFECTED " + client.token, reply.constData());
            }
            ::close(client.peer);
            m_peers.removeOne(client.peer);
        }
    }
    for (const Client& client : qAsConst(connected)) {
        ::close(client.peer);
        m_peers.removeOne(client.peer);
    }
    QTRY_COMPARE_WITH_TIMEOUT(openDescriptors(), descriptors, 20000);
    QVERIFY2(replies > clients / 2, qPrintable(QString::number(replies)));
    QVERIFY2(numbers.size() < clients / 4, qPrintable(QString::number(numbers.size())));
}

void TestCSocketManager::leaksNothingInTenThousandConnections()
{
    constexpr int connections = 10000;
    const int descriptors = openDescriptors();
    const int threads = runningThreads();
    for (int i = 0; i < connections; ++i) {
        const int peer = connectClient();
        const int descriptor = m_served;
        // Registered under a name of its own: the next one of the same number must not have it.
        QCOMPARE(ask(peer, "SCAN /a"), QByteArray("INVALID COMMAND!"));
        QCOMPARE(ask(peer, "MODULE m" + QByteArray::number(i)), QByteArray("REGISTERED!"));
        ::close(peer);
        m_peers.removeLast();
        while (::fcntl(descriptor, F_GETFD) >= 0) {
            QCoreApplication::processEvents();
            std::this_thread::yield();
        }
    }
    QTRY_COMPARE_WITH_TIMEOUT(runningThreads(), threads, 20000);
    QCOMPARE(openDescriptors(), descriptors);
}

void TestCSocketManager::survivesAnything()
{
    constexpr int requests = 5000;
    const QList<QByteArray> pieces = {
        "MODULE", "SCAN", "scanioc", "SCANURL",  "CLEAN", "RELOADDB", "RELOADIOC",
        " ",      " ",    "/a",      "\xFF\xC3", "\r\n",  "%n%s",     QByteArray(1, '\0')};
    std::mt19937 random(4711);
    FakeScanners::virusName = QStringLiteral("%n%s\u4E2D");
    FakeScanners::hash = QStringLiteral("%n%s");
    const int peer = connectClient();
    QCOMPARE(ask(peer, "MODULE %n%s"), QByteArray("REGISTERED!"));
    for (int i = 0; i < requests; ++i) {
        FakeScanners::scanResult = static_cast<int>(random() % 4) - 1;
        FakeScanners::urlResult = FakeScanners::scanResult;
        FakeScanners::iocResult = static_cast<int>(random() % 7) - 1;
        QByteArray request;
        for (unsigned left = random() % 6 + 1; left > 0; --left) {
            request += random() % 4 == 0 ? QByteArray(1, static_cast<char>(random() % 256))
                                         : pieces.at(static_cast<int>(random() % 14));
        }
        // One request, one reply.
        QVERIFY2(!ask(peer, request).isEmpty(), request.toHex().constData());
        QVERIFY(received(peer).isEmpty());
    }
}

QTEST_GUILESS_MAIN(TestCSocketManager)
#include "tst_csocketmanager.moc"
