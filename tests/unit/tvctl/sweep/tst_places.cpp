#include "tvctl/sweep/places.h"

#include <QTest>

class TestPlaces : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsPlacesApart();
    void isASet();
    void dropsARest();
};

namespace
{
struct stat statusOf(dev_t device, ino_t inode)
{
    struct stat status = {};
    status.st_dev = device;
    status.st_ino = inode;
    return status;
}
} // namespace

void TestPlaces::tellsPlacesApart()
{
    const Place place = placeOf("/a", statusOf(1, 2));
    QVERIFY(place == placeOf("/a", statusOf(1, 2)));
    QVERIFY(place != placeOf("/b", statusOf(1, 2)));
    QVERIFY(place != placeOf("/a", statusOf(2, 2)));
    QVERIFY(place != placeOf("/a", statusOf(1, 3)));
    QVERIFY(place != placeOf("/a"));
    QVERIFY(placeOf("/a") == placeOf("/a"));
    QVERIFY(placeOf("/a") != placeOf("/b"));
}

void TestPlaces::isASet()
{
    QByteArray packed;
    for (const char* path : {"/c", "/a", "/b", "/a"}) {
        appendPlace(packed, placeOf(path));
    }
    const Places places(packed);
    QCOMPARE(places.size(), size_t(3));
    for (const char* path : {"/a", "/b", "/c"}) {
        QVERIFY(places.contains(placeOf(path)));
    }
    QVERIFY(!places.contains(placeOf("/d")));
    QCOMPARE(places.packed().size(), 3 * 16);
    QCOMPARE(Places(places.packed()).packed(), places.packed());
    QVERIFY(!places.isEmpty());
    QVERIFY(Places().isEmpty());
    QVERIFY(!Places().contains(placeOf("/a")));
}

void TestPlaces::dropsARest()
{
    QByteArray packed;
    appendPlace(packed, placeOf("/a"));
    QCOMPARE(Places(packed + "rest").packed(), packed);
}

QTEST_GUILESS_MAIN(TestPlaces)
#include "tst_places.moc"
