#include "tvctl/detections/detectionfollower.h"

#include "reportstorefixture.h"

#include <QFile>
#include <QtTest>

namespace
{
QStringList next(DetectionFollower& follower)
{
    return ReportStoreFixture::names(follower.next());
}

QStringList words(const char* text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

void removeStore(const ReportStoreFixture& fixture)
{
    TvCore::setDirectory(fixture.installation().settings());
    for (const char* ending : {"", "-wal", "-shm"}) {
        QFile::remove(fixture.storePath() + QLatin1String(ending));
    }
}
} // namespace

class TestDetectionFollower : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void handsOutWhatIsNew();
    void handsOutManyInPieces();
    void resumesBehindARecord_data();
    void resumesBehindARecord();
    void goesOnAfterThoseBeforeWereRemoved();
    void beginsAnewWithTheStore_data();
    void beginsAnewWithTheStore();
    void seesAnotherStoreThatHasGotAsFar();
    void waitsForAStoreThatCannotBeRead();
};

void TestDetectionFollower::handsOutWhatIsNew()
{
    const ReportStoreFixture fixture;
    DetectionFollower follower{DetectionId()};
    QVERIFY(follower.next().isEmpty());
    ReportStoreFixture::add(1, 2);
    QCOMPARE(next(follower), words("1 2"));
    QVERIFY(follower.next().isEmpty());
    ReportStoreFixture::add(3, 3);
    QCOMPARE(next(follower), words("3"));
    QVERIFY(follower.next().isEmpty());
    QVERIFY(follower.takeNotices().isEmpty());
}

void TestDetectionFollower::handsOutManyInPieces()
{
    const ReportStoreFixture fixture;
    ReportStoreFixture::add(1, 1100);
    DetectionFollower follower{DetectionId()};
    QStringList all;
    for (QStringList some = next(follower); !some.isEmpty(); some = next(follower)) {
        all += some;
    }
    QCOMPARE(all.size(), 1100);
    QCOMPARE(all.removeDuplicates(), 0);
    QCOMPARE(all.constLast(), QStringLiteral("1100"));
    QVERIFY(follower.takeNotices().isEmpty());
}

void TestDetectionFollower::resumesBehindARecord_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("notices");
    QTest::newRow("number") << "3"
                            << "4 5" << 0;
    QTest::newRow("with its time") << "3-1790000003000"
                                   << "4 5" << 0;
    QTest::newRow("the last") << "5-1790000005000"
                              << "" << 0;
    QTest::newRow("before the first") << "0"
                                      << "1 2 3 4 5" << 0;
    QTest::newRow("of another store") << "3-1789999999999"
                                      << "1 2 3 4 5" << 1;
    QTest::newRow("of another store that got further") << "17"
                                                       << "1 2 3 4 5" << 1;
}

void TestDetectionFollower::resumesBehindARecord()
{
    QFETCH(QString, id);
    const ReportStoreFixture fixture;
    ReportStoreFixture::add(1, 5);
    DetectionFollower follower(*DetectionId::parse(id));
    QTEST(next(follower).join(QLatin1Char(' ')), "expected");
    QTEST(follower.takeNotices().size(), "notices");
}

void TestDetectionFollower::goesOnAfterThoseBeforeWereRemoved()
{
    const ReportStoreFixture fixture;
    ReportStoreFixture::add(1, 5);
    DetectionFollower follower{DetectionId()};
    QCOMPARE(next(follower), words("1 2 3 4 5"));
    QCOMPARE(VirusConfig().removeVirusReports(ReportStoreFixture::second(9)), 5LL);
    QVERIFY(follower.next().isEmpty());
    ReportStoreFixture::add(6, 7);
    QCOMPARE(next(follower), words("6 7"));
    QVERIFY(follower.takeNotices().isEmpty());
}

void TestDetectionFollower::beginsAnewWithTheStore_data()
{
    QTest::addColumn<bool>("isSeenEmpty");
    QTest::newRow("seen empty") << true;
    QTest::newRow("with records in it at once") << false;
}

void TestDetectionFollower::beginsAnewWithTheStore()
{
    QFETCH(bool, isSeenEmpty);
    const ReportStoreFixture fixture;
    ReportStoreFixture::add(1, 5);
    DetectionFollower follower{DetectionId()};
    QCOMPARE(next(follower).size(), 5);
    removeStore(fixture);
    if (isSeenEmpty) {
        QVERIFY(follower.next().isEmpty());
    }
    ReportStoreFixture::add(11, 12);
    QCOMPARE(next(follower), words("11 12"));
    QCOMPARE(follower.takeNotices().size(), 1);
    ReportStoreFixture::add(13, 13);
    QCOMPARE(next(follower), words("13"));
    QVERIFY(follower.takeNotices().isEmpty());
}

void TestDetectionFollower::seesAnotherStoreThatHasGotAsFar()
{
    const ReportStoreFixture fixture;
    ReportStoreFixture::add(1, 2);
    DetectionFollower follower{DetectionId()};
    QCOMPARE(next(follower).size(), 2);
    removeStore(fixture);
    ReportStoreFixture::add(11, 14);
    QCOMPARE(next(follower), words("11 12 13 14"));
}

void TestDetectionFollower::waitsForAStoreThatCannotBeRead()
{
    const ReportStoreFixture fixture;
    ReportStoreFixture::add(1, 1);
    DetectionFollower follower{DetectionId()};
    QCOMPARE(next(follower), words("1"));

    const QString away = fixture.installation().root() + QStringLiteral("/away");
    TvCore::setDirectory(fixture.installation().settings());
    QVERIFY(QDir().rename(fixture.installation().settings(), away));
    QVERIFY(follower.next().isEmpty());
    const QStringList notices = follower.takeNotices();
    QCOMPARE(notices.size(), 1);
    QVERIFY2(notices.constFirst().contains(QStringLiteral("cannot be read now")),
             qPrintable(notices.constFirst()));
    QVERIFY(follower.next().isEmpty());
    QVERIFY2(follower.takeNotices().isEmpty(), "told once");

    QVERIFY(QDir().rename(away, fixture.installation().settings()));
    ReportStoreFixture::add(2, 2);
    QStringList seen;
    QTRY_COMPARE(seen += next(follower), words("2"));
    QVERIFY(follower.takeNotices().join(QString()).contains(QStringLiteral("can be read again")));
}

QTEST_GUILESS_MAIN(TestDetectionFollower)
#include "tst_detectionfollower.moc"
