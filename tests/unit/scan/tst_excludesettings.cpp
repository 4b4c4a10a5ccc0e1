#include "scan/excludesettings.h"

#include "fakescanconfig.h"

#include <QTest>

class TestExcludeSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void readsTheListsAsItIsMade();
    void excludesFiles_data();
    void excludesFiles();
    void excludesDirectories_data();
    void excludesDirectories();
    void excludesProcAndSysWhateverTheStoreSays();
    void looksIntoTheStoreOnlyWhenAsked();
    void replacesTheListsWhole_data();
    void replacesTheListsWhole();
    void isOneObjectUntilReleased();

private:
    static QSet<QString> set(const char* path)
    {
        return {QString::fromUtf8(path)};
    }
};

void TestExcludeSettings::cleanup()
{
    ExcludeSettings::releaseInstance();
    FakeScanConfig::reset();
}

void TestExcludeSettings::readsTheListsAsItIsMade()
{
    ExcludeSettings::getInstance();
    QCOMPARE(FakeScanConfig::listReads, QVector<int>({2, 1, 0}));
    QCOMPARE(FakeScanConfig::settingReads, 0);
}

void TestExcludeSettings::excludesFiles_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("excluded");
    QTest::newRow("listed") << "/home/u/x.bin" << true;
    QTest::newRow("another case") << "/home/u/X.bin" << false;
    QTest::newRow("with a slash") << "/home/u/x.bin/" << false;
    QTest::newRow("longer") << "/home/u/x.binary" << false;
    QTest::newRow("shorter") << "/home/u/x.bi" << false;
    QTest::newRow("name alone") << "x.bin" << false;
    QTest::newRow("same file by another path") << "/home/u/../u/x.bin" << false;
    QTest::newRow("below a listed directory") << "/home/u/dir/file" << false;
    QTest::newRow("the listed directory itself") << "/home/u/dir" << false;
    QTest::newRow("on the third list") << "/home/u/third" << false;
    QTest::newRow("below a listed file") << "/home/u/x.bin/file" << false;
    QTest::newRow("a pattern is no pattern") << "/home/u/any.log" << false;
    QTest::newRow("the pattern itself") << "/home/u/*.log" << true;
    QTest::newRow("composed") << QString::fromUtf8("/home/u/\xC3\xA9") << true;
    QTest::newRow("decomposed") << QString::fromUtf8("/home/u/e\xCC\x81") << false;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("quarantine copy") << "/home/u/a.tvq" << true;
    QTest::newRow("quarantine copy in capitals") << "/home/u/a.TVQ" << false;
    QTest::newRow("only the extension") << ".tvq" << true;
    QTest::newRow("extension without a dot") << "/home/u/atvq" << false;
    QTest::newRow("extension not last") << "/home/u/a.tvq.exe" << false;
    QTest::newRow("directory of that name") << "/home/u/a.tvq/" << false;
}

void TestExcludeSettings::excludesFiles()
{
    FakeScanConfig::excludeLists[0] = {QStringLiteral("/home/u/x.bin"), QStringLiteral("/home/u/*.log"),
                                       QString::fromUtf8("/home/u/\xC3\xA9")};
    FakeScanConfig::excludeLists[1] = set("/home/u/dir");
    FakeScanConfig::excludeLists[2] = set("/home/u/third");
    QFETCH(QString, path);
    QTEST(ExcludeSettings::getInstance()->isFileExcluded(path), "excluded");
}

void TestExcludeSettings::excludesDirectories_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("excluded");
    QTest::newRow("listed") << "/home/u/dir" << true;
    QTest::newRow("another case") << "/home/u/Dir" << false;
    QTest::newRow("with a slash") << "/home/u/dir/" << false;
    QTest::newRow("below") << "/home/u/dir/sub" << false;
    QTest::newRow("above") << "/home/u" << false;
    QTest::newRow("a listed file") << "/home/u/x.bin" << false;
    QTest::newRow("on the third list") << "/home/u/third" << false;
    QTest::newRow("proc") << "/proc" << true;
    QTest::newRow("proc with a slash") << "/proc/" << false;
    QTest::newRow("below proc") << "/proc/1" << false;
    QTest::newRow("sys") << "/sys" << true;
    QTest::newRow("sys with a slash") << "/sys/" << false;
    QTest::newRow("below sys") << "/sys/kernel" << false;
    QTest::newRow("a quarantine copy's name") << "/home/u/a.tvq" << false;
}

void TestExcludeSettings::excludesDirectories()
{
    FakeScanConfig::excludeLists[0] = set("/home/u/x.bin");
    FakeScanConfig::excludeLists[1] = set("/home/u/dir");
    FakeScanConfig::excludeLists[2] = set("/home/u/third");
    QFETCH(QString, path);
    QTEST(ExcludeSettings::getInstance()->isDirectoryExcluded(path), "excluded");
}

void TestExcludeSettings::excludesProcAndSysWhateverTheStoreSays()
{
    ExcludeSettings& excludes = *ExcludeSettings::getInstance();
    QVERIFY(excludes.isDirectoryExcluded(QStringLiteral("/sys")));
    QVERIFY(excludes.isDirectoryExcluded(QStringLiteral("/proc")));
    QVERIFY(!excludes.isDirectoryExcluded(QStringLiteral("/sys/kernel")));
    FakeScanConfig::excludeLists[1] = set("/home/u/dir");
    excludes.reloadExcludes();
    QVERIFY(excludes.isDirectoryExcluded(QStringLiteral("/sys")));
    QVERIFY(excludes.isDirectoryExcluded(QStringLiteral("/proc")));
}

void TestExcludeSettings::looksIntoTheStoreOnlyWhenAsked()
{
    ExcludeSettings& excludes = *ExcludeSettings::getInstance();
    FakeScanConfig::excludeLists[0] = set("/home/u/x.bin");
    FakeScanConfig::excludeLists[1] = set("/home/u/dir");
    QVERIFY(!excludes.isFileExcluded(QStringLiteral("/home/u/x.bin")));
    QVERIFY(!excludes.isDirectoryExcluded(QStringLiteral("/home/u/dir")));
    QCOMPARE(FakeScanConfig::listReads.size(), 3);
}

void TestExcludeSettings::replacesTheListsWhole_data()
{
    QTest::addColumn<bool>("reloads");
    QTest::newRow("load") << false;
    QTest::newRow("reloadExcludes") << true;
}

void TestExcludeSettings::replacesTheListsWhole()
{
    QFETCH(bool, reloads);
    FakeScanConfig::excludeLists[0] = set("/home/u/old");
    FakeScanConfig::excludeLists[1] = set("/home/u/olddir");
    ExcludeSettings& excludes = *ExcludeSettings::getInstance();
    QVERIFY(excludes.isFileExcluded(QStringLiteral("/home/u/old")));
    QVERIFY(excludes.isDirectoryExcluded(QStringLiteral("/home/u/olddir")));

    FakeScanConfig::excludeLists[0] = set("/home/u/new");
    FakeScanConfig::excludeLists[1] = set("/home/u/newdir");
    FakeScanConfig::listReads.clear();
    if (reloads) {
        excludes.reloadExcludes();
    } else {
        excludes.load();
    }
    QCOMPARE(FakeScanConfig::listReads, QVector<int>({2, 1, 0}));
    QVERIFY(!excludes.isFileExcluded(QStringLiteral("/home/u/old")));
    QVERIFY(!excludes.isDirectoryExcluded(QStringLiteral("/home/u/olddir")));
    QVERIFY(excludes.isFileExcluded(QStringLiteral("/home/u/new")));
    QVERIFY(excludes.isDirectoryExcluded(QStringLiteral("/home/u/newdir")));
}

void TestExcludeSettings::isOneObjectUntilReleased()
{
    ExcludeSettings* const excludes = ExcludeSettings::getInstance();
    QCOMPARE(ExcludeSettings::getInstance(), excludes);
    QCOMPARE(FakeScanConfig::listReads.size(), 3);
    ExcludeSettings::releaseInstance();
    // Nothing to release is no error.
    ExcludeSettings::releaseInstance();
    FakeScanConfig::excludeLists[0] = set("/home/u/x.bin");
    QVERIFY(ExcludeSettings::getInstance()->isFileExcluded(QStringLiteral("/home/u/x.bin")));
}

QTEST_APPLESS_MAIN(TestExcludeSettings)
#include "tst_excludesettings.moc"
