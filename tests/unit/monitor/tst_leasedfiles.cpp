#include "monitor/leasedfiles.h"

#include "support/lease.h"
#include "support/limiteddescriptors.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

class TestLeasedFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void returnsAFileWhenItsLeaseHasEnded();
    void leavesEachFileAloneForAWhile();
    void forgetsWhatIsGone_data();
    void forgetsWhatIsGone();
    void returnsWhatCannotBeOpenedForAnotherReason();
    void opensNoFifo();
    void returnsOneAtATime();
    void triesOnlySomeAtOnce();
    void keepsAFileOnce();
    void removesAFile();
    void givesUpTheOneTriedLongestAgo();
    void tellsEachTimeThatThereAreTooManyOnce();
    void keepsAFileWhenThereIsNoDescriptor();

private:
    QByteArray make(const QByteArray& name);

    std::unique_ptr<QTemporaryDir> m_directory;
    const LeasedFiles::Clock::time_point m_start = LeasedFiles::Clock::now();
};

namespace
{
using Files = std::optional<QByteArray>;

constexpr std::chrono::milliseconds moment(1);

/// Nothing is left of it when it is tried.
QByteArray missing(int number)
{
    return "/missing/" + QByteArray::number(number);
}
} // namespace

void TestLeasedFiles::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
}

QByteArray TestLeasedFiles::make(const QByteArray& name)
{
    const QByteArray path = QFile::encodeName(m_directory->path()) + '/' + name;
    const UniqueFd file(::open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    return file.isValid() ? path : QByteArray();
}

void TestLeasedFiles::returnsAFileWhenItsLeaseHasEnded()
{
    const QByteArray path = make("bad\xff");
    auto lease = std::make_unique<Lease>(path);
    LeasedFiles files;
    QVERIFY(files.add(path, m_start));
    LeasedFiles::Clock::time_point now = m_start;
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(*files.nextDue(), now + LeasedFiles::pause);
        now = *files.nextDue();
        QCOMPARE(files.takeFree(now), Files());
    }
    lease.reset();
    now = *files.nextDue();
    QCOMPARE(files.takeFree(now), Files(path));
    QCOMPARE(files.takeFree(now), Files());
    QVERIFY(!files.nextDue());
    QCOMPARE(files.size(), 0);
}

void TestLeasedFiles::leavesEachFileAloneForAWhile()
{
    const QByteArray path = make("free");
    LeasedFiles files;
    files.add(path, m_start);
    QCOMPARE(files.takeFree(m_start + LeasedFiles::pause - moment), Files());
    QCOMPARE(files.takeFree(m_start + LeasedFiles::pause), Files(path));
    // Not more than once a second, and in time after the end of a lease.
    QVERIFY(LeasedFiles::pause >= std::chrono::seconds(1));
    QVERIFY(LeasedFiles::pause < std::chrono::seconds(10));
}

void TestLeasedFiles::forgetsWhatIsGone_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("name") << QByteArray("missing");
    QTest::newRow("directory") << QByteArray("missing/file");
    QTest::newRow("below a file") << QByteArray("file/below");
    QTest::newRow("link to nothing") << QByteArray("link");
}

void TestLeasedFiles::forgetsWhatIsGone()
{
    QFETCH(QByteArray, name);
    make("file");
    QVERIFY(QFile::link(QStringLiteral("/nothing"), m_directory->filePath(QStringLiteral("link"))));
    LeasedFiles files;
    files.add(QFile::encodeName(m_directory->path()) + '/' + name, m_start);
    QCOMPARE(files.takeFree(m_start + LeasedFiles::pause), Files());
    QCOMPARE(files.size(), 0);
}

void TestLeasedFiles::returnsWhatCannotBeOpenedForAnotherReason()
{
    // Whoever scans it will say why.
    const QByteArray path = QFile::encodeName(m_directory->filePath(QStringLiteral("socket")));
    QCOMPARE(::mknod(path.constData(), S_IFSOCK | 0600, 0), 0);
    LeasedFiles files;
    files.add(path, m_start);
    QCOMPARE(files.takeFree(m_start + LeasedFiles::pause), Files(path));
}

void TestLeasedFiles::opensNoFifo()
{
    const QByteArray path = QFile::encodeName(m_directory->filePath(QStringLiteral("fifo")));
    QCOMPARE(::mkfifo(path.constData(), 0600), 0);
    LeasedFiles files;
    files.add(path, m_start);
    QCOMPARE(files.takeFree(m_start + LeasedFiles::pause), Files(path));
    // Nobody who waits for a reader was let in.
    QCOMPARE(::open(path.constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), -1);
}

void TestLeasedFiles::returnsOneAtATime()
{
    LeasedFiles files;
    const QByteArray first = make("first");
    const QByteArray second = make("second");
    files.add(first, m_start);
    files.add(missing(0), m_start);
    files.add(second, m_start + moment);
    const LeasedFiles::Clock::time_point now = m_start + LeasedFiles::pause + moment;
    QCOMPARE(files.takeFree(now), Files(first));
    QVERIFY(*files.nextDue() <= now);
    QCOMPARE(files.takeFree(now), Files(second));
    QCOMPARE(files.takeFree(now), Files());
}

void TestLeasedFiles::triesOnlySomeAtOnce()
{
    LeasedFiles files;
    // Each takes a good part of a millisecond.
    const QByteArray longWay(QByteArray("/usr/../").repeated(500));
    constexpr int count = 1000;
    for (int i = 0; i < count; ++i) {
        files.add(longWay + missing(i), m_start);
    }
    const LeasedFiles::Clock::time_point now = m_start + LeasedFiles::pause;
    QCOMPARE(files.takeFree(now), Files());
    QVERIFY2(files.size() > 0 && files.size() < count, QByteArray::number(files.size()).constData());
    QVERIFY(*files.nextDue() <= now);
    while (files.size() > 0) {
        QCOMPARE(files.takeFree(now), Files());
    }
}

void TestLeasedFiles::keepsAFileOnce()
{
    LeasedFiles files;
    const QByteArray path = make("again");
    files.add(path, m_start);
    files.add(path, m_start + moment);
    QCOMPARE(files.size(), 1);
    QCOMPARE(files.takeFree(m_start + LeasedFiles::pause), Files());
    QCOMPARE(files.takeFree(m_start + LeasedFiles::pause + moment), Files(path));
}

void TestLeasedFiles::removesAFile()
{
    LeasedFiles files;
    const QByteArray path = make("scanned");
    files.add(path, m_start);
    files.remove(path);
    files.remove(missing(0));
    QCOMPARE(files.size(), 0);
    QVERIFY(!files.nextDue());
    QCOMPARE(files.takeFree(m_start + LeasedFiles::pause), Files());
}

void TestLeasedFiles::givesUpTheOneTriedLongestAgo()
{
    LeasedFiles files;
    const QByteArray first = make("first");
    const QByteArray second = make("second");
    files.add(first, m_start);
    files.add(second, m_start);
    for (int i = 0; i < LeasedFiles::limit - 2; ++i) {
        QVERIFY(files.add(missing(i), m_start + moment));
    }
    QVERIFY(!files.add(missing(-1), m_start + moment));
    QCOMPARE(files.size(), LeasedFiles::limit);
    QCOMPARE(files.takeFree(m_start + LeasedFiles::pause), Files(second));
}

void TestLeasedFiles::tellsEachTimeThatThereAreTooManyOnce()
{
    LeasedFiles files;
    const auto addMany = [&files, this](int count) {
        int told = 0;
        for (int i = 0; i < count; ++i) {
            told += files.add(missing(i), m_start) ? 0 : 1;
        }
        return told;
    };
    const auto removeDownTo = [&files](int count) {
        for (int i = 0; files.size() > count; ++i) {
            files.remove(missing(i));
        }
    };
    QCOMPARE(addMany(LeasedFiles::limit + 100), 1);
    removeDownTo(LeasedFiles::limit / 2 + 1);
    QCOMPARE(addMany(LeasedFiles::limit + 100), 0);
    removeDownTo(LeasedFiles::limit / 2 - 1);
    QCOMPARE(addMany(LeasedFiles::limit + 100), 1);
}

void TestLeasedFiles::keepsAFileWhenThereIsNoDescriptor()
{
    LeasedFiles files;
    const QByteArray path = make("file");
    files.add(path, m_start);
    {
        const LimitedDescriptors none(0);
        QCOMPARE(files.takeFree(m_start + LeasedFiles::pause), Files());
    }
    QCOMPARE(files.takeFree(m_start + 2 * LeasedFiles::pause), Files(path));
}

QTEST_GUILESS_MAIN(TestLeasedFiles)
#include "tst_leasedfiles.moc"
