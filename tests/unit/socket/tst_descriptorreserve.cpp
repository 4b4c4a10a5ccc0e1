#include "socket/descriptorreserve.h"

#include "counts.h"
#include "support/limiteddescriptors.h"

#include <QTest>

#include <cerrno>
#include <vector>

#include <fcntl.h>

class TestDescriptorReserve : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsWhereTheLimitSays_data();
    void startsWhereTheLimitSays();
    void closesWhatIsOfTheReserve();
    void leavesTheReasonOfAFailureAlone();
    void findsRoomUntilTheReserve();
};

namespace
{
/// One of this number, which is free.
UniqueFd descriptorOf(int number)
{
    return UniqueFd(::fcntl(0, F_DUPFD_CLOEXEC, number));
}
} // namespace

void TestDescriptorReserve::startsWhereTheLimitSays_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("first");
    QTest::newRow("half of a few") << 200 << 100;
    QTest::newRow("an odd number") << 201 << 101;
    QTest::newRow("where both are the same") << 512 << 256;
    QTest::newRow("one more") << 513 << 257;
    QTest::newRow("usual") << 1024 << 768;
}

void TestDescriptorReserve::startsWhereTheLimitSays()
{
    QFETCH(int, limit);
    QFETCH(int, first);
    const LimitedDescriptors limited(static_cast<rlim_t>(limit));
    QCOMPARE(outsideReserve(descriptorOf(first - 1)).get(), first - 1);
    errno = 0;
    QVERIFY(!outsideReserve(descriptorOf(first)).isValid());
    QCOMPARE(errno, EMFILE);
    QVERIFY(!outsideReserve(descriptorOf(limit - 1)).isValid());
}

void TestDescriptorReserve::closesWhatIsOfTheReserve()
{
    const int before = openDescriptors();
    const LimitedDescriptors limited(400);
    for (int i = 0; i < 3; ++i) {
        outsideReserve(descriptorOf(300));
        isRoomOutsideReserve();
    }
    QCOMPARE(openDescriptors(), before);
}

void TestDescriptorReserve::leavesTheReasonOfAFailureAlone()
{
    errno = EAGAIN;
    QVERIFY(!outsideReserve(UniqueFd()).isValid());
    QCOMPARE(errno, EAGAIN);
}

void TestDescriptorReserve::findsRoomUntilTheReserve()
{
    const LimitedDescriptors limited(static_cast<rlim_t>(2 * (lowestFreeDescriptor() + 2)));
    std::vector<UniqueFd> opened;
    for (int i = 0; i < 2; ++i) {
        QVERIFY(isRoomOutsideReserve());
        opened.push_back(descriptorOf(0));
    }
    QVERIFY(!isRoomOutsideReserve());
    opened.pop_back();
    QVERIFY(isRoomOutsideReserve());
}

QTEST_GUILESS_MAIN(TestDescriptorReserve)
#include "tst_descriptorreserve.moc"
