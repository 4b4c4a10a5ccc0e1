#include "tvctl/installation/updatestatus.h"

#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

namespace
{
const char good[] = "tried=2026-11-21T12:00:00Z\n"
                    "result=updated\n"
                    "succeeded=2026-11-21T12:00:00Z\n"
                    "message=daily 6, main 5\n";

QDateTime at(int hour)
{
    return {QDate(2026, 11, 21), QTime(hour, 0), Qt::UTC};
}
} // namespace

class TestUpdateStatus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsWhatIsWritten()
    {
        const auto status = UpdateStatus::parse(good);
        QVERIFY(status);
        QCOMPARE(status->tried, at(12));
        QCOMPARE(status->result, QStringLiteral("updated"));
        QCOMPARE(status->succeeded, at(12));
        QCOMPARE(status->message, QStringLiteral("daily 6, main 5"));
        QVERIFY(status->isGood());
    }

    void goodResults_data()
    {
        QTest::addColumn<bool>("isGood");
        QTest::newRow("updated") << true;
        QTest::newRow("current") << true;
        QTest::newRow("download-failed") << false;
        QTest::newRow("refused") << false;
        QTest::newRow("reload-failed") << false;
        QTest::newRow("failed") << false;
        QTest::newRow("of a later release") << false;
    }
    void goodResults()
    {
        QFETCH(bool, isGood);
        const auto status =
            UpdateStatus::parse(QByteArray("tried=2026-11-21T12:00:00Z\nresult=") + QTest::currentDataTag());
        QVERIFY(status);
        QCOMPARE(status->isGood(), isGood);
    }

    void neverSucceeded()
    {
        const auto status = UpdateStatus::parse("tried=2026-11-21T12:00:00Z\nresult=download-failed\n"
                                                "succeeded=\nmessage=a=b = c\nlater=x\n");
        QVERIFY(status);
        QVERIFY(!status->succeeded.isValid());
        QCOMPARE(status->message, QStringLiteral("a=b = c"));
    }

    void isNone_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("no result") << QByteArray("tried=2026-11-21T12:00:00Z\nresult=\n");
        QTest::newRow("no time") << QByteArray("tried=\nresult=updated\n");
        QTest::newRow("no such time") << QByteArray("tried=yesterday\nresult=updated\n");
        QTest::newRow("something else") << QByteArray(4096, '\0');
    }
    void isNone()
    {
        QFETCH(QByteArray, text);
        QVERIFY(!UpdateStatus::parse(text));
    }

    void readsAFile()
    {
        const QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("status"));
        QVERIFY(!UpdateStatus::read(path));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(good);
        file.close();
        QVERIFY(UpdateStatus::read(path));
        QVERIFY(!UpdateStatus::read(directory.path()));
    }

    void doesNotWaitForAFifo()
    {
        const QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("status"));
        QCOMPARE(::mkfifo(path.toLocal8Bit().constData(), 0600), 0);
        QVERIFY(!UpdateStatus::read(path));
    }
};

QTEST_GUILESS_MAIN(TestUpdateStatus)
#include "tst_updatestatus.moc"
