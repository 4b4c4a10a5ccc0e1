#include "tvctl/files/filecounter.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class TestFileCounter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void countsRegularFiles();
    void leavesOutWhatIsSkipped();
    void stopsWhenItGoes();
};

namespace
{
QByteArray fill(const QTemporaryDir& directory)
{
    QDir(directory.path()).mkpath(QStringLiteral("a/b"));
    for (const char* name : {"1", "a/2", "a/3", "a/b/.4"}) {
        QFile file(directory.filePath(QString::fromLatin1(name)));
        if (!file.open(QIODevice::WriteOnly)) {
            return {};
        }
    }
    QFile::link(directory.filePath(QStringLiteral("1")), directory.filePath(QStringLiteral("link")));
    return QFile::encodeName(directory.path());
}
} // namespace

void TestFileCounter::countsRegularFiles()
{
    const QTemporaryDir directory;
    const QByteArray root = fill(directory);
    const FileCounter counter({root, root + "/a", "/does/not/exist"}, {});
    QTRY_COMPARE(counter.total(), 7);
}

void TestFileCounter::leavesOutWhatIsSkipped()
{
    const QTemporaryDir directory;
    const QByteArray root = fill(directory);
    const FileCounter counter({root}, [root](const QByteArray& path) { return path == root + "/a/b"; });
    QTRY_COMPARE(counter.total(), 3);
}

void TestFileCounter::stopsWhenItGoes()
{
    // Whatever there is, and however long it would take.
    const FileCounter counter({"/"}, {});
    QVERIFY(counter.total() >= 0);
}

QTEST_GUILESS_MAIN(TestFileCounter)
#include "tst_filecounter.moc"
