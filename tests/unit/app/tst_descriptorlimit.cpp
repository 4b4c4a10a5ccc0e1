#include "app/descriptorlimit.h"

#include "support/limiteddescriptors.h"

#include <QTest>

class TestDescriptorLimit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void raisesToWhatIsAllowed();
    void leavesAnythingElse();
};

namespace
{
rlimit limits()
{
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return limit;
}
} // namespace

void TestDescriptorLimit::raisesToWhatIsAllowed()
{
    const LimitedDescriptors limited(64);
    const rlimit before = limits();
    QCOMPARE(before.rlim_cur, rlim_t(64));
    QVERIFY(before.rlim_max > before.rlim_cur);
    raiseDescriptorLimit();
    QCOMPARE(limits().rlim_cur, before.rlim_max);
    QCOMPARE(limits().rlim_max, before.rlim_max);
}

void TestDescriptorLimit::leavesAnythingElse()
{
    const LimitedDescriptors limited(limits().rlim_max);
    const rlimit before = limits();
    raiseDescriptorLimit();
    QCOMPARE(limits().rlim_cur, before.rlim_cur);
    QCOMPARE(limits().rlim_max, before.rlim_max);
}

QTEST_GUILESS_MAIN(TestDescriptorLimit)
#include "tst_descriptorlimit.moc"
