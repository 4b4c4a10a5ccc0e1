#include "tvctl/hashlists/hashcollector.h"

#include <QtTest>

#include <string>

namespace
{
void offer(HashCollector& collector, std::size_t size, char digit, qint64 line = 1)
{
    collector.offer(std::string(size, digit), line);
}

struct Flushes
{
    QStringList told;
    int failsAt = -1;

    HashCollector::Flush flush()
    {
        return [this](IOCScanConfig::HASH_TYPE type, const QStringList& hashes) {
            QString digits;
            for (const QString& hash : hashes) {
                digits += hash.at(0);
            }
            told.append(QStringLiteral("%1:%2").arg(type).arg(digits));
            return told.size() != failsAt;
        };
    }
};
} // namespace

class TestHashCollector : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void handsOnInPieces();
    void takesEachHashOnce();
    void passesOnWhatItCannotRemember();
    void refusesHashesOfHarmlessContent();
    void keepsTheFirstRejections();
    void stopsWhenStoringFails();
    void countsEachListForItself();
};

void TestHashCollector::handsOnInPieces()
{
    Flushes flushes;
    HashCollector collector(flushes.flush(), 2);
    for (const char digit : {'5', '1', '3', '2'}) {
        offer(collector, 32, digit);
        offer(collector, 64, digit);
    }
    offer(collector, 32, '0');
    offer(collector, 40, '9');
    QCOMPARE(flushes.told.join(QLatin1Char(' ')), QStringLiteral("0:51 2:51 0:32 2:32"));
    QVERIFY(collector.finish());
    QCOMPARE(flushes.told.join(QLatin1Char(' ')), QStringLiteral("0:51 2:51 0:32 2:32 0:0 1:9"));
    QVERIFY(collector.finish());
    QCOMPARE(flushes.told.size(), 6);
    QCOMPARE(collector.counts().accepted, (std::array<qint64, 3>{5, 1, 4}));
}

void TestHashCollector::takesEachHashOnce()
{
    Flushes flushes;
    HashCollector collector(flushes.flush(), 1);
    offer(collector, 32, 'a');
    // The first was handed on already, and is known all the same.
    offer(collector, 32, 'A');
    offer(collector, 32, 'b');
    offer(collector, 64, 'a');
    offer(collector, 32, 'a');
    QVERIFY(collector.finish());
    QCOMPARE(flushes.told.join(QLatin1Char(' ')), QStringLiteral("0:a 0:b 2:a"));
    QCOMPARE(collector.counts().accepted, (std::array<qint64, 3>{2, 0, 1}));
    QCOMPARE(collector.counts().duplicates, 2);
}

void TestHashCollector::passesOnWhatItCannotRemember()
{
    Flushes flushes;
    HashCollector collector(flushes.flush(), 10, 1);
    for (const char digit : {'a', 'b', 'b', 'a'}) {
        offer(collector, 32, digit);
    }
    QVERIFY(collector.finish());
    QCOMPARE(flushes.told, QStringList(QStringLiteral("0:abb")));
    QCOMPARE(collector.counts().duplicates, 1);
}

void TestHashCollector::refusesHashesOfHarmlessContent()
{
    Flushes flushes;
    HashCollector collector(flushes.flush());
    collector.offer("D41D8CD98F00B204E9800998ECF8427E", 3);
    collector.offer("68b329da9893e34099c7d8ad5cb9c940", 5);
    offer(collector, 32, 'a', 7);
    QVERIFY(collector.finish());
    QCOMPARE(flushes.told, QStringList(QStringLiteral("0:a")));
    QCOMPARE(collector.counts().harmless, 2);
    QCOMPARE(collector.counts().rejected, 0);
    QCOMPARE(collector.rejections().size(), 2);
    QCOMPARE(collector.rejections().at(0).line, 3);
    QCOMPARE(collector.rejections().at(0).reason, QStringLiteral("the hash of the empty file"));
    QCOMPARE(collector.rejections().at(1).line, 5);
}

void TestHashCollector::keepsTheFirstRejections()
{
    Flushes flushes;
    HashCollector collector(flushes.flush());
    for (int line = 1; line <= 1500; ++line) {
        collector.reject(line, QStringLiteral("reason %1").arg(line));
    }
    QCOMPARE(collector.counts().rejected, 1500);
    QCOMPARE(collector.rejections().size(), 1000);
    QCOMPARE(collector.rejections().last().line, 1000);
    QCOMPARE(collector.rejections().last().reason, QStringLiteral("reason 1000"));
}

void TestHashCollector::stopsWhenStoringFails()
{
    Flushes flushes;
    flushes.failsAt = 2;
    HashCollector collector(flushes.flush(), 1);
    offer(collector, 32, 'a');
    QVERIFY(!collector.hasFailed());
    offer(collector, 32, 'b');
    QVERIFY(collector.hasFailed());
    offer(collector, 32, 'c');
    QVERIFY(!collector.finish());
    QCOMPARE(flushes.told.join(QLatin1Char(' ')), QStringLiteral("0:a 0:b"));
}

void TestHashCollector::countsEachListForItself()
{
    Flushes flushes;
    HashCollector collector(flushes.flush());
    offer(collector, 32, 'a');
    collector.reject(1, QStringLiteral("reason"));
    collector.beginList();
    QCOMPARE(collector.counts().rejected, 0);
    QVERIFY(collector.rejections().isEmpty());
    offer(collector, 32, 'a');
    offer(collector, 32, 'b');
    QCOMPARE(collector.counts().accepted, (std::array<qint64, 3>{1, 0, 0}));
    QCOMPARE(collector.counts().duplicates, 1);
    QVERIFY(collector.finish());
    QCOMPARE(flushes.told, QStringList(QStringLiteral("0:ab")));
}

QTEST_GUILESS_MAIN(TestHashCollector)
#include "tst_hashcollector.moc"
