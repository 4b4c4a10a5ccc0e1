#include "tvctl/installation/localadvice.h"

#include <QtTest>

class TestLocalAdvice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void leavesTheAdviceForAUnitAlone();
    void wordsAnew_data();
    void wordsAnew();
    void knowsTheUnitOfAProgram_data();
    void knowsTheUnitOfAProgram();
};

void TestLocalAdvice::leavesTheAdviceForAUnitAlone()
{
    const QString advice = QStringLiteral("wait; systemctl start tvfilemon-update");
    QCOMPARE(LocalAdvice(Installation(QStringLiteral("/a/b/c")), true).wordedFor(advice), advice);
}

void TestLocalAdvice::wordsAnew_data()
{
    QTest::addColumn<QString>("advice");
    QTest::addColumn<QString>("begin");
    QTest::newRow("none") << ""
                          << "";
    QTest::newRow("another command") << "tvctl reload db"
                                     << "tvctl reload db";
    QTest::newRow("start") << "systemctl start tvfilemon"
                           << "start it as root: /a/b/c/bin/tvfilemon";
    QTest::newRow("restart") << "when it stays so: systemctl restart tvfilemon"
                             << "when it stays so: end it, and start it as root: /a/b/c/bin/tvfilemon";
    QTest::newRow("signatures") << "systemctl start tvfilemon-update"
                                << "put new *.cvd files into /a/b/c/db";
    QTest::newRow("an update that failed")
        << "journalctl -u tvfilemon-update tells more; then systemctl start tvfilemon-update"
        << "run /a/b/c/bin/tvfilemon-update as root";
    QTest::newRow("updates") << "systemctl enable --now tvfilemon-update.timer"
                             << "run /a/b/c/bin/tvfilemon-update as root, by a timer";
    QTest::newRow("firewall") << "systemctl reload-or-restart tvfilemon-firewall"
                              << "run as root: /a/b/c/bin/tvfilemon-firewall start";
}

void TestLocalAdvice::wordsAnew()
{
    QFETCH(QString, advice);
    QFETCH(QString, begin);
    const QString worded = LocalAdvice(Installation(QStringLiteral("/a/b/c")), false).wordedFor(advice);
    QVERIFY2(worded.startsWith(begin), qPrintable(worded));
    QVERIFY2(!worded.contains(QStringLiteral("systemctl")), qPrintable(worded));
}

void TestLocalAdvice::knowsTheUnitOfAProgram_data()
{
    QTest::addColumn<QByteArray>("unit");
    QTest::addColumn<bool>("starts");
    QTest::newRow("its own") << QByteArray("[Service]\nExecStart=/a/b/c/bin/tvfilemon\n") << true;
    QTest::newRow("another's") << QByteArray("[Service]\nExecStart=/usr/lib/x/bin/tvfilemon\n") << false;
    QTest::newRow("a longer name") << QByteArray("ExecStart=/a/b/c/bin/tvfilemon-update\n") << false;
    QTest::newRow("something before it") << QByteArray("#ExecStart=/a/b/c/bin/tvfilemon\n") << false;
    QTest::newRow("nothing") << QByteArray() << false;
}

void TestLocalAdvice::knowsTheUnitOfAProgram()
{
    QFETCH(QByteArray, unit);
    QTEST(LocalAdvice::unitStarts(unit, QStringLiteral("/a/b/c/bin/tvfilemon")), "starts");
}

QTEST_GUILESS_MAIN(TestLocalAdvice)
#include "tst_localadvice.moc"
