#include "tvctl/client/serviceconnection.h"

#include "common/uniquefd.h"
#include "fakeservice.h"

#include <QElapsedTimer>
#include <QTest>

#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

using State = ServiceConnection::State;
using std::chrono::milliseconds;

Q_DECLARE_METATYPE(ServiceConnection::State)

namespace
{
constexpr milliseconds soon(100);
/// Far longer than anything that works takes, and short of the time after which a wait is called slow.
constexpr milliseconds patience(4000);
constexpr int connectionRow = 2;
constexpr int listenerRow = 1;

QByteArray registerOnly(int /*connection*/, int request, const QByteArray& /*bytes*/)
{
    return request == 0 ? QByteArray("REGISTERED!") : FakeService::silence;
}

QByteArray echo(int connection, int request, const QByteArray& bytes)
{
    return request == 0 ? QByteArray("REGISTERED!") : QByteArray::number(connection) + bytes;
}

using Change = std::function<void(QVector<TcpSocket>&)>;

/// The table is what it would be, changed by `change`.
void changeTable(const Change& change)
{
    FakeService::table = [change] {
        QVector<TcpSocket> sockets = FakeService::ownTable();
        change(sockets);
        return sockets;
    };
}
} // namespace

Q_DECLARE_METATYPE(Change)

class TestServiceConnection : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void registersAndAsks();
    void isClosedAtFirst();
    void tellsThatNobodyListens();
    void tellsThatItIsRefusedWhereSomebodyListens();
    void tellsWhenItIsNotTheService();
    void believesRootAndItself_data();
    void believesRootAndItself();
    void believesNobodyElse_data();
    void believesNobodyElse();
    void waitsNotForWhoIsNotBelieved();
    void doesNotWaitForeverForSomebodyWhoNeverAccepts();
    void doesNotWaitForeverForAReply();
    void aLateReplyIsNotTakenForAnother();
    void aReplyToNothingIsNotTakenForOne();
    void tellsTheEndOfTheConnection_data();
    void tellsTheEndOfTheConnection();
    void canBeInterrupted();
    void waitsAsLongAsItIsTold();
    void tellsOnceThatItTakesLong();
    void tellsThatThereAreNoDescriptors();
};

void TestServiceConnection::registersAndAsks()
{
    const FakeService service(echo);
    ServiceConnection connection;
    QVERIFY2(connection.open(patience), qPrintable(connection.problem()));
    QCOMPARE(connection.state(), State::Open);
    QCOMPARE(connection.problem(), QString());
    QCOMPARE(connection.ask(makeRequest("SCAN", QStringLiteral("/a b"))).value_or("none"),
             QByteArray("0SCAN /a b"));
    const QString longest(4091, QLatin1Char('x'));
    QCOMPARE(connection.ask(makeRequest("SCAN", longest), patience).value_or("none"),
             ("0SCAN " + longest.toLatin1()).left(4096));
    QCOMPARE(service.requests().first(), QByteArray("MODULE tvctl"));
    QCOMPARE(service.requests().last().size(), 4096);
}

void TestServiceConnection::isClosedAtFirst()
{
    ServiceConnection connection;
    QCOMPARE(connection.state(), State::Closed);
    QVERIFY(!connection.ask(makeRequest("RELOADDB"), soon));
}

void TestServiceConnection::tellsThatNobodyListens()
{
    ServiceConnection connection;
    QVERIFY(!connection.open(patience));
    QCOMPARE(connection.state(), State::Refused);
    QVERIFY2(connection.problem().contains(QStringLiteral("nobody listens on port 8889")),
             qPrintable(connection.problem()));
    // Later there is somebody.
    const FakeService service(echo);
    QVERIFY(connection.open(patience));
    QCOMPARE(connection.problem(), QString());
}

void TestServiceConnection::tellsThatItIsRefusedWhereSomebodyListens()
{
    TcpSocket listener;
    listener.localPort = ServiceConnection::port;
    listener.state = TcpSocket::Listen;
    listener.userId = ::geteuid();
    FakeService::table = [&listener] {
        return QVector<TcpSocket>{listener};
    };
    ServiceConnection connection;
    QVERIFY(!connection.open(patience));
    // Nobody keeps root away but by mistake.
    QCOMPARE(connection.state(), ::geteuid() == 0 ? State::Broken : State::Barred);
    // Who listens on another address, or is not to be believed, is not the service.
    listener.userId = ::geteuid() + 1;
    QVERIFY(!connection.open(patience));
    QCOMPARE(connection.state(), State::Untrusted);
    listener.localAddress = 0x0a000001;
    QVERIFY(!connection.open(patience));
    QCOMPARE(connection.state(), State::Refused);
    FakeService::table = FakeService::ownTable;
}

void TestServiceConnection::tellsWhenItIsNotTheService()
{
    const FakeService service([](int, int, const QByteArray&) { return QByteArray("220 mail.invalid"); });
    ServiceConnection connection;
    QVERIFY(!connection.open(patience));
    QCOMPARE(connection.state(), State::Broken);
    QVERIFY2(connection.problem().contains(QStringLiteral("is not tvfilemon")),
             qPrintable(connection.problem()));
}

void TestServiceConnection::believesRootAndItself_data()
{
    QTest::addColumn<uint>("user");
    QTest::newRow("root") << 0U;
    QTest::newRow("the own user") << uint(::geteuid());
}

void TestServiceConnection::believesRootAndItself()
{
    QFETCH(uint, user);
    const FakeService service(echo);
    changeTable([user](QVector<TcpSocket>& sockets) {
        sockets[listenerRow].userId = user;
        sockets[connectionRow].userId = user;
    });
    ServiceConnection connection;
    QVERIFY2(connection.open(patience), qPrintable(connection.problem()));
}

void TestServiceConnection::believesNobodyElse_data()
{
    QTest::addColumn<Change>("change");
    const uint other = ::geteuid() + 4242;
    const auto row = [](const char* name, const Change& change) {
        QTest::newRow(name) << change;
    };
    row("another user's listener", [other](auto& sockets) { sockets[listenerRow].userId = other; });
    row("another user's listener on this address alone", [other](auto& sockets) {
        sockets[listenerRow].userId = other;
        sockets[listenerRow].localAddress = INADDR_LOOPBACK;
    });
    row("another user's connection", [other](auto& sockets) { sockets[connectionRow].userId = other; });
    row("a connection that nobody has accepted", [](auto& sockets) { sockets[connectionRow].inode = 0; });
    row("a connection of nobody, which looks like root's", [](auto& sockets) {
        sockets[connectionRow].inode = 0;
        sockets[connectionRow].userId = 0;
    });
    row("no listener", [](auto& sockets) { sockets.remove(listenerRow); });
    row("a listener on another port", [](auto& sockets) { sockets[listenerRow].localPort = 8890; });
    row("a listener on another address",
        [](auto& sockets) { sockets[listenerRow].localAddress = 0x0A000001; });
    row("no listener but a connection",
        [](auto& sockets) { sockets[listenerRow].state = TcpSocket::Established; });
    row("no connection", [](auto& sockets) { sockets.remove(connectionRow); });
    row("somebody else's connection", [](auto& sockets) { ++sockets[connectionRow].remotePort; });
    row("a connection to another port", [](auto& sockets) { ++sockets[connectionRow].localPort; });
    row("a connection from elsewhere",
        [](auto& sockets) { sockets[connectionRow].remoteAddress = 0x7F000002; });
    row("a connection to another address",
        [](auto& sockets) { sockets[connectionRow].localAddress = 0x7F000002; });
    row("nothing can be read", [](auto& sockets) { sockets.clear(); });
}

void TestServiceConnection::believesNobodyElse()
{
    QFETCH(Change, change);
    const FakeService service(echo);
    changeTable(change);
    ServiceConnection connection;
    QVERIFY(!connection.open(patience));
    QCOMPARE(connection.state(), State::Untrusted);
    QVERIFY2(connection.problem().contains(QStringLiteral("port 8889")), qPrintable(connection.problem()));
    QVERIFY(!connection.ask(makeRequest("SCAN", QStringLiteral("/secret")), soon));
    for (const QByteArray& request : service.requests()) {
        QCOMPARE(request, QByteArray("MODULE tvctl"));
    }
}

void TestServiceConnection::waitsNotForWhoIsNotBelieved()
{
    // It could keep the tool waiting for good.
    const FakeService service;
    changeTable([](QVector<TcpSocket>& sockets) { sockets[listenerRow].userId = ::geteuid() + 1; });
    ServiceConnection connection;
    QVERIFY(!connection.open());
    QCOMPARE(connection.state(), State::Untrusted);
}

void TestServiceConnection::doesNotWaitForeverForSomebodyWhoNeverAccepts()
{
    const FakeService service;
    ServiceConnection connection;
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(!connection.open(soon));
    QCOMPARE(connection.state(), State::TimedOut);
    QVERIFY2(connection.problem().contains(QStringLiteral("does not answer in time")),
             qPrintable(connection.problem()));
    QVERIFY(elapsed.elapsed() >= soon.count());
    QVERIFY(elapsed.elapsed() < patience.count());
}

void TestServiceConnection::doesNotWaitForeverForAReply()
{
    const FakeService service(registerOnly);
    ServiceConnection connection;
    QVERIFY(connection.open(patience));
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(!connection.ask(makeRequest("RELOADDB"), soon));
    QCOMPARE(connection.state(), State::TimedOut);
    QVERIFY(elapsed.elapsed() >= soon.count());
    QVERIFY(elapsed.elapsed() < patience.count());
}

void TestServiceConnection::aLateReplyIsNotTakenForAnother()
{
    const FakeService service([](int connection, int request, const QByteArray& bytes) {
        if (connection == 0 && request == 1) {
            QTest::qSleep(300);
        }
        return echo(connection, request, bytes);
    });
    ServiceConnection connection;
    QVERIFY(connection.open(patience));
    QVERIFY(!connection.ask(makeRequest("SCAN", QStringLiteral("/slow")), soon));
    QVERIFY(!connection.ask(makeRequest("SCAN", QStringLiteral("/next")), patience));
    QCOMPARE(connection.state(), State::TimedOut);
    QVERIFY(connection.open(patience));
    QCOMPARE(connection.ask(makeRequest("SCAN", QStringLiteral("/next")), patience).value_or("none"),
             QByteArray("1SCAN /next"));
}

void TestServiceConnection::aReplyToNothingIsNotTakenForOne()
{
    const FakeService service([](int, int request, const QByteArray&) {
        return QByteArray(request == 0 ? "REGISTERED!" : "CLEAN");
    });
    ServiceConnection connection;
    QVERIFY(connection.open(patience));
    QCOMPARE(connection.ask(makeRequest("SCAN", QStringLiteral("/a")), patience).value_or("none"),
             QByteArray("CLEAN"));
    service.sendUnasked("CLEAN");
    QVERIFY(!connection.ask(makeRequest("SCAN", QStringLiteral("/b")), patience));
    QCOMPARE(connection.state(), State::Broken);
    QVERIFY(!service.requests().contains("SCAN /b"));
}

void TestServiceConnection::tellsTheEndOfTheConnection_data()
{
    QTest::addColumn<int>("endsAt");
    QTest::newRow("at the registration") << 0;
    QTest::newRow("at a request") << 1;
}

void TestServiceConnection::tellsTheEndOfTheConnection()
{
    QFETCH(int, endsAt);
    const FakeService service([endsAt](int connection, int request, const QByteArray& bytes) {
        return request == endsAt ? FakeService::end : echo(connection, request, bytes);
    });
    ServiceConnection connection;
    if (connection.open(patience)) {
        QCOMPARE(endsAt, 1);
        QVERIFY(!connection.ask(makeRequest("RELOADDB"), patience));
    }
    QCOMPARE(connection.state(), State::Broken);
    QCOMPARE(connection.problem(), QStringLiteral("the service ended the connection"));
    // Nothing is sent any more, and there is no signal.
    QVERIFY(!connection.ask(makeRequest("RELOADDB"), patience));
    QCOMPARE(service.requests().size(), endsAt + 1);
}

void TestServiceConnection::canBeInterrupted()
{
    const FakeService service(registerOnly);
    const UniqueFd interruption(::eventfd(0, EFD_CLOEXEC));
    ServiceConnection connection;
    connection.setInterruption(interruption.get());
    QVERIFY(connection.open(patience));
    QCOMPARE(::eventfd_write(interruption.get(), 1), 0);
    QVERIFY(!connection.ask(makeRequest("RELOADDB")));
    QCOMPARE(connection.state(), State::Interrupted);
}

void TestServiceConnection::waitsAsLongAsItIsTold()
{
    // Longer than a number of milliseconds that poll takes.
    constexpr std::chrono::hours years(24 * 365 * 2);
    const FakeService service([](int connection, int request, const QByteArray& bytes) {
        QTest::qSleep(50);
        return echo(connection, request, bytes);
    });
    ServiceConnection connection;
    QVERIFY(connection.open(years));
    QCOMPARE(connection.ask(makeRequest("RELOADDB"), years).value_or("none"), QByteArray("0RELOADDB"));
}

void TestServiceConnection::tellsOnceThatItTakesLong()
{
    const FakeService service([](int connection, int request, const QByteArray& bytes) {
        if (bytes.endsWith("slow")) {
            QTest::qSleep(5300);
        }
        return echo(connection, request, bytes);
    });
    int notices = 0;
    ServiceConnection connection;
    connection.setSlowNotice([&notices] { ++notices; });
    QVERIFY(connection.open());
    QVERIFY(connection.ask(makeRequest("SCAN", QStringLiteral("quick"))));
    QCOMPARE(notices, 0);
    QVERIFY(connection.ask(makeRequest("SCAN", QStringLiteral("slow"))));
    QCOMPARE(notices, 1);
    // Who watches knows by now.
    QVERIFY(connection.ask(makeRequest("SCAN", QStringLiteral("slow"))));
    QCOMPARE(notices, 1);
}

void TestServiceConnection::tellsThatThereAreNoDescriptors()
{
    const FakeService service(echo);
    ServiceConnection connection;
    struct rlimit before = {};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &before), 0);
    struct rlimit none = before;
    none.rlim_cur = 0;
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const bool isOpen = connection.open(patience);
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &before), 0);
    QVERIFY(!isOpen);
    QCOMPARE(connection.state(), State::Broken);
    QCOMPARE(connection.problem(), QStringLiteral("cannot make a socket: %1").arg(qt_error_string(EMFILE)));
}

QTEST_GUILESS_MAIN(TestServiceConnection)
#include "tst_serviceconnection.moc"
