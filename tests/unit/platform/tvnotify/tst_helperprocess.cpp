#include "platform/tvnotify/helperprocess.h"

#include "processes.h"
#include "support/limiteddescriptors.h"

#include <QtTest>

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

class TestHelperProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void givesTheHelperNothingOfItsOwn();
    void givesTheHelperTheBusAddressOnly();
    void worksWithClosedStandardStreams();
    void tellsWhyItCannotStart();
    void failsWithoutADescriptor_data();
    void failsWithoutADescriptor();
    void reapsTheHelper();
    void reapsAHelperThatStopped();
    void goesWhenAnotherHasReaped();
    void keepsNoDescriptor();
};

namespace
{

const std::string probe = HELPER_PROBE;

QList<QByteArray> factsFrom(const HelperProcess& helper)
{
    char facts[65536];
    ssize_t size = -1;
    const bool isSent = QTest::qWaitFor([&] {
        size = ::recv(helper.socket(), facts, sizeof(facts), MSG_DONTWAIT);
        return size >= 0;
    });
    if (!isSent) {
        return {};
    }
    QList<QByteArray> lines = QByteArray(facts, static_cast<int>(size)).split('\n');
    std::sort(lines.begin(), lines.end());
    lines.removeAll(QByteArray());
    return lines;
}

const QList<QByteArray> bareFacts{"cwd /",          "fd 0 /dev/null", "fd 1 /dev/null",
                                  "fd 2 /dev/null", "fd 3 socket",    "own session"};

} // namespace

void TestHelperProcess::givesTheHelperNothingOfItsOwn()
{
    // Deliberately without close-on-exec, and signals as a service has them.
    const UniqueFd leak(::open("/etc/passwd", O_RDONLY));
    const UniqueFd highLeak(::fcntl(leak.get(), F_DUPFD, 500));
    qputenv("SECRET", "value");
    const auto pipeBefore = ::signal(SIGPIPE, SIG_IGN);
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const std::optional<HelperProcess> helper = HelperProcess::start(probe, "");
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::signal(SIGPIPE, pipeBefore);
    QVERIFY(helper);
    QCOMPARE(factsFrom(*helper), bareFacts);
}

void TestHelperProcess::givesTheHelperTheBusAddressOnly()
{
    qputenv("SECRET", "value");
    const std::optional<HelperProcess> helper = HelperProcess::start(probe, "unix:path=/x y");
    QVERIFY(helper);
    QList<QByteArray> expected = bareFacts;
    expected.insert(1, "env DBUS_SESSION_BUS_ADDRESS=unix:path=/x y");
    QCOMPARE(factsFrom(*helper), expected);
}

void TestHelperProcess::worksWithClosedStandardStreams()
{
    UniqueFd saved[3];
    for (int fd = 0; fd < 3; ++fd) {
        saved[fd].reset(::fcntl(fd, F_DUPFD_CLOEXEC, 10));
        ::close(fd);
    }
    QList<QByteArray> facts;
    {
        // Its socket takes one of the three numbers, so it goes before they are put back.
        const std::optional<HelperProcess> helper = HelperProcess::start(probe, "");
        facts = helper ? factsFrom(*helper) : facts;
    }
    for (int fd = 0; fd < 3; ++fd) {
        ::dup2(saved[fd].get(), fd);
    }
    QCOMPARE(facts, bareFacts);
}

void TestHelperProcess::tellsWhyItCannotStart()
{
    const int before = descriptorCount(::getpid());
    const std::optional<HelperProcess> helper = HelperProcess::start("/nonexistent/helper", "");
    const int error = errno;
    QVERIFY(!helper);
    QCOMPARE(error, ENOENT);
    QCOMPARE(descriptorCount(::getpid()), before);
    QVERIFY(childrenOf(::getpid()).isEmpty());
}

void TestHelperProcess::failsWithoutADescriptor_data()
{
    QTest::addColumn<unsigned>("limit");
    QTest::newRow("for the socket") << 0U;
    // Two of the standard streams' numbers are taken, and none above them.
    QTest::newRow("above the standard streams") << 4U;
}

void TestHelperProcess::failsWithoutADescriptor()
{
    QFETCH(unsigned, limit);
    UniqueFd saved[3];
    for (int fd = 0; fd < 3; ++fd) {
        saved[fd].reset(::fcntl(fd, F_DUPFD_CLOEXEC, 10));
        ::close(fd);
    }
    bool isStarted = true;
    {
        const LimitedDescriptors limited(limit);
        isStarted = HelperProcess::start(probe, "").has_value();
    }
    for (int fd = 0; fd < 3; ++fd) {
        ::dup2(saved[fd].get(), fd);
    }
    QVERIFY(!isStarted);
    QVERIFY(childrenOf(::getpid()).isEmpty());
}

void TestHelperProcess::reapsTheHelper()
{
    {
        const std::optional<HelperProcess> helper = HelperProcess::start(probe, "");
        QVERIFY(helper);
        QCOMPARE(childrenOf(::getpid()).size(), 1);
    }
    QVERIFY(childrenOf(::getpid()).isEmpty());
}

void TestHelperProcess::reapsAHelperThatStopped()
{
    {
        const std::optional<HelperProcess> helper = HelperProcess::start(probe, "");
        QVERIFY(helper);
        const pid_t child = childrenOf(::getpid()).value(0);
        QCOMPARE(::kill(child, SIGSTOP), 0);
        QTRY_COMPARE(stateOf(child), 'T');
    }
    QVERIFY(childrenOf(::getpid()).isEmpty());
}

void TestHelperProcess::goesWhenAnotherHasReaped()
{
    const std::optional<HelperProcess> helper = HelperProcess::start(probe, "");
    QVERIFY(helper);
    const pid_t child = childrenOf(::getpid()).value(0);
    QCOMPARE(::kill(child, SIGKILL), 0);
    QCOMPARE(::waitpid(child, nullptr, 0), child);
}

void TestHelperProcess::keepsNoDescriptor()
{
    const int before = descriptorCount(::getpid());
    for (int i = 0; i < 50; ++i) {
        QVERIFY(HelperProcess::start(probe, ""));
    }
    QCOMPARE(descriptorCount(::getpid()), before);
}

QTEST_GUILESS_MAIN(TestHelperProcess)
#include "tst_helperprocess.moc"
