#include "tvctl/commands/exclusioncheck.h"

#include "common/filename.h"
#include "tvctl/commands/commandpath.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <unistd.h>

/// The command's end-to-end tests go through all warnings; here is what needs roots that are not /home.
class TestExclusionCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void aRootThatIsALinkIsNoDetour();
    void aLinkInARootIsADetour();
    void outsideOfTheRootsEveryLinkIsADetour();
    void whatCannotBeLookedAtIsNotCalledMissing();

private:
    QString path(const char* name) const
    {
        return m_directory->filePath(QLatin1String(name));
    }
    QStringList warnings(const char* name, const QStringList& roots) const
    {
        const std::string argument = FileName::toBytes(path(name)).toStdString();
        return exclusionWarnings(ExclusionList::Files, argument, pathOf(argument), roots);
    }

    std::unique_ptr<QTemporaryDir> m_directory;
};

void TestExclusionCheck::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(QDir().mkpath(path("disk/u")));
    QFile file(path("disk/u/file"));
    QVERIFY(file.open(QFile::WriteOnly));
    QVERIFY(QFile::link(path("disk"), path("root")));
    QVERIFY(QFile::link(path("disk/u"), path("disk/link")));
}

void TestExclusionCheck::aRootThatIsALinkIsNoDetour()
{
    QCOMPARE(warnings("root/u/file", {QStringLiteral("/x"), path("root")}), QStringList());
}

void TestExclusionCheck::aLinkInARootIsADetour()
{
    const QStringList said = warnings("root/link/file", {path("root")});
    QCOMPARE(said.size(), 1);
    QVERIFY2(said.constFirst().contains(QStringLiteral("a link leads to it")), qPrintable(said.constFirst()));
}

void TestExclusionCheck::outsideOfTheRootsEveryLinkIsADetour()
{
    // The name of a root alone is no root of what only begins like it.
    QCOMPARE(warnings("root/u/file", {path("roo")}).size(), 1);
    QCOMPARE(warnings("disk/u/file", {}), QStringList());
}

void TestExclusionCheck::whatCannotBeLookedAtIsNotCalledMissing()
{
    const QString name = path("disk/") + QString(300, QLatin1Char('x'));
    const QStringList said =
        exclusionWarnings(ExclusionList::Files, FileName::toBytes(name).toStdString(), name, {});
    QCOMPARE(said.size(), 1);
    QVERIFY2(said.constFirst().startsWith(QStringLiteral("it cannot be looked at: ")),
             qPrintable(said.constFirst()));
}

QTEST_GUILESS_MAIN(TestExclusionCheck)
#include "tst_exclusioncheck.moc"
