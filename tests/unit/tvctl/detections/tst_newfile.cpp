#include "tvctl/detections/newfile.h"

#include "tvctl/console/toolerror.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

class TestNewFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void appearsWhenItIsComplete();
    void takesThePlaceOfAnother();
    void leavesNothingBehind();
    void isOnlyForItsOwner();
    void refusesAnythingElse_data();
    void refusesAnythingElse();
    void refusesALinkThatCameLater();
    void believesNoOtherFileUnderItsName();
    void namesWhatItCannotWrite();

private:
    QString path() const
    {
        return m_directory->path() + QStringLiteral("/file");
    }
    QStringList entries() const
    {
        return QDir(m_directory->path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    QByteArray content() const
    {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be read");
    }

    QScopedPointer<QTemporaryDir> m_directory;
};

void TestNewFile::init()
{
    m_directory.reset(new QTemporaryDir);
}

void TestNewFile::appearsWhenItIsComplete()
{
    NewFile file(path());
    file.write("one ");
    QVERIFY(!QFile::exists(path()));
    QCOMPARE(entries().size(), 1);
    QVERIFY2(entries().constFirst().endsWith(QLatin1String(".part")), "the file monitor would scan it");
    file.write(QByteArray(3000000, 'x'));
    file.publish();
    QCOMPARE(content(), "one " + QByteArray(3000000, 'x'));
    QCOMPARE(entries(), QStringList(QStringLiteral("file")));
}

void TestNewFile::takesThePlaceOfAnother()
{
    QFile before(path());
    QVERIFY(before.open(QIODevice::WriteOnly));
    before.write("before");
    before.close();
    {
        NewFile file(path());
        file.write("after");
        QCOMPARE(content(), QByteArray("before"));
        file.publish();
    }
    QCOMPARE(content(), QByteArray("after"));
    QCOMPARE(entries().size(), 1);
}

void TestNewFile::leavesNothingBehind()
{
    {
        NewFile file(path());
        file.write("x");
    }
    QVERIFY(entries().isEmpty());
}

void TestNewFile::isOnlyForItsOwner()
{
    NewFile file(path());
    file.publish();
    struct stat status = {};
    QCOMPARE(::stat(QFile::encodeName(path()).constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777U, 0600U);
}

void TestNewFile::refusesAnythingElse_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("link") << "link";
    QTest::newRow("dangling link") << "dangling";
    QTest::newRow("directory") << "directory";
    QTest::newRow("FIFO") << "fifo";
}

void TestNewFile::refusesAnythingElse()
{
    QFETCH(QString, kind);
    QFile target(m_directory->path() + QStringLiteral("/target"));
    QVERIFY(target.open(QIODevice::WriteOnly));
    target.write("target");
    target.close();
    if (kind == QLatin1String("link")) {
        QVERIFY(QFile::link(target.fileName(), path()));
    } else if (kind == QLatin1String("dangling")) {
        QVERIFY(QFile::link(QStringLiteral("/nonexistent"), path()));
    } else if (kind == QLatin1String("directory")) {
        QVERIFY(QDir().mkdir(path()));
    } else {
        QCOMPARE(::mkfifo(QFile::encodeName(path()).constData(), 0600), 0);
    }
    QVERIFY_EXCEPTION_THROWN(NewFile{path()}, ToolError);
    QCOMPARE(entries().size(), 2);
    QVERIFY(target.open(QIODevice::ReadOnly));
    QCOMPARE(target.readAll(), QByteArray("target"));
}

void TestNewFile::refusesALinkThatCameLater()
{
    NewFile file(path());
    QVERIFY(QFile::link(QStringLiteral("/nonexistent"), path()));
    QVERIFY_EXCEPTION_THROWN(file.publish(), ToolError);
}

void TestNewFile::believesNoOtherFileUnderItsName()
{
    NewFile file(path());
    file.write("content");
    // As whoever the directory belongs to may do.
    const QString passing = m_directory->filePath(entries().constFirst());
    QVERIFY(QFile::remove(passing));
    QFile other(passing);
    QVERIFY(other.open(QIODevice::WriteOnly));
    other.close();
    try {
        file.publish();
        QFAIL("it took the other file for its own");
    } catch (const ToolError& error) {
        QVERIFY(error.message().contains(QStringLiteral("was replaced by somebody")));
    }
}

void TestNewFile::namesWhatItCannotWrite()
{
    try {
        NewFile file(QStringLiteral("/nonexistent/file"));
        QFAIL("it could");
    } catch (const ToolError& error) {
        QVERIFY(error.message().contains(QStringLiteral("/nonexistent/file: No such file")));
    }
}

QTEST_GUILESS_MAIN(TestNewFile)
#include "tst_newfile.moc"
