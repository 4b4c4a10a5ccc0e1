#include "common/subdirectories.h"

#include "common/filename.h"
#include "common/uniquefd.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

class TestSubdirectories : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listsRealVisibleDirectoriesOnly();
    void listsWhatQtLists();
    void keepsNamesThatAreNotUtf8();
    void isEmptyForWhatCannotBeRead();
    void leavesNoDescriptorOpen();
};

namespace
{
QVector<QByteArray> sorted(QVector<QByteArray> names)
{
    std::sort(names.begin(), names.end());
    return names;
}

QVector<QByteArray> namesIn(const QByteArray& path)
{
    const UniqueFd directory(::open(path.constData(), O_PATH | O_CLOEXEC));
    return subdirectoriesOf(directory.get());
}

void fill(const QString& path)
{
    QDir directory(path);
    for (const char* name : {"plain", "with blank", "a\nb", "%1", "ümlaut", ".hidden", "..double", "a.b"}) {
        QVERIFY(directory.mkdir(QString::fromUtf8(name)));
    }
    QFile file(directory.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(
        QFile::link(directory.filePath(QStringLiteral("plain")), directory.filePath(QStringLiteral("link"))));
    QVERIFY(QFile::link(QStringLiteral("/nowhere"), directory.filePath(QStringLiteral("broken"))));
    QCOMPARE(::mkfifo(QFile::encodeName(directory.filePath(QStringLiteral("fifo"))).constData(), 0600), 0);
}
} // namespace

void TestSubdirectories::listsRealVisibleDirectoriesOnly()
{
    const QTemporaryDir home;
    fill(home.path());
    QCOMPARE(sorted(namesIn(home.path().toUtf8())),
             sorted({"plain", "with blank", "a\nb", "%1", "ümlaut", "a.b"}));
}

void TestSubdirectories::listsWhatQtLists()
{
    const QTemporaryDir home;
    fill(home.path());
    QVector<QByteArray> expected;
    const auto entries = QDir(home.path()).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QFileInfo& entry : entries) {
        if (!entry.isSymLink()) {
            expected.append(entry.fileName().toUtf8());
        }
    }
    QCOMPARE(sorted(namesIn(home.path().toUtf8())), sorted(expected));
}

void TestSubdirectories::keepsNamesThatAreNotUtf8()
{
    const QTemporaryDir home;
    const QByteArray path = home.path().toUtf8();
    QCOMPARE(::mkdir((path + "/bad\xff").constData(), 0700), 0);
    QCOMPARE(namesIn(path), QVector<QByteArray>{"bad\xff"});
    QCOMPARE(::rmdir((path + "/bad\xff").constData()), 0);
}

void TestSubdirectories::isEmptyForWhatCannotBeRead()
{
    const QTemporaryDir home;
    QCOMPARE(namesIn(home.path().toUtf8() + "/missing"), QVector<QByteArray>());
    QFile file(home.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(namesIn(home.path().toUtf8() + "/file"), QVector<QByteArray>());
}

void TestSubdirectories::leavesNoDescriptorOpen()
{
    const QTemporaryDir home;
    fill(home.path());
    const auto openDescriptors = [] {
        return QDir(QStringLiteral("/proc/self/fd")).entryList().size();
    };
    const int before = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        namesIn(home.path().toUtf8());
    }
    QCOMPARE(openDescriptors(), before);
}

QTEST_GUILESS_MAIN(TestSubdirectories)
#include "tst_subdirectories.moc"
