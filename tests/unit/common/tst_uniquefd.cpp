#include "common/uniquefd.h"

#include <QtTest>

#include <cerrno>
#include <type_traits>

#include <fcntl.h>

static_assert(!std::is_copy_constructible_v<UniqueFd> && !std::is_copy_assignable_v<UniqueFd>,
              "a descriptor has one owner");

class TestUniqueFd : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void holdsNothingAtFirst();
    void closesWhatItHoldsWhenItGoes();
    void closesWhatItHeldWhenReset();
    void closesNothingBelowZero();
    void handsOverByMove();
    void handsOverByMoveAssignment();
    void survivesAssignmentToItself();
    void releasesWithoutClosing();
    void leavesTheErrorNumberAlone();

private:
    static int opened()
    {
        return open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    static bool isOpen(int fd)
    {
        return fcntl(fd, F_GETFD) >= 0;
    }
};

void TestUniqueFd::holdsNothingAtFirst()
{
    const UniqueFd none;
    QVERIFY(!none.isValid());
    QCOMPARE(none.get(), -1);
}

void TestUniqueFd::closesWhatItHoldsWhenItGoes()
{
    const int fd = opened();
    {
        const UniqueFd owner(fd);
        QVERIFY(owner.isValid());
        QCOMPARE(owner.get(), fd);
        QVERIFY(isOpen(fd));
    }
    QVERIFY(!isOpen(fd));
}

void TestUniqueFd::closesWhatItHeldWhenReset()
{
    const int first = opened();
    const int second = opened();
    UniqueFd owner(first);
    owner.reset(second);
    QVERIFY(!isOpen(first));
    QVERIFY(isOpen(second));
    QCOMPARE(owner.get(), second);
    owner.reset();
    QVERIFY(!isOpen(second));
    QVERIFY(!owner.isValid());
}

void TestUniqueFd::closesNothingBelowZero()
{
    errno = 0;
    {
        const UniqueFd failed(-1);
        QVERIFY(!failed.isValid());
    }
    QCOMPARE(errno, 0);
}

void TestUniqueFd::handsOverByMove()
{
    const int fd = opened();
    UniqueFd first(fd);
    const UniqueFd second(std::move(first));
    // Being empty afterwards is the promise.
    QVERIFY(!first.isValid()); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    QCOMPARE(second.get(), fd);
    QVERIFY(isOpen(fd));
}

void TestUniqueFd::handsOverByMoveAssignment()
{
    const int replaced = opened();
    const int fd = opened();
    UniqueFd target(replaced);
    UniqueFd source(fd);
    target = std::move(source);
    // Being empty afterwards is the promise.
    QVERIFY(!source.isValid()); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    QVERIFY(!isOpen(replaced));
    QVERIFY(isOpen(fd));
    QCOMPARE(target.get(), fd);
}

void TestUniqueFd::survivesAssignmentToItself()
{
    const int fd = opened();
    UniqueFd owner(fd);
    UniqueFd& alias = owner;
    owner = std::move(alias);
    QCOMPARE(owner.get(), fd);
    QVERIFY(isOpen(fd));
}

void TestUniqueFd::releasesWithoutClosing()
{
    UniqueFd owner(opened());
    const int fd = owner.release();
    QVERIFY(!owner.isValid());
    QVERIFY(isOpen(fd));
    close(fd);
}

void TestUniqueFd::leavesTheErrorNumberAlone()
{
    const int fd = opened();
    UniqueFd stale(fd);
    close(fd);
    errno = ENOSPC;
    stale.reset();
    QCOMPARE(errno, ENOSPC);
}

QTEST_APPLESS_MAIN(TestUniqueFd)
#include "tst_uniquefd.moc"
