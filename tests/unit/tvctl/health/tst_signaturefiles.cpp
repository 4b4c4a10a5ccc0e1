#include "tvctl/health/signaturefiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

class TestSignatureFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void listsWhatTheServiceLoads();
    void tellsWhatIsWrong();
    void tellsThatThereIsNoDirectory();
    void saysThatTheyAreComing_data();
    void saysThatTheyAreComing();
    void asksOfNoUpdateWhereThereAreSome();
    void freshest_data();
    void freshest();

private:
    void write(const QString& name, const QByteArray& content);
    SignatureFiles read() const
    {
        return readSignatureFiles(m_directory->path());
    }

    std::unique_ptr<QTemporaryDir> m_directory;
};

namespace
{
QByteArray head(const QByteArray& built, int version)
{
    return ("ClamAV-VDB:" + built + ":" + QByteArray::number(version) + ":2:81:m:s:b:1")
        .leftJustified(512, ' ');
}

QByteArray status(const QByteArray& result)
{
    return "tried=2026-01-02T03:04:05Z\nresult=" + result + "\nsucceeded=\nmessage=what came of it\n";
}

QStringList namesOf(const QVector<SignatureFile>& files)
{
    QStringList names;
    for (const SignatureFile& file : files) {
        names += file.name;
    }
    return names;
}
} // namespace

void TestSignatureFiles::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
}

void TestSignatureFiles::write(const QString& name, const QByteArray& content)
{
    QFile file(m_directory->filePath(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), static_cast<qint64>(content.size()));
}

void TestSignatureFiles::listsWhatTheServiceLoads()
{
    const QByteArray content = head("22 Jun 2021 21-31 -0400", 7);
    for (const char* name :
         {"main.cvd", "B.CVD", "a.cvd", ".hidden.cvd", "daily.cld", "local.NDB", "readme.txt"}) {
        write(QLatin1String(name), content);
    }
    const SignatureFiles files = read();
    QCOMPARE(files.problem, QString());
    QCOMPARE(namesOf(files.loaded),
             QStringList({QStringLiteral("a.cvd"), QStringLiteral("B.CVD"), QStringLiteral("main.cvd")}));
    QCOMPARE(files.ignored, QStringList({QStringLiteral("daily.cld"), QStringLiteral("local.NDB")}));
    QCOMPARE(files.loaded.first().problem, QString());
    QCOMPARE(files.loaded.first().header->version, 7U);
}

void TestSignatureFiles::tellsWhatIsWrong()
{
    write(QStringLiteral("a.cvd"), "no database");
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("b.cvd")));
    QVERIFY(QFile::link(QStringLiteral("/nonexistent"), m_directory->filePath(QStringLiteral("c.cvd"))));
    QCOMPARE(::mkfifo(m_directory->filePath(QStringLiteral("d.cvd")).toUtf8().constData(), 0600), 0);
    write(QStringLiteral("e.cvd"), {});
    const SignatureFiles files = read();
    // Neither of the two that are no files and no directories is listed by Qt, nor by the service.
    QCOMPARE(namesOf(files.loaded),
             QStringList({QStringLiteral("a.cvd"), QStringLiteral("b.cvd"), QStringLiteral("e.cvd")}));
    QCOMPARE(files.loaded.at(0).problem, QStringLiteral("not a signature database"));
    QCOMPARE(files.loaded.at(1).problem, QStringLiteral("not a file"));
    QCOMPARE(files.loaded.at(2).problem, QStringLiteral("not a signature database"));
}

void TestSignatureFiles::tellsThatThereIsNoDirectory()
{
    QVERIFY(!readSignatureFiles(m_directory->filePath(QStringLiteral("none"))).problem.isEmpty());
}

void TestSignatureFiles::saysThatTheyAreComing_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<bool>("isUpdating");
    QTest::addColumn<bool>("expected");
    QTest::newRow("no update") << QByteArray() << false << false;
    QTest::newRow("the first update") << QByteArray() << true << true;
    QTest::newRow("after a good one") << status("current") << true << true;
    // A mirror that hangs is tried again and again.
    QTest::newRow("after one that failed") << status("download-failed") << true << false;
    QTest::newRow("after one that was refused") << status("refused") << true << false;
    QTest::newRow("after what cannot be read") << QByteArray("nothing") << true << true;
}

void TestSignatureFiles::saysThatTheyAreComing()
{
    QFETCH(const QByteArray, status);
    QFETCH(const bool, isUpdating);
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("db")));
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("upd")));
    if (!status.isEmpty()) {
        write(QStringLiteral("upd/status"), status);
    }
    const SignatureFiles files =
        signaturesOf(Installation(m_directory->path()), [&](const QString&) { return isUpdating; });
    QTEST(files.areComing, "expected");
}

void TestSignatureFiles::asksOfNoUpdateWhereThereAreSome()
{
    bool isAsked = false;
    const auto isUpdating = [&](const QString&) {
        isAsked = true;
        return true;
    };
    QVERIFY(!signaturesOf(Installation(m_directory->path()), isUpdating).areComing);
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("db")));
    write(QStringLiteral("db/main.cvd"), head("22 Jun 2021 21-31 -0400", 7));
    QVERIFY(!signaturesOf(Installation(m_directory->path()), isUpdating).areComing);
    QVERIFY(!isAsked);
}

void TestSignatureFiles::freshest_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("times");
    QTest::addColumn<QString>("expected");
    const QString old = QStringLiteral("22 Jun 2021 21-31 -0400");
    const QString young = QStringLiteral("22 Jun 2024 21-31 -0400");
    QTest::newRow("none") << QStringList() << QStringList() << QString();
    QTest::newRow("daily is what counts")
        << QStringList({QStringLiteral("a.cvd"), QStringLiteral("daily.cvd"), QStringLiteral("main.cvd")})
        << QStringList({young, old, young}) << QStringLiteral("daily.cvd");
    QTest::newRow("else the youngest") << QStringList({QStringLiteral("a.cvd"), QStringLiteral("b.cvd")})
                                       << QStringList({old, young}) << QStringLiteral("b.cvd");
    QTest::newRow("without a time") << QStringList({QStringLiteral("a.cvd")})
                                    << QStringList({QStringLiteral("some day")}) << QString();
}

void TestSignatureFiles::freshest()
{
    QFETCH(const QStringList, names);
    QFETCH(const QStringList, times);
    QFETCH(const QString, expected);
    for (int i = 0; i < names.size(); ++i) {
        write(names.at(i), head(times.at(i).toLatin1(), 1));
    }
    const SignatureFiles files = read();
    QCOMPARE(files.freshest() == nullptr ? QString() : files.freshest()->name, expected);
}

QTEST_GUILESS_MAIN(TestSignatureFiles)
#include "tst_signaturefiles.moc"
