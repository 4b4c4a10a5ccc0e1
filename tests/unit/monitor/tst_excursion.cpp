#include "monitor/excursion.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>

#include <dlfcn.h>
#include <fcntl.h>

class TestExcursion : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void worksInOneDirectoryAfterTheOther();
    void staysWhereItIs_data();
    void staysWhereItIs();
    void endsAtTheTopWhenItCannotGoBack();
    void changesNothingUnlessItWent();
};

namespace
{
/// How many directories can be entered before that fails.
int possible = INT_MAX;

UniqueFd held(const QString& path)
{
    return UniqueFd(::open(QFile::encodeName(path).constData(), O_PATH | O_CLOEXEC));
}
} // namespace

extern "C" int fchdir(int directory) noexcept
{
    static const auto real = reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "fchdir"));
    if (--possible < 0) {
        errno = EACCES;
        return -1;
    }
    return real(directory);
}

void TestExcursion::cleanup()
{
    possible = INT_MAX;
    QVERIFY(QDir::setCurrent(QCoreApplication::applicationDirPath()));
}

void TestExcursion::worksInOneDirectoryAfterTheOther()
{
    const QTemporaryDir first;
    const QTemporaryDir second;
    const QString before = QDir::currentPath();
    {
        Excursion excursion;
        for (const QTemporaryDir* directory : {&first, &second}) {
            QVERIFY(excursion.enter(held(directory->path())));
            QCOMPARE(QDir::currentPath(), QDir(directory->path()).canonicalPath());
        }
    }
    QCOMPARE(QDir::currentPath(), before);
}

void TestExcursion::staysWhereItIs_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("nothing") << "/nowhere";
    QTest::newRow("a file") << "/etc/passwd";
}

void TestExcursion::staysWhereItIs()
{
    QFETCH(QString, path);
    const QString before = QDir::currentPath();
    {
        Excursion excursion;
        QVERIFY(!excursion.enter(held(path)));
        QCOMPARE(QDir::currentPath(), before);
    }
    QCOMPARE(QDir::currentPath(), before);
}

void TestExcursion::endsAtTheTopWhenItCannotGoBack()
{
    const QTemporaryDir directory;
    possible = 1;
    {
        Excursion excursion;
        QVERIFY(excursion.enter(held(directory.path())));
    }
    QCOMPARE(QDir::currentPath(), QStringLiteral("/"));
}

void TestExcursion::changesNothingUnlessItWent()
{
    possible = 0;
    const QString before = QDir::currentPath();
    {
        const Excursion excursion;
    }
    QCOMPARE(QDir::currentPath(), before);
}

QTEST_GUILESS_MAIN(TestExcursion)
#include "tst_excursion.moc"
