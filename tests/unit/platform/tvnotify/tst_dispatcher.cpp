#include "platform/tvnotify/send/dispatcher.h"

#include "platform/tvnotify/popupcodec.h"
#include "privatebus.h"
#include "processes.h"
#include "support/limiteddescriptors.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

/// The dispatcher in a process of its own, on a directory of this test's in place of /run/user.
class TestDispatcher : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void deliversToEveryUserWithTheUsersCredentials();
    void deliversToTheGivenBusOnly();
    void keepsTheOrder();
    void servesOthersWhileOneBusHangs();
    void killsALateDeliveryAndGoesOn();
    void tellsOnceWhenABusTakesTooMany();
    void findsABusThatCameLater();
    void ignoresABusOfAnother();
    void holdsNothingWhenIdle();
    void finishesAfterTheServiceHasGone();
    void endsInTimeAfterTheServiceHasGone();
    void deliveriesEndWithTheDispatcher();
    void deliveriesHoldNoDescriptorOfTheService();
    void endsOnWhatIsNoPopup_data();
    void endsOnWhatIsNoPopup();
    void endsWithoutADescriptor();

private:
    QString makeUserDirectory(uid_t user);
    void startDispatcher(const std::string& sessionAddress = {}, std::chrono::milliseconds limit = 60s);
    bool send(const char* summary);

    std::unique_ptr<QTemporaryDir> m_runtime;
    UniqueFd m_socket;
    pid_t m_dispatcher = -1;
};

namespace
{

/// Users that this test may act for: root has "daemon" and "bin", whom every Debian system knows (a bus
/// does not run for a user without a name), anybody else has only themselves.
std::vector<uid_t> testUsers()
{
    return ::geteuid() == 0 ? std::vector<uid_t>{1, 2, 0} : std::vector<uid_t>{::geteuid()};
}

QStringList summaries(const PrivateBus& bus)
{
    QStringList summaries;
    const QList<QJsonObject> calls = bus.calls();
    for (const QJsonObject& call : calls) {
        summaries += call[QStringLiteral("summary")].toString();
    }
    return summaries;
}

/// A bus that lets everyone in and never says a word.
UniqueFd silentBus(const QString& directory, uid_t owner)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(directory) + "/bus";
    std::strncpy(address.sun_path, path.constData(), sizeof(address.sun_path) - 1);
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const bool isListening =
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        ::chown(path.constData(), owner, owner) == 0 && ::listen(socket.get(), 5) == 0;
    return isListening ? std::move(socket) : UniqueFd();
}

} // namespace

void TestDispatcher::init()
{
    m_runtime = std::make_unique<QTemporaryDir>();
    QVERIFY(m_runtime->isValid());
    QCOMPARE(::chmod(QFile::encodeName(m_runtime->path()).constData(), 0755), 0);
}

void TestDispatcher::cleanup()
{
    m_socket.reset();
    if (m_dispatcher > 0) {
        ::kill(m_dispatcher, SIGKILL);
        ::waitpid(m_dispatcher, nullptr, 0);
        m_dispatcher = -1;
    }
}

QString TestDispatcher::makeUserDirectory(uid_t user)
{
    const QString path = m_runtime->filePath(QString::number(user));
    const QByteArray name = QFile::encodeName(path);
    return ::mkdir(name.constData(), 0700) == 0 && ::chown(name.constData(), user, user) == 0 ? path
                                                                                              : QString();
}

void TestDispatcher::startDispatcher(const std::string& sessionAddress, std::chrono::milliseconds limit)
{
    int ends[2];
    QCOMPARE(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    m_socket.reset(ends[0]);
    UniqueFd helperEnd(ends[1]);
    m_dispatcher = ::fork();
    if (m_dispatcher == 0) {
        m_socket.reset();
        Dispatcher dispatcher(std::move(helperEnd), sessionAddress, m_runtime->path().toStdString(), limit);
        ::_exit(dispatcher.run() ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    QVERIFY(m_dispatcher > 0);
}

bool TestDispatcher::send(const char* summary)
{
    const std::string datagram = encodePopup({"test", "", summary, "body", std::nullopt});
    return ::send(m_socket.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL) >= 0;
}

void TestDispatcher::deliversToEveryUserWithTheUsersCredentials()
{
    std::vector<std::unique_ptr<PrivateBus>> buses;
    for (const uid_t user : testUsers()) {
        buses.push_back(std::make_unique<PrivateBus>(makeUserDirectory(user), user));
        QVERIFY(buses.back()->start());
        QVERIFY(buses.back()->startServer());
    }
    startDispatcher();
    QVERIFY(send("one"));
    for (std::size_t i = 0; i < buses.size(); ++i) {
        QTRY_COMPARE_WITH_TIMEOUT(buses[i]->callCount(), 1, 20000);
        const QJsonObject call = buses[i]->calls().first();
        QCOMPARE(call[QStringLiteral("summary")].toString(), QStringLiteral("one"));
        QCOMPARE(call[QStringLiteral("sender_uid")].toInt(), static_cast<int>(testUsers()[i]));
    }
}

void TestDispatcher::deliversToTheGivenBusOnly()
{
    PrivateBus userBus(makeUserDirectory(::geteuid()), ::geteuid());
    QVERIFY(userBus.start() && userBus.startServer());
    QVERIFY(QDir(m_runtime->path()).mkdir(QStringLiteral("session")));
    PrivateBus sessionBus(m_runtime->filePath(QStringLiteral("session")), ::geteuid());
    QVERIFY(sessionBus.start() && sessionBus.startServer());
    startDispatcher(sessionBus.address().toStdString());
    QVERIFY(send("one"));
    QTRY_COMPARE_WITH_TIMEOUT(sessionBus.callCount(), 1, 20000);
    // Once the last delivery has ended, nothing more can come.
    QTRY_VERIFY(childrenOf(m_dispatcher).isEmpty());
    QCOMPARE(userBus.callCount(), 0);
}

void TestDispatcher::keepsTheOrder()
{
    PrivateBus bus(makeUserDirectory(::geteuid()), ::geteuid());
    QVERIFY(bus.start() && bus.startServer());
    startDispatcher();
    QStringList sent;
    for (int i = 0; i < 300; ++i) {
        sent += QString::number(i);
        QVERIFY(send(qPrintable(sent.last())));
    }
    QTRY_COMPARE_WITH_TIMEOUT(bus.callCount(), 300, 30000);
    QCOMPARE(summaries(bus), sent);
}

void TestDispatcher::servesOthersWhileOneBusHangs()
{
    const std::vector<uid_t> users = testUsers();
    // With a single user the bus that hangs is that user's own, and only the bound can be seen.
    const UniqueFd silent = silentBus(makeUserDirectory(users.front()), users.front());
    QVERIFY(silent.isValid());
    std::vector<std::unique_ptr<PrivateBus>> buses;
    for (std::size_t i = 1; i < users.size(); ++i) {
        buses.push_back(std::make_unique<PrivateBus>(makeUserDirectory(users[i]), users[i]));
        QVERIFY(buses.back()->start() && buses.back()->startServer());
    }
    startDispatcher();
    for (int i = 0; i < 20; ++i) {
        QVERIFY(send("x"));
    }
    for (const auto& bus : buses) {
        QTRY_COMPARE_WITH_TIMEOUT(bus->callCount(), 20, 20000);
    }
    // However much waits for it, the bus that hangs costs one process.
    QTRY_COMPARE(childrenOf(m_dispatcher).size(), 1);
}

void TestDispatcher::killsALateDeliveryAndGoesOn()
{
    const uid_t user = testUsers().front();
    const QString directory = makeUserDirectory(user);
    UniqueFd silent = silentBus(directory, user);
    QVERIFY(silent.isValid());
    startDispatcher({}, 300ms);
    QVERIFY(send("lost"));
    QTRY_COMPARE(childrenOf(m_dispatcher).size(), 1);
    QTRY_VERIFY(childrenOf(m_dispatcher).isEmpty());

    silent.reset();
    PrivateBus bus(directory, user);
    QVERIFY(bus.start() && bus.startServer());
    QVERIFY(send("shown"));
    QTRY_COMPARE_WITH_TIMEOUT(summaries(bus), QStringList{QStringLiteral("shown")}, 20000);
}

void TestDispatcher::tellsOnceWhenABusTakesTooMany()
{
    const uid_t user = testUsers().front();
    const UniqueFd silent = silentBus(makeUserDirectory(user), user);
    startDispatcher();
    QVERIFY(send("under way"));
    QTRY_COMPARE(childrenOf(m_dispatcher).size(), 1);
    for (std::size_t i = 0; i < Dispatcher::maximumPending; ++i) {
        QVERIFY(send("waiting"));
    }
    QTRY_COMPARE(stateOf(m_dispatcher), 'S');
    char notice[2];
    QCOMPARE(::recv(m_socket.get(), notice, sizeof(notice), MSG_DONTWAIT), ssize_t(-1));
    for (int i = 0; i < 100; ++i) {
        QVERIFY(send("too many"));
    }
    pollfd told{m_socket.get(), POLLIN, 0};
    QCOMPARE(::poll(&told, 1, 20000), 1);
    QCOMPARE(::recv(m_socket.get(), notice, sizeof(notice), MSG_DONTWAIT), ssize_t(1));
    QCOMPARE(notice[0], popupsDroppedNotice);
    QVERIFY(send("too many"));
    // It has read everything when it ends, and has nothing more to say.
    ::shutdown(m_socket.get(), SHUT_WR);
    QCOMPARE(::recv(m_socket.get(), notice, sizeof(notice), 0), ssize_t(0));
}

void TestDispatcher::findsABusThatCameLater()
{
    startDispatcher();
    QVERIFY(send("nobody there"));
    const uid_t user = testUsers().front();
    PrivateBus bus(makeUserDirectory(user), user);
    QVERIFY(bus.start() && bus.startServer());
    QVERIFY(send("shown"));
    QTRY_COMPARE_WITH_TIMEOUT(bus.callCount(), 1, 20000);
    QCOMPARE(summaries(bus), QStringList{QStringLiteral("shown")});
}

void TestDispatcher::ignoresABusOfAnother()
{
    const uid_t self = ::geteuid();
    PrivateBus own(makeUserDirectory(self), self);
    QVERIFY(own.start() && own.startServer());
    // A directory that names a user who does not own it, with a bus that would take anything.
    const QString foreign = m_runtime->filePath(QString::number(self + 60003));
    QVERIFY(QDir().mkdir(foreign));
    QCOMPARE(::chmod(QFile::encodeName(foreign).constData(), 0777), 0);
    const UniqueFd trap = silentBus(foreign, self);
    QCOMPARE(::chmod(QFile::encodeName(foreign + QStringLiteral("/bus")).constData(), 0777), 0);
    QVERIFY(trap.isValid());
    startDispatcher();
    QVERIFY(send("one"));
    QTRY_COMPARE_WITH_TIMEOUT(own.callCount(), 1, 20000);
    QTRY_VERIFY(childrenOf(m_dispatcher).isEmpty());
    pollfd caught{trap.get(), POLLIN, 0};
    QCOMPARE(::poll(&caught, 1, 0), 0);
}

void TestDispatcher::holdsNothingWhenIdle()
{
    const uid_t user = testUsers().front();
    PrivateBus bus(makeUserDirectory(user), user);
    QVERIFY(bus.start() && bus.startServer());
    startDispatcher();
    QVERIFY(send("first"));
    QTRY_COMPARE_WITH_TIMEOUT(bus.callCount(), 1, 20000);
    QTRY_VERIFY(childrenOf(m_dispatcher).isEmpty());
    const int before = descriptorCount(m_dispatcher);
    QVERIFY(before > 0);
    for (int i = 0; i < 30; ++i) {
        QVERIFY(send("again"));
        QTRY_COMPARE_WITH_TIMEOUT(bus.callCount(), 2 + i, 20000);
    }
    QTRY_VERIFY(childrenOf(m_dispatcher).isEmpty());
    QCOMPARE(descriptorCount(m_dispatcher), before);
}

void TestDispatcher::finishesAfterTheServiceHasGone()
{
    const uid_t user = testUsers().front();
    PrivateBus bus(makeUserDirectory(user), user);
    QVERIFY(bus.start() && bus.startServer());
    startDispatcher();
    for (int i = 0; i < 50; ++i) {
        QVERIFY(send("last words"));
    }
    m_socket.reset();
    int status = -1;
    QCOMPARE(::waitpid(m_dispatcher, &status, 0), m_dispatcher);
    m_dispatcher = -1;
    QCOMPARE(status, 0);
    QCOMPARE(bus.callCount(), 50);
}

void TestDispatcher::endsInTimeAfterTheServiceHasGone()
{
    const uid_t user = testUsers().front();
    const UniqueFd silent = silentBus(makeUserDirectory(user), user);
    startDispatcher();
    QVERIFY(send("lost"));
    QTRY_COMPARE(childrenOf(m_dispatcher).size(), 1);
    const pid_t delivery = childrenOf(m_dispatcher).first();
    QElapsedTimer timer;
    timer.start();
    m_socket.reset();
    QTRY_VERIFY_WITH_TIMEOUT(hasEnded(m_dispatcher), 20000);
    QVERIFY(timer.elapsed() < 10000);
    QTRY_VERIFY(hasEnded(delivery));
}

void TestDispatcher::deliveriesEndWithTheDispatcher()
{
    const uid_t user = testUsers().front();
    const UniqueFd silent = silentBus(makeUserDirectory(user), user);
    startDispatcher();
    QVERIFY(send("lost"));
    // Not before it waits for the bus, when it has asked for the death signal.
    QTRY_COMPARE(childrenOf(m_dispatcher).size(), 1);
    const pid_t delivery = childrenOf(m_dispatcher).first();
    const UniqueFd connection(::accept4(silent.get(), nullptr, nullptr, SOCK_CLOEXEC));
    QVERIFY(connection.isValid());
    QCOMPARE(::kill(m_dispatcher, SIGKILL), 0);
    QTRY_VERIFY(hasEnded(delivery));
}

void TestDispatcher::deliveriesHoldNoDescriptorOfTheService()
{
    const uid_t user = testUsers().front();
    const UniqueFd silent = silentBus(makeUserDirectory(user), user);
    startDispatcher();
    QVERIFY(send("lost"));
    UniqueFd connection(::accept4(silent.get(), nullptr, nullptr, SOCK_CLOEXEC));
    QVERIFY(connection.isValid());
    const QList<pid_t> deliveries = childrenOf(m_dispatcher);
    QCOMPARE(deliveries.size(), 1);
    // The standard streams and the bus.
    QCOMPARE(descriptorCount(deliveries.first()), 4);
}

void TestDispatcher::endsOnWhatIsNoPopup_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::newRow("short") << QByteArray("x");
    QTest::newRow("long") << QByteArray(static_cast<int>(maximumEncodedPopup) + 1, '\0');
}

void TestDispatcher::endsOnWhatIsNoPopup()
{
    QFETCH(QByteArray, datagram);
    startDispatcher();
    QVERIFY(::send(m_socket.get(), datagram.constData(), static_cast<std::size_t>(datagram.size()), 0) > 0);
    int status = 0;
    QCOMPARE(::waitpid(m_dispatcher, &status, 0), m_dispatcher);
    m_dispatcher = -1;
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), EXIT_FAILURE);
}

void TestDispatcher::endsWithoutADescriptor()
{
    const LimitedDescriptors none(0);
    Dispatcher dispatcher(UniqueFd(), "", m_runtime->path().toStdString(), 1s);
    QVERIFY(!dispatcher.run());
}

QTEST_GUILESS_MAIN(TestDispatcher)
#include "tst_dispatcher.moc"
