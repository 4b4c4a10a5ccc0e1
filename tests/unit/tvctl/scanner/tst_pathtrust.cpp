#include "tvctl/scanner/pathtrust.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
/// What is in front of the directories of a test: nothing is known of the machine's own.
QByteArray ground;
/// The directory that somebody else owns.
QByteArray foreign;
} // namespace

extern "C" int fstat(int descriptor, struct stat* status) noexcept
{
    using Function = int (*)(int, struct stat*);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "fstat"));
    const int result = real(descriptor, status);
    char path[4096] = {};
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(descriptor);
    if (!ground.isEmpty() && ::readlink(link.constData(), path, sizeof(path) - 1) > 0) {
        const QByteArray here(path);
        if (ground.startsWith(here)) {
            status->st_uid = 0;
            status->st_mode = S_IFDIR | 0755;
        }
        status->st_uid = here == foreign ? ::geteuid() + 1 : status->st_uid;
    }
    return result;
}

class TestPathTrust : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void trustsRootAndTheCaller();
    void trustsNobodyElse();
    void trustsNoDirectoryThatOthersMayWriteTo_data();
    void trustsNoDirectoryThatOthersMayWriteTo();
    void trustsNoLink();
    void tellsWhatIsNotThere();

private:
    QByteArray path(const char* name) const
    {
        return m_root + '/' + name;
    }

    QScopedPointer<QTemporaryDir> m_directory;
    QByteArray m_root;
};

void TestPathTrust::init()
{
    m_directory.reset(new QTemporaryDir);
    m_root = QFile::encodeName(QDir(m_directory->path()).canonicalPath());
    ground = m_root;
    QCOMPARE(::mkdir(path("d").constData(), 0755), 0);
    QCOMPARE(::mkdir(path("d/e").constData(), 0755), 0);
}

void TestPathTrust::cleanup()
{
    ground.clear();
    foreign.clear();
}

void TestPathTrust::trustsRootAndTheCaller()
{
    QCOMPARE(distrustOf(path("d/e/file")), QString());
    QCOMPARE(distrustOf("/file"), QString());
}

void TestPathTrust::trustsNobodyElse()
{
    foreign = path("d");
    QVERIFY(distrustOf(path("d/e/file")).contains(QStringLiteral("/d belongs to somebody else")));
    foreign = path("d/e");
    QVERIFY(distrustOf(path("d/e/file")).contains(QStringLiteral("/d/e belongs to somebody else")));
    // What it is that lies there is not asked.
    QCOMPARE(distrustOf(path("d/e")), QString());
}

void TestPathTrust::trustsNoDirectoryThatOthersMayWriteTo_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("group") << 0775;
    QTest::newRow("all") << 0757;
    QTest::newRow("sticky") << 01777;
}

void TestPathTrust::trustsNoDirectoryThatOthersMayWriteTo()
{
    QFETCH(int, mode);
    QCOMPARE(::chmod(path("d").constData(), static_cast<mode_t>(mode)), 0);
    QVERIFY(distrustOf(path("d/e/file")).contains(QStringLiteral("others may write in")));
}

void TestPathTrust::trustsNoLink()
{
    QCOMPARE(::symlink("d", path("link").constData()), 0);
    QVERIFY(distrustOf(path("link/e/file")).contains(QStringLiteral("/link is no folder itself")));
}

void TestPathTrust::tellsWhatIsNotThere()
{
    QCOMPARE(distrustOf(path("none/file")), qt_error_string(ENOENT));
}

QTEST_GUILESS_MAIN(TestPathTrust)
#include "tst_pathtrust.moc"
