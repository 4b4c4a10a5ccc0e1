#include "common/installationroot.h"

#include <QtTest>

class TestInstallationRoot : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isTheParentUnlessTwoSlashesDeep_data();
    void isTheParentUnlessTwoSlashesDeep();
};

void TestInstallationRoot::isTheParentUnlessTwoSlashesDeep_data()
{
    const QString fixed = QStringLiteral("/usr/lib/Talvenor");
    QTest::addColumn<QString>("executableDirectory");
    QTest::addColumn<QString>("root");
    QTest::newRow("the suite's own place") << "/usr/lib/Talvenor/bin" << fixed;
    QTest::newRow("three levels") << "/home/u/root/bin"
                                  << "/home/u/root";
    QTest::newRow("many levels") << "/a/b/c/d/e/bin"
                                 << "/a/b/c/d/e";
    QTest::newRow("two levels are refused") << "/opt/x/bin" << fixed;
    QTest::newRow("two levels, whatever the name") << "/tmp/check/anything" << fixed;
    QTest::newRow("one level") << "/usr/bin"
                               << "/usr";
    QTest::newRow("the file system's root") << "/bin"
                                            << "/";
    QTest::newRow("counted after the dots are resolved") << "/a/b/../c/d/bin"
                                                         << "/a/c/d";
    QTest::newRow("dots that leave two levels") << "/a/b/c/../bin" << fixed;
    QTest::newRow("doubled separators count once") << "/opt//y//x//bin"
                                                   << "/opt/y/x";
    QTest::newRow("a blank in the name") << "/srv/my suite/x y/bin"
                                         << "/srv/my suite/x y";
}

void TestInstallationRoot::isTheParentUnlessTwoSlashesDeep()
{
    QFETCH(QString, executableDirectory);
    QTEST(installationRootOf(executableDirectory), "root");
}

QTEST_APPLESS_MAIN(TestInstallationRoot)
#include "tst_installationroot.moc"
