#include "common/filecopy.h"

#include "common/abandonablework.h"
#include "support/fakefiles.h"

#include <QTemporaryFile>
#include <QTest>

#include <cerrno>
#include <future>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
/// An open file whose content was given it beforehand; it stands somewhere in the middle.
class Opened : public QTemporaryFile
{
public:
    explicit Opened(const QByteArray& content = QByteArray())
    {
        open();
        write(content);
        flush();
    }
    QByteArray content()
    {
        seek(0);
        return readAll();
    }
};

QByteArray counted(int size)
{
    QByteArray bytes;
    for (int i = 0; bytes.size() < size; ++i) {
        bytes += QByteArray::number(i) + ' ';
    }
    return bytes.left(size);
}
} // namespace

class TestFileCopy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void copiesUpToTheLimit_data();
    void copiesUpToTheLimit();
    void keepsHoles_data();
    void keepsHoles();
    void copiesNoDataBehindTheLimit();
    void tellsWhatFailed_data();
    void tellsWhatFailed();
    void writesOnAfterInterruptions();
    void givesUpWhenTheProcessHasToEnd();
};

void TestFileCopy::init()
{
    FakeFiles::reset();
}

void TestFileCopy::copiesUpToTheLimit_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("limit");
    QTest::newRow("empty") << 0 << 0;
    QTest::newRow("empty with room") << 0 << 100;
    QTest::newRow("whole") << 300000 << 300000;
    QTest::newRow("ends before") << 300000 << 400000;
    QTest::newRow("longer") << 300000 << 299999;
    QTest::newRow("none of it") << 300000 << 0;
}

void TestFileCopy::copiesUpToTheLimit()
{
    QFETCH(int, size);
    QFETCH(int, limit);
    const QByteArray content = counted(size);
    Opened from(content);
    Opened to;
    QVERIFY(copyFileContent(from.handle(), to.handle(), limit));
    QVERIFY(to.content() == content.left(limit));
}

void TestFileCopy::keepsHoles_data()
{
    QTest::addColumn<qint64>("dataAt");
    QTest::newRow("hole only") << qint64(-1);
    QTest::newRow("hole at the end") << qint64(0);
    QTest::newRow("hole at the beginning") << (qint64(1) << 30) - 4096;
    QTest::newRow("holes around") << (qint64(1) << 20);
}

void TestFileCopy::keepsHoles()
{
    QFETCH(qint64, dataAt);
    constexpr qint64 size = qint64(1) << 30;
    const QByteArray content = counted(4096);
    Opened from;
    QVERIFY(from.resize(size));
    if (dataAt >= 0) {
        QVERIFY(from.seek(dataAt));
        QCOMPARE(from.write(content), qint64(content.size()));
        QVERIFY(from.flush());
    }
    Opened to;
    QVERIFY(copyFileContent(from.handle(), to.handle(), size));
    struct stat status = {};
    QCOMPARE(::fstat(to.handle(), &status), 0);
    QCOMPARE(status.st_size, off_t(size));
    QVERIFY(status.st_blocks <= 64);
    if (dataAt >= 0) {
        QVERIFY(to.seek(dataAt));
        QVERIFY(to.read(4096) == content);
    }
}

void TestFileCopy::copiesNoDataBehindTheLimit()
{
    Opened from;
    QVERIFY(from.seek(1 << 20));
    QCOMPARE(from.write("data"), qint64(4));
    QVERIFY(from.flush());
    Opened to;
    QVERIFY(copyFileContent(from.handle(), to.handle(), 4096));
    QCOMPARE(to.content(), QByteArray(4096, '\0'));
}

void TestFileCopy::tellsWhatFailed_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<int>("error");
    QTest::newRow("reading") << QByteArray("read") << EIO;
    QTest::newRow("writing") << QByteArray("write") << ENOSPC;
}

void TestFileCopy::tellsWhatFailed()
{
    QFETCH(QByteArray, call);
    QFETCH(int, error);
    Opened from(counted(300000));
    Opened to;
    FakeFiles::failures.insert(call, {error, 1});
    QVERIFY(!copyFileContent(from.handle(), to.handle(), 300000));
    QCOMPARE(errno, error);
}

void TestFileCopy::writesOnAfterInterruptions()
{
    const QByteArray content = counted(300000);
    Opened from(content);
    Opened to;
    FakeFiles::longestWrite = 1000;
    FakeFiles::failures.insert("write", {EINTR, 3, 5});
    QVERIFY(copyFileContent(from.handle(), to.handle(), content.size()));
    QVERIFY(to.content() == content);
}

void TestFileCopy::givesUpWhenTheProcessHasToEnd()
{
    constexpr off_t longest = 16 << 20;
    const Opened from("content");
    QCOMPARE(::ftruncate(from.handle(), longest + 1), 0);
    Opened to;
    Opened quick;
    auto end = std::async(std::launch::async, &AbandonableWork::abandon);
    QTRY_VERIFY(AbandonableWork::isAwaited());
    const bool isCopied = copyFileContent(from.handle(), to.handle(), longest + 1);
    const int error = errno;
    const bool isQuickCopied = copyFileContent(from.handle(), quick.handle(), longest);
    AbandonableWork::cancel();
    QVERIFY(!end.get());
    QVERIFY(!isCopied);
    QCOMPARE(error, ECANCELED);
    QVERIFY(to.content().isEmpty());
    QVERIFY(isQuickCopied);
    QVERIFY(quick.content().startsWith("content"));
    QVERIFY(copyFileContent(from.handle(), to.handle(), longest + 1));
}

QTEST_GUILESS_MAIN(TestFileCopy)
#include "tst_filecopy.moc"
