#include "tvctl/sweep/places.h"

#include <QTest>

#include <cstring>

class TestPlaces : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsPlacesApart();
    void takesNoNameForAnIdentity();
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
    const Place path = placeOf("/a");
    QVERIFY(path == placeOf("/a"));
    QVERIFY(path != placeOf("/b"));
    const Place below = placeBelow(path, "x");
    QVERIFY(below == placeBelow(path, "x"));
    QVERIFY(below != placeBelow(path, "y"));
    QVERIFY(below != placeBelow(placeOf("/b"), "x"));
    const Place place = placeOfDirectory(path, statusOf(1, 2));
    QVERIFY(place == placeOfDirectory(path, statusOf(1, 2)));
    QVERIFY(place != placeOfDirectory(placeOf("/b"), statusOf(1, 2)));
    QVERIFY(place != placeOfDirectory(path, statusOf(2, 2)));
    QVERIFY(place != placeOfDirectory(path, statusOf(1, 3)));
    QVERIFY(place != path);
}

void TestPlaces::takesNoNameForAnIdentity()
{
    // A directory of this name beside the one with these numbers.
    const QByteArray name("nextto_itsbytes", 16);
    quint64 numbers[2] = {};
    std::memcpy(numbers, name.constData(), sizeof(numbers));
    const Place path = placeOf("/a");
    QVERIFY(placeBelow(path, name) != placeOfDirectory(path, statusOf(numbers[0], numbers[1])));
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
