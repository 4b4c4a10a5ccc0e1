#include "common/originalstate.h"

#include "common/uniquefd.h"
#include "support/fakeattributes.h"

#include <QTemporaryFile>
#include <QTest>

#include <cerrno>

namespace
{
const QByteArray attribute = "user.tvfilemon.original";

OriginalState stateOf(uint mode, uint uid, uint gid, qint64 seconds, int nanoseconds)
{
    return {mode, uid, gid, {static_cast<time_t>(seconds), nanoseconds}};
}
} // namespace

Q_DECLARE_METATYPE(OriginalState)

class TestOriginalState : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void isWrittenAndReadBack_data();
    void isWrittenAndReadBack();
    void refusesOtherTexts_data();
    void refusesOtherTexts();
    void isWhatTheFileSystemTells();
    void isKeptWithTheFile();
    void tellsWhenTheFileCannotKeepIt();
    void isMissing_data();
    void isMissing();
};

void TestOriginalState::init()
{
    FakeAttributes::reset();
}

void TestOriginalState::isWrittenAndReadBack_data()
{
    QTest::addColumn<OriginalState>("state");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("usual") << stateOf(0644, 1000, 1000, 1709643600, 123)
                           << QByteArray("mode=0644 uid=1000 gid=1000 mtime=1709643600.000000123");
    QTest::newRow("nothing") << stateOf(0, 0, 0, 0, 0)
                             << QByteArray("mode=0000 uid=0 gid=0 mtime=0.000000000");
    QTest::newRow("all bits") << stateOf(07777, 1, 2, 3, 999999999)
                              << QByteArray("mode=7777 uid=1 gid=2 mtime=3.999999999");
    QTest::newRow("largest numbers")
        << stateOf(0600, 4294967295U, 4294967294U, 9223372036854775807LL, 0)
        << QByteArray("mode=0600 uid=4294967295 gid=4294967294 mtime=9223372036854775807.000000000");
    QTest::newRow("half a second before 1970")
        << stateOf(0400, 0, 0, -1, 500000000) << QByteArray("mode=0400 uid=0 gid=0 mtime=-1.500000000");
}

void TestOriginalState::isWrittenAndReadBack()
{
    QFETCH(OriginalState, state);
    QFETCH(QByteArray, text);
    QCOMPARE(state.toText(), text);
    const auto read = OriginalState::fromText(text);
    QVERIFY(read);
    QCOMPARE(read->mode, state.mode);
    QCOMPARE(read->uid, state.uid);
    QCOMPARE(read->gid, state.gid);
    QCOMPARE(read->modified.tv_sec, state.modified.tv_sec);
    QCOMPARE(read->modified.tv_nsec, state.modified.tv_nsec);
}

void TestOriginalState::refusesOtherTexts_data()
{
    QTest::addColumn<QByteArray>("text");
    const QVector<QByteArray> texts = {
        "",
        " ",
        "mode=0644",
        "mode=0644 uid=1 gid=1",
        "mode=0644 uid=1 gid=1 mtime=1",
        "mode=0644 uid=1 gid=1 mtime=1.",
        "mode=0644 uid=1 gid=1 mtime=1.5",
        "mode=0644 uid=1 gid=1 mtime=1.0000000005",
        "mode=0644 uid=1 gid=1 mtime=1.1000000000",
        "mode=0644 uid=1 gid=1 mtime=1.-00000005",
        "mode=0644 uid=1 gid=1 mtime=1.000000005 ",
        "mode=0644 uid=1 gid=1 mtime=1.000000005\n",
        "mode=0644 uid=1 gid=1 mtime=1.000000005 x=1",
        " mode=0644 uid=1 gid=1 mtime=1.000000005",
        "mode=0644  uid=1 gid=1 mtime=1.000000005",
        "mode=644 uid=1 gid=1 mtime=1.000000005",
        "mode=00644 uid=1 gid=1 mtime=1.000000005",
        "mode=0849 uid=1 gid=1 mtime=1.000000005",
        "mode=100644 uid=1 gid=1 mtime=1.000000005",
        "mode=-644 uid=1 gid=1 mtime=1.000000005",
        "mode=0644 uid=-1 gid=1 mtime=1.000000005",
        "mode=0644 uid=+1 gid=1 mtime=1.000000005",
        "mode=0644 uid=4294967296 gid=1 mtime=1.000000005",
        "mode=0644 uid=1 gid=99999999999999999999 mtime=1.000000005",
        "mode=0644 uid=1 gid=1 mtime=9223372036854775808.000000005",
        "mode=0644 uid= gid=1 mtime=1.000000005",
        "mode=0644 gid=1 uid=1 mtime=1.000000005",
        QByteArray("mode=0644 uid=1 gid=1 mtime=1.000000005\0", 40),
        QByteArray(100000, '0'),
    };
    for (int i = 0; i < texts.size(); ++i) {
        QTest::addRow("%d: %s", i, texts.at(i).left(60).constData()) << texts.at(i);
    }
}

void TestOriginalState::refusesOtherTexts()
{
    QFETCH(QByteArray, text);
    QVERIFY(!OriginalState::fromText(text));
}

void TestOriginalState::isWhatTheFileSystemTells()
{
    struct stat status = {};
    status.st_mode = S_IFREG | 04751;
    status.st_uid = 12;
    status.st_gid = 34;
    status.st_mtim = {56, 78};
    QCOMPARE(OriginalState::of(status).toText(), QByteArray("mode=4751 uid=12 gid=34 mtime=56.000000078"));
}

void TestOriginalState::isKeptWithTheFile()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    struct stat status = {};
    QCOMPARE(::fstat(file.handle(), &status), 0);
    const OriginalState state = stateOf(0640, 4294967294U, 4294967294U, -9000000000000000000LL, 999999999);
    QVERIFY(state.attachTo(file.handle()));
    QCOMPARE(FakeAttributes::value(status, attribute), state.toText());
    const auto read = OriginalState::attachedTo(file.handle());
    QVERIFY(read);
    QCOMPARE(read->toText(), state.toText());
}

void TestOriginalState::tellsWhenTheFileCannotKeepIt()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    FakeAttributes::error = ENOTSUP;
    QVERIFY(!stateOf(0640, 0, 0, 0, 0).attachTo(file.handle()));
    QCOMPARE(errno, ENOTSUP);
    QVERIFY(!OriginalState::attachedTo(file.handle()));
}

void TestOriginalState::isMissing_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("no attribute") << QByteArray();
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("of another kind") << QByteArray("0644");
    QTest::newRow("too long") << QByteArray(1000, 'x');
}

void TestOriginalState::isMissing()
{
    QFETCH(QByteArray, value);
    QTemporaryFile file;
    QVERIFY(file.open());
    struct stat status = {};
    QCOMPARE(::fstat(file.handle(), &status), 0);
    if (!value.isNull()) {
        FakeAttributes::setValue(status, attribute, value);
    }
    QVERIFY(!OriginalState::attachedTo(file.handle()));
}

QTEST_GUILESS_MAIN(TestOriginalState)
#include "tst_originalstate.moc"
