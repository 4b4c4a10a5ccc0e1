#include "socket/csocketmanager.h"

#include "logger/clogger.h"
#include "support/logreader.h"

#include <QTest>

#include <cerrno>

namespace
{
bool connectingFails = false;
} // namespace

/// Connecting fails; only this program's own calls come here.
QMetaObject::Connection QObject::connectImpl(const QObject*, void**, const QObject*, void**,
                                             QtPrivate::QSlotObjectBase* slot, Qt::ConnectionType, const int*,
                                             const QMetaObject*)
{
    connectingFails = true;
    slot->destroyIfLastRef();
    errno = ENOMEM;
    return QMetaObject::Connection();
}

/// A manager that cannot hear its listener.
class TestCSocketManagerDeaf : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void saysSoAndGoesOn();
};

void TestCSocketManagerDeaf::saysSoAndGoesOn()
{
    LOGGER::CLogger::getInstance()->Info("next", "%s", QTest::currentTestFunction());
    LogReader log;
    QVERIFY(CSocketManager::getInstance() != nullptr);
    QVERIFY(connectingFails);
    QCOMPARE(log.takeNew(), QVector<LogLine>({{"ERROR", "CSocketManager::CSocketManager",
                                               errorCode(ENOMEM) + "Failed to connect clientConnected!"}}));
}

QTEST_GUILESS_MAIN(TestCSocketManagerDeaf)
#include "tst_csocketmanagerdeaf.moc"
