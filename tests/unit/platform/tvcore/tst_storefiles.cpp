#include "platform/tvcore/storefiles.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

namespace
{
void writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    QVERIFY(file.open(QFile::WriteOnly));
    file.write(content);
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QFile::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

mode_t permissionsOf(const QString& path)
{
    struct stat information = {};
    return ::stat(path.toUtf8().constData(), &information) == 0 ? information.st_mode & 07777 : 0;
}
} // namespace

class TestStoreFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void createsForTheOwnerOnly_data();
    void createsForTheOwnerOnly();
    void leavesAnExistingFileAlone();
    void refusesWhatIsNoFile_data();
    void refusesWhatIsNoFile();
    void setsAsideWithWhatLiesBeside();
    void overwritesNothing();
    void cannotSetAsideWhatIsMissing();
    void movesLeftoversOnly();
    void noticesALog();
};

void TestStoreFiles::createsForTheOwnerOnly_data()
{
    QTest::addColumn<uint>("mask");
    QTest::newRow("no mask") << 0U;
    QTest::newRow("usual mask") << 022U;
}

void TestStoreFiles::createsForTheOwnerOnly()
{
    QFETCH(uint, mask);
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("a.db"));
    const mode_t before = ::umask(mask);
    const StoreError error = StoreFiles::ensureExists(path);
    ::umask(before);
    QCOMPARE(error.fault, StoreError::None);
    QCOMPARE(permissionsOf(path), mode_t(0600));
    QCOMPARE(contentOf(path), QByteArray());
}

void TestStoreFiles::leavesAnExistingFileAlone()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("a.db"));
    writeFile(path, "content");
    QCOMPARE(StoreFiles::ensureExists(path).fault, StoreError::None);
    QCOMPARE(contentOf(path), QByteArray("content"));
}

void TestStoreFiles::refusesWhatIsNoFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("directory") << QStringLiteral("directory");
    QTest::newRow("link to a file") << QStringLiteral("link");
    QTest::newRow("link to nothing") << QStringLiteral("dangling");
    QTest::newRow("FIFO") << QStringLiteral("fifo");
    QTest::newRow("missing directory") << QStringLiteral("missing/a.db");
}

void TestStoreFiles::refusesWhatIsNoFile()
{
    QFETCH(QString, name);
    const QTemporaryDir directory;
    QVERIFY(QDir().mkdir(directory.filePath(QStringLiteral("directory"))));
    writeFile(directory.filePath(QStringLiteral("target")), "content");
    QVERIFY(QFile::link(directory.filePath(QStringLiteral("target")),
                        directory.filePath(QStringLiteral("link"))));
    QVERIFY(QFile::link(directory.filePath(QStringLiteral("nothing")),
                        directory.filePath(QStringLiteral("dangling"))));
    QCOMPARE(::mkfifo(directory.filePath(QStringLiteral("fifo")).toUtf8().constData(), 0600), 0);
    const StoreError error = StoreFiles::ensureExists(directory.filePath(name));
    QCOMPARE(error.fault, StoreError::Unavailable);
    QVERIFY(!error.text.isEmpty());
    QVERIFY(!QFile::exists(directory.filePath(QStringLiteral("nothing"))));
}

void TestStoreFiles::setsAsideWithWhatLiesBeside()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("a.db"));
    writeFile(path, "database");
    writeFile(path + QStringLiteral("-wal"), "log");
    writeFile(path + QStringLiteral("-shm"), "index");
    QString newPath;
    QCOMPARE(StoreFiles::setAside(path, newPath).fault, StoreError::None);
    QVERIFY2(
        QRegularExpression(QStringLiteral("/a\\.db\\.corrupt-\\d{8}T\\d{6}Z$")).match(newPath).hasMatch(),
        qPrintable(newPath));
    QCOMPARE(contentOf(newPath), QByteArray("database"));
    QCOMPARE(contentOf(newPath + QStringLiteral("-wal")), QByteArray("log"));
    QCOMPARE(contentOf(newPath + QStringLiteral("-shm")), QByteArray("index"));
    QCOMPARE(QDir(directory.path()).entryList(QDir::Files).size(), 3);
}

void TestStoreFiles::overwritesNothing()
{
    constexpr int count = 30;
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("a.db"));
    QStringList names;
    for (int i = 0; i < count; ++i) {
        writeFile(path, QByteArray::number(i));
        QString newPath;
        QCOMPARE(StoreFiles::setAside(path, newPath).fault, StoreError::None);
        QVERIFY(!names.contains(newPath));
        names.append(newPath);
    }
    for (int i = 0; i < count; ++i) {
        QCOMPARE(contentOf(names.at(i)), QByteArray::number(i));
    }
}

void TestStoreFiles::cannotSetAsideWhatIsMissing()
{
    const QTemporaryDir directory;
    QString newPath;
    const StoreError error = StoreFiles::setAside(directory.filePath(QStringLiteral("a.db")), newPath);
    QCOMPARE(error.fault, StoreError::Unavailable);
    QVERIFY(QDir(directory.path()).isEmpty());
}

void TestStoreFiles::movesLeftoversOnly()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("a.db"));
    writeFile(path, "database");
    writeFile(path + QStringLiteral("-wal"), "old log");
    writeFile(path + QStringLiteral("-shm"), "old index");
    const StoreFiles::Companions old = StoreFiles::Companions::of(path);
    // The index is another file by now, while the old one still exists.
    QVERIFY(QFile::rename(path + QStringLiteral("-shm"), path + QStringLiteral(".kept")));
    writeFile(path + QStringLiteral("-shm"), "new index");
    QString newPath;
    QVERIFY(StoreFiles::moveLeftovers(path, old, newPath));
    QCOMPARE(contentOf(newPath + QStringLiteral("-wal")), QByteArray("old log"));
    QCOMPARE(contentOf(path + QStringLiteral("-shm")), QByteArray("new index"));
    QVERIFY(!QFile::exists(path + QStringLiteral("-wal")));
    QVERIFY(!StoreFiles::moveLeftovers(path, old, newPath));
    QVERIFY2(!StoreFiles::moveLeftovers(path, StoreFiles::Companions(), newPath), "nothing was ever open");
    QCOMPARE(contentOf(path), QByteArray("database"));
}

void TestStoreFiles::noticesALog()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("a.db"));
    QVERIFY(!StoreFiles::hasLog(path));
    writeFile(path + QStringLiteral("-wal"), QByteArray());
    QVERIFY(!StoreFiles::hasLog(path));
    writeFile(path + QStringLiteral("-wal"), "log");
    QVERIFY(StoreFiles::hasLog(path));
}

QTEST_GUILESS_MAIN(TestStoreFiles)
#include "tst_storefiles.moc"
