#include "monitor/inotifyrecords.h"

#include <QRandomGenerator>
#include <QTest>

#include <cstring>

class TestInotifyRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsNothingInNothing();
    void walksRecordsOfEveryNameLength();
    void readsNoNameOfAnEventOnTheDirectoryItself();
    void readsANameWithoutItsPadding_data();
    void readsANameWithoutItsPadding();
    void stopsAtARecordThatIsCutOff();
    void stopsAtARecordThatIsNotAligned();
    void neverLeavesTheBuffer();
};

namespace
{
QByteArray record(int wd, uint32_t mask, const QByteArray& padded)
{
    inotify_event header = {};
    header.wd = wd;
    header.mask = mask;
    header.len = static_cast<uint32_t>(padded.size());
    return QByteArray(reinterpret_cast<const char*>(&header), sizeof(header)) + padded;
}

/// The walk over a copy that is exactly as long as the data, so that a sanitizer sees any step outside.
struct Walk
{
    explicit Walk(const QByteArray& data)
        : buffer(static_cast<char*>(::aligned_alloc(alignof(inotify_event), roundedUp(data.size())))),
          records(buffer, static_cast<size_t>(data.size()))
    {
        if (!data.isEmpty()) {
            memcpy(buffer, data.constData(), static_cast<size_t>(data.size()));
        }
    }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
    ~Walk()
    {
        ::free(buffer);
    }
    static size_t roundedUp(int size)
    {
        constexpr size_t unit = alignof(inotify_event);
        return (static_cast<size_t>(size) / unit + 1) * unit;
    }

    char* buffer;
    InotifyRecords records;
};
} // namespace

void TestInotifyRecords::findsNothingInNothing()
{
    Walk walk{QByteArray()};
    QVERIFY(walk.records.next() == nullptr);
    QVERIFY(walk.records.next() == nullptr);
}

void TestInotifyRecords::walksRecordsOfEveryNameLength()
{
    QByteArray data;
    for (int length = 0; length <= 255; ++length) {
        const int padded = length == 0 ? 0 : (length / 16 + 1) * 16;
        data += record(length + 1, 0x100U + static_cast<uint32_t>(length),
                       QByteArray(length, 'n').leftJustified(padded, '\0'));
    }
    Walk walk(data);
    for (int length = 0; length <= 255; ++length) {
        const inotify_event* event = walk.records.next();
        QVERIFY(event != nullptr);
        QCOMPARE(event->wd, length + 1);
        QCOMPARE(event->mask, 0x100U + static_cast<uint32_t>(length));
        QCOMPARE(nameOf(*event), QByteArray(length, 'n'));
    }
    QVERIFY(walk.records.next() == nullptr);
}

void TestInotifyRecords::readsNoNameOfAnEventOnTheDirectoryItself()
{
    // What follows the first record would look like its name.
    Walk walk(record(1, IN_DELETE_SELF, QByteArray()) + record(0x41414141, 0x42424242, QByteArray(16, '\0')));
    QCOMPARE(nameOf(*walk.records.next()), QByteArray());
    QCOMPARE(walk.records.next()->wd, 0x41414141);
}

void TestInotifyRecords::readsANameWithoutItsPadding_data()
{
    QTest::addColumn<QByteArray>("padded");
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("padded") << QByteArray("a\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16) << QByteArray("a");
    QTest::newRow("one terminator") << QByteArray("fifteen-letters\0", 16) << QByteArray("fifteen-letters");
    QTest::newRow("no terminator") << QByteArray("sixteen-letters!") << QByteArray("sixteen-letters!");
    QTest::newRow("not UTF-8") << QByteArray("\xff\xfe\0\0", 4) << QByteArray("\xff\xfe");
    QTest::newRow("newline") << QByteArray("a\nb\0", 4) << QByteArray("a\nb");
}

void TestInotifyRecords::readsANameWithoutItsPadding()
{
    QFETCH(QByteArray, padded);
    QFETCH(QByteArray, name);
    Walk walk(record(1, IN_CREATE, padded));
    QCOMPARE(nameOf(*walk.records.next()), name);
}

void TestInotifyRecords::stopsAtARecordThatIsCutOff()
{
    const QByteArray whole = record(1, IN_CREATE, QByteArray("name").leftJustified(16, '\0'));
    for (int size = 0; size < whole.size(); ++size) {
        Walk walk(whole.left(size));
        QVERIFY2(walk.records.next() == nullptr, qPrintable(QString::number(size)));
    }
    Walk walk(whole + whole.left(whole.size() - 1));
    QVERIFY(walk.records.next() != nullptr);
    QVERIFY(walk.records.next() == nullptr);
}

void TestInotifyRecords::stopsAtARecordThatIsNotAligned()
{
    Walk walk(record(1, IN_CREATE, "abcde") + record(2, IN_CREATE, QByteArray(16, 'n')));
    QCOMPARE(nameOf(*walk.records.next()), QByteArray("abcde"));
    QVERIFY(walk.records.next() == nullptr);
    QVERIFY(walk.records.next() == nullptr);
}

void TestInotifyRecords::neverLeavesTheBuffer()
{
    QRandomGenerator random(7);
    for (int round = 0; round < 20000; ++round) {
        QByteArray data(static_cast<int>(random.bounded(200)), Qt::Uninitialized);
        for (char& byte : data) {
            byte = static_cast<char>(random.bounded(4) == 0 ? random.bounded(256) : 0);
        }
        Walk walk(data);
        int walked = 0;
        while (const inotify_event* event = walk.records.next()) {
            const auto* start = reinterpret_cast<const char*>(event);
            QVERIFY(start >= walk.buffer);
            QVERIFY(start + sizeof(inotify_event) + event->len <= walk.buffer + data.size());
            QVERIFY(nameOf(*event).size() <= static_cast<int>(event->len));
            ++walked;
        }
        QVERIFY(walked <= data.size() / static_cast<int>(sizeof(inotify_event)));
    }
}

QTEST_GUILESS_MAIN(TestInotifyRecords)
#include "tst_inotifyrecords.moc"
