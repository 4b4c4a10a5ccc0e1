#include "platform/tvcore/iocscansettings.h"

#include <QTest>

class TestIOCScanSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isOffAndAllowsWhenNew();
    void keepsEachValueApart();
};

void TestIOCScanSettings::isOffAndAllowsWhenNew()
{
    const IOCScanSettings settings;
    QVERIFY(!settings.getEnable());
    QCOMPARE(settings.getAction(), 0);
}

void TestIOCScanSettings::keepsEachValueApart()
{
    IOCScanSettings settings;
    settings.setEnable(true);
    QCOMPARE(settings.getAction(), 0);
    settings.setAction(7);
    QVERIFY(settings.getEnable());
    QCOMPARE(settings.getAction(), 7);
    settings.setEnable(false);
    settings.setAction(-1);
    QVERIFY(!settings.getEnable());
    QCOMPARE(settings.getAction(), -1);
}

QTEST_APPLESS_MAIN(TestIOCScanSettings)
#include "tst_iocscansettings.moc"
