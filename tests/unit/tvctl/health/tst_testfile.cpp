#include "tvctl/health/testfile.h"

#include "tvctl/health/testpattern.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>

#include <sys/stat.h>

class TestTestFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void holdsThePattern();
    void isNowhereInTheProgram();
    void goesWithTheObject();
    void noticesThatItIsGone();
    void leavesAloneWhatStandsInItsPlace();
    void writesAgain();
    void followsNoLink();
    void tellsWhyThereIsNone();

private:
    QTemporaryDir m_directory;

    QString pathOf(const TestFile& file) const
    {
        return m_directory.filePath(file.name());
    }
    QByteArray contentOf(const TestFile& file) const
    {
        QFile opened(pathOf(file));
        return opened.open(QIODevice::ReadOnly) ? opened.readAll() : QByteArray("unreadable");
    }
};

void TestTestFile::holdsThePattern()
{
    const TestFile file(m_directory.path());
    QCOMPARE(file.error(), 0);
    QCOMPARE(contentOf(file), testPattern());
    // As everybody knows it.
    QCOMPARE(QCryptographicHash::hash(testPattern(), QCryptographicHash::Md5).toHex(),
             QByteArray("44d88612fea8a8f36de82e1278abb02f"));
    struct stat status = {};
    QCOMPARE(::stat(pathOf(file).toUtf8().constData(), &status), 0);
    QCOMPARE(status.st_mode, static_cast<mode_t>(S_IFREG | 0600));
    const TestFile another(m_directory.path());
    QVERIFY(file.name() != another.name());
}

void TestTestFile::isNowhereInTheProgram()
{
    QFile program(QCoreApplication::applicationFilePath());
    QVERIFY(program.open(QIODevice::ReadOnly));
    QVERIFY(!program.readAll().contains(testPattern()));
}

void TestTestFile::goesWithTheObject()
{
    QString path;
    {
        const TestFile file(m_directory.path());
        path = pathOf(file);
        QVERIFY(QFile::exists(path));
        QVERIFY(!file.isGone());
    }
    QVERIFY(!QFile::exists(path));
}

void TestTestFile::noticesThatItIsGone()
{
    TestFile file(m_directory.path());
    QVERIFY(QFile::remove(pathOf(file)));
    QVERIFY(file.isGone());
    file.rewrite();
    QVERIFY(!QFile::exists(pathOf(file)));
}

void TestTestFile::leavesAloneWhatStandsInItsPlace()
{
    QString path;
    {
        const TestFile file(m_directory.path());
        path = pathOf(file);
        QVERIFY(QFile::rename(path, path + QStringLiteral(".old")));
        QFile other(path);
        QVERIFY(other.open(QIODevice::WriteOnly));
        QVERIFY(file.isGone());
    }
    QVERIFY(QFile::remove(path));
}

void TestTestFile::writesAgain()
{
    TestFile file(m_directory.path());
    QFile other(pathOf(file));
    QVERIFY(other.open(QIODevice::WriteOnly | QIODevice::Truncate));
    other.close();
    file.rewrite();
    QCOMPARE(contentOf(file), testPattern());
}

void TestTestFile::followsNoLink()
{
    QVERIFY(QDir(m_directory.path()).mkdir(QStringLiteral("real")));
    QVERIFY(QFile::link(QStringLiteral("real"), m_directory.filePath(QStringLiteral("link"))));
    QCOMPARE(TestFile(m_directory.filePath(QStringLiteral("real"))).error(), 0);
    QCOMPARE(TestFile(m_directory.filePath(QStringLiteral("link"))).error(), ENOTDIR);
}

void TestTestFile::tellsWhyThereIsNone()
{
    QCOMPARE(TestFile(m_directory.filePath(QStringLiteral("none"))).error(), ENOENT);
    // Nothing can be made there, not even by root.
    QVERIFY(TestFile(QStringLiteral("/proc/self")).error() != 0);
}

QTEST_GUILESS_MAIN(TestTestFile)
#include "tst_testfile.moc"
