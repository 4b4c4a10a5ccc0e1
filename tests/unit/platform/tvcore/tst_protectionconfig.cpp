#include "platform/tvcore/protectionconfig.h"

#include "capturedlog.h"
#include "platform/tvcore/tvcore.h"
#include "rawdatabase.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace
{
/// The other process: for each line on its standard input turns the switch over, and then answers a line.
int toggleInAnotherProcess(const QString& directory)
{
    TvCore::setDirectory(directory);
    ProtectionConfig config;
    QFile input;
    input.open(stdin, QFile::ReadOnly);
    while (!input.readLine().isEmpty()) {
        if (!config.setOnlineProtectionEnabled(!config.isOnlineProtectionEnabled())) {
            return 1;
        }
        std::puts("done");
        std::fflush(stdout);
    }
    return 0;
}
} // namespace

class TestProtectionConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void isOnByDefault();
    void keepsTheSwitch();
    void isSharedByAccessors();
    void seesAnotherProcessOnTheVeryNextCall();
    void followsAReplacedDirectory();
    void staysOffWhenTheStoreGoes();
    void holdsNoLockBetweenCalls();
    void saysOnceThatItCannotRead();

private:
    QString path() const
    {
        return m_directory->filePath(QStringLiteral("tvcore.db"));
    }

    std::unique_ptr<QTemporaryDir> m_directory;
};

void TestProtectionConfig::init()
{
    TvCore::setDirectory(QStringLiteral("/nonexistent"));
    m_directory = std::make_unique<QTemporaryDir>();
    TvCore::setDirectory(m_directory->path());
}

void TestProtectionConfig::isOnByDefault()
{
    const ProtectionConfig config;
    QVERIFY(config.isOnlineProtectionEnabled());
    QVERIFY(QFile::exists(path()));
}

void TestProtectionConfig::keepsTheSwitch()
{
    ProtectionConfig config;
    for (const bool enabled : {false, true, true, false}) {
        QVERIFY(config.setOnlineProtectionEnabled(enabled));
        TvCore::setDirectory(m_directory->path());
        QCOMPARE(config.isOnlineProtectionEnabled(), enabled);
    }
}

void TestProtectionConfig::isSharedByAccessors()
{
    ProtectionConfig one;
    const ProtectionConfig other;
    QVERIFY(other.isOnlineProtectionEnabled());
    QVERIFY(one.setOnlineProtectionEnabled(false));
    QVERIFY(!other.isOnlineProtectionEnabled());
}

void TestProtectionConfig::seesAnotherProcessOnTheVeryNextCall()
{
    const ProtectionConfig config;
    QVERIFY(config.isOnlineProtectionEnabled());
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--toggle"), m_directory->path()});
    bool expected = true;
    for (int i = 0; i < 50; ++i) {
        other.write("toggle\n");
        while (!other.canReadLine()) {
            QVERIFY(other.waitForReadyRead());
        }
        QCOMPARE(other.readLine().trimmed(), QByteArray("done"));
        expected = !expected;
        QCOMPARE(config.isOnlineProtectionEnabled(), expected);
    }
    other.closeWriteChannel();
    QVERIFY(other.waitForFinished());
    QCOMPARE(other.exitCode(), 0);
}

void TestProtectionConfig::followsAReplacedDirectory()
{
    const QString settings = m_directory->filePath(QStringLiteral("settings"));
    const QString off = m_directory->filePath(QStringLiteral("off"));
    QVERIFY(QDir().mkdir(settings) && QDir().mkdir(off));
    TvCore::setDirectory(off);
    ProtectionConfig config;
    QVERIFY(config.setOnlineProtectionEnabled(false));
    TvCore::setDirectory(settings);
    QVERIFY(config.isOnlineProtectionEnabled());
    QVERIFY(QDir().rename(settings, m_directory->filePath(QStringLiteral("old"))));
    QVERIFY(QDir().rename(off, settings));
    QVERIFY(!config.isOnlineProtectionEnabled());
}

void TestProtectionConfig::staysOffWhenTheStoreGoes()
{
    ProtectionConfig config;
    QVERIFY(config.setOnlineProtectionEnabled(false));
    QVERIFY(QFile::remove(path()));
    QVERIFY(!config.isOnlineProtectionEnabled());
    QVERIFY2(QFile::exists(path()), "a new store is started in the place of the removed one");
    QVERIFY(QDir(m_directory->path()).removeRecursively());
    QVERIFY(!config.isOnlineProtectionEnabled());
    QVERIFY(!config.setOnlineProtectionEnabled(true));
    QVERIFY(!config.isOnlineProtectionEnabled());
    QVERIFY(QDir().mkdir(m_directory->path()));
    QTRY_VERIFY(config.setOnlineProtectionEnabled(true));
    QVERIFY(config.isOnlineProtectionEnabled());
}

void TestProtectionConfig::holdsNoLockBetweenCalls()
{
    ProtectionConfig config;
    QVERIFY(config.setOnlineProtectionEnabled(false));
    QVERIFY(!config.isOnlineProtectionEnabled());
    // The log can only be emptied when nobody still looks at it.
    RawDatabase other(path());
    QVERIFY(other.run(QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)")));
    QCOMPARE(QFileInfo(path() + QStringLiteral("-wal")).size(), 0LL);
}

void TestProtectionConfig::saysOnceThatItCannotRead()
{
    QVERIFY(QDir().mkdir(path()));
    const CapturedLog log;
    const ProtectionConfig config;
    for (int i = 0; i < 20; ++i) {
        QVERIFY(config.isOnlineProtectionEnabled());
    }
    QCOMPARE(CapturedLog::messages().size(), 1);
    QVERIFY2(CapturedLog::messages().constFirst().contains(QStringLiteral("not a regular file")),
             qPrintable(CapturedLog::messages().constFirst()));
    QVERIFY(QDir().rmdir(path()));
    QVERIFY(config.isOnlineProtectionEnabled());
    QCOMPARE(CapturedLog::messages().size(), 2);
    QVERIFY2(CapturedLog::messages().constLast().contains(QStringLiteral("can be read again")),
             qPrintable(CapturedLog::messages().constLast()));
}

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--toggle") == 0) {
        return toggleInAnotherProcess(QString::fromLocal8Bit(argv[2]));
    }
    TestProtectionConfig test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_protectionconfig.moc"
