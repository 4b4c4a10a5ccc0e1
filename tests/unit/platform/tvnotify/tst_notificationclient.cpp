#include "platform/tvnotify/send/notificationclient.h"

#include "common/uniquefd.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cstring>
#include <limits>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>

class TestNotificationClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void asksForTheTimeThatIsLeft_data();
    void asksForTheTimeThatIsLeft();
    void leavesABusThatHangsUp();
};

void TestNotificationClient::asksForTheTimeThatIsLeft_data()
{
    QTest::addColumn<bool>("hasTime");
    QTest::addColumn<qint64>("closeAt");
    QTest::addColumn<int>("timeout");
    const qint64 now = 1714567507000;
    QTest::newRow("no time") << false << qint64(0) << -1;
    QTest::newRow("a minute") << true << now + 60000 << 60000;
    QTest::newRow("just over a second") << true << now + 1001 << 1001;
    QTest::newRow("less than a second") << true << now + 999 << 1000;
    QTest::newRow("past") << true << now - 60000 << 1000;
    QTest::newRow("before 1970") << true << qint64(-1) << 1000;
    QTest::newRow("in a century") << true << now * 3 << std::numeric_limits<int>::max();
}

void TestNotificationClient::asksForTheTimeThatIsLeft()
{
    QFETCH(bool, hasTime);
    QFETCH(qint64, closeAt);
    QFETCH(int, timeout);
    const std::optional<std::int64_t> time = hasTime ? std::optional<std::int64_t>(closeAt) : std::nullopt;
    QCOMPARE(expireTimeout(time, 1714567507000), timeout);
}

void TestNotificationClient::leavesABusThatHangsUp()
{
    const QTemporaryDir directory;
    const std::string path = directory.filePath(QStringLiteral("bus")).toStdString();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    const UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    QCOMPARE(::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    QCOMPARE(::listen(listener.get(), 1), 0);
    bool hasCome = false;
    std::thread bus([&listener, &hasCome] {
        const UniqueFd caller(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        hasCome = caller.isValid();
    });
    Popup popup;
    popup.summary = "text";
    showPopups("unix:path=" + path, {std::make_shared<const Popup>(popup)});
    bus.join();
    QVERIFY(hasCome);
}

QTEST_APPLESS_MAIN(TestNotificationClient)
#include "tst_notificationclient.moc"
