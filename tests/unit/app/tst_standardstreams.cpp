#include "app/standardstreams.h"

#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

class TestStandardStreams : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void opensWhatIsMissing_data();
    void opensWhatIsMissing();
};

namespace
{
ino_t nullDevice()
{
    struct stat status = {};
    ::stat("/dev/null", &status);
    return status.st_rdev;
}

/// In a process of its own: closes the streams of the bits in `closed`, then answers the bits of those that
/// are the null device afterwards, and bit 3 when a further descriptor was left open.
int nullStreamsAfter(int closed)
{
    const pid_t child = ::fork();
    if (child == 0) {
        const int firstFree = ::open("/", O_RDONLY | O_CLOEXEC);
        ::close(firstFree);
        for (int fd = 0; fd <= 2; ++fd) {
            if ((closed & (1 << fd)) != 0) {
                ::close(fd);
            }
        }
        openMissingStandardStreams();
        int result = 0;
        for (int fd = 0; fd <= 2; ++fd) {
            struct stat status = {};
            if (::fstat(fd, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == nullDevice()) {
                result |= 1 << fd;
            }
        }
        if (::open("/", O_RDONLY | O_CLOEXEC) != firstFree) {
            result |= 8;
        }
        ::_exit(result);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
} // namespace

void TestStandardStreams::opensWhatIsMissing_data()
{
    QTest::addColumn<int>("closed");
    for (int closed = 0; closed < 8; ++closed) {
        QTest::addRow("%d", closed) << closed;
    }
}

void TestStandardStreams::opensWhatIsMissing()
{
    QFETCH(int, closed);
    // A stream that the test itself was given as the null device stays that.
    const int given = nullStreamsAfter(0);
    QVERIFY(given >= 0 && given < 8);
    QCOMPARE(nullStreamsAfter(closed), given | closed);
}

QTEST_GUILESS_MAIN(TestStandardStreams)
#include "tst_standardstreams.moc"
