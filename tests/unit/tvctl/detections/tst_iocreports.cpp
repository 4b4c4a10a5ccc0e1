#include "tvctl/detections/iocreports.h"

#include "ioc/iocreportline.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

class TestIocReports : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void readsDayByDay();
    void leavesOutWhatIsOlder();
    void putsRecordsOfSeveralLinesTogether();
    void countsWhatIsNoRecord();
    void boundsARecord();
    void opensNothingButReports();
    void aMissingDirectoryHoldsNone();

private:
    static QDateTime noon(int day)
    {
        return QDateTime(QDate(2026, 11, day), QTime(12, 0));
    }
    static QByteArray line(int day, const QString& path)
    {
        return iocReportLine(noon(day), path, QStringLiteral("ab"), QStringLiteral("ID"), 4);
    }
    QString nameOf(int day) const
    {
        return m_directory->path() + QLatin1Char('/') + iocReportFileName(noon(day));
    }
    void write(int day, const QByteArray& content) const
    {
        QFile file(nameOf(day));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), static_cast<qint64>(content.size()));
    }
    IocReports::Outcome read(const QDateTime& since = {})
    {
        m_paths.clear();
        return IocReports::read(m_directory->path(), since,
                                [this](const IocReportRecord& record) { m_paths << record.path; });
    }

    QScopedPointer<QTemporaryDir> m_directory;
    QStringList m_paths;
};

void TestIocReports::init()
{
    m_directory.reset(new QTemporaryDir);
}

void TestIocReports::readsDayByDay()
{
    // By name the second day would come first.
    write(2, line(2, QStringLiteral("/c")));
    QFile older(m_directory->path() + QStringLiteral("/31-10-2026.apmon"));
    QVERIFY(older.open(QIODevice::WriteOnly));
    older.write(line(1, QStringLiteral("/a")) + line(1, QStringLiteral("/b")));
    older.close();
    const IocReports::Outcome outcome = read();
    QCOMPARE(m_paths, QStringList() << QStringLiteral("/a") << QStringLiteral("/b") << QStringLiteral("/c"));
    QCOMPARE(outcome.unreadableLines, 0LL);
    QCOMPARE(outcome.unreadableFiles, 0);
}

void TestIocReports::leavesOutWhatIsOlder()
{
    write(1, line(1, QStringLiteral("/a")));
    write(2, line(2, QStringLiteral("/b")) + line(3, QStringLiteral("/c")));
    read(noon(2).addSecs(1));
    QCOMPARE(m_paths, QStringList() << QStringLiteral("/c"));
    read(noon(2));
    QCOMPARE(m_paths, QStringList() << QStringLiteral("/b") << QStringLiteral("/c"));
}

void TestIocReports::putsRecordsOfSeveralLinesTogether()
{
    const QString path =
        QStringLiteral("/x\n\n") + QString::fromLatin1(line(1, QStringLiteral("/forged")).left(30));
    write(1, line(1, path) + line(1, QStringLiteral("/y")));
    QCOMPARE(read().unreadableLines, 0LL);
    QCOMPARE(m_paths, QStringList() << path << QStringLiteral("/y"));
}

void TestIocReports::countsWhatIsNoRecord()
{
    write(1, "garbage\n\n" + line(1, QStringLiteral("/a")) + line(1, QStringLiteral("/b")).chopped(5));
    QCOMPARE(read().unreadableLines, 3LL);
    QCOMPARE(m_paths, QStringList() << QStringLiteral("/a"));
}

void TestIocReports::boundsARecord()
{
    const QByteArray begin = line(1, QStringLiteral("/a")).left(21);
    write(1, begin + QByteArray(1000000, 'x') + '\n' + line(1, QStringLiteral("/b")));
    QVERIFY(read().unreadableLines > 0);
    QCOMPARE(m_paths, QStringList() << QStringLiteral("/b"));
    // Its beginning takes in all lines that follow, but not for ever.
    write(1, begin + '\n' + QByteArray("xxxxxxx\n").repeated(10000) + line(1, QStringLiteral("/b")));
    QVERIFY(read().unreadableLines > 0);
    QCOMPARE(m_paths, QStringList() << QStringLiteral("/b"));
}

void TestIocReports::opensNothingButReports()
{
    QTemporaryDir elsewhere;
    QFile target(elsewhere.path() + QStringLiteral("/target"));
    QVERIFY(target.open(QIODevice::WriteOnly));
    target.write(line(1, QStringLiteral("/linked")));
    target.close();
    QVERIFY(QFile::link(target.fileName(), nameOf(1)));
    QCOMPARE(::mkfifo(QFile::encodeName(nameOf(2)).constData(), 0600), 0);
    write(3, line(3, QStringLiteral("/a")));
    QFile other(m_directory->path() + QStringLiteral("/x03-11-2026.apmon"));
    QVERIFY(other.open(QIODevice::WriteOnly));
    QCOMPARE(read().unreadableFiles, 2);
    QCOMPARE(m_paths, QStringList() << QStringLiteral("/a"));
}

void TestIocReports::aMissingDirectoryHoldsNone()
{
    m_directory->remove();
    QCOMPARE(read().unreadableFiles, 0);
    QVERIFY(m_paths.isEmpty());
}

QTEST_GUILESS_MAIN(TestIocReports)
#include "tst_iocreports.moc"
