#include "tvctl/detections/iocreportrecord.h"

#include "ioc/iocreportline.h"

#include <QtTest>

class TestIocReportRecord : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsWhatTheServiceWrites_data();
    void readsWhatTheServiceWrites();
    void readsAPathWithPlaceholders_data();
    void readsAPathWithPlaceholders();
    void readsAPlaceholderThatTheHashCompletes_data();
    void readsAPlaceholderThatTheHashCompletes();
    void takesNothingElseForTheHash();
    void refusesAnythingElse_data();
    void refusesAnythingElse();
    void putsItIntoWords_data();
    void putsItIntoWords();
};

namespace
{
const QDateTime& moment()
{
    static const QDateTime time(QDate(2026, 11, 3), QTime(4, 5, 6));
    return time;
}

const QString& sha256()
{
    static const QString hash = QStringLiteral("abc123").leftJustified(64, QLatin1Char('0'));
    return hash;
}

QByteArray written(const QString& path, const QString& action = QStringLiteral("ID"), int kind = 6,
                   const QString& hash = sha256())
{
    return iocReportLine(moment(), path, hash, action, kind).chopped(1);
}
} // namespace

void TestIocReportRecord::readsWhatTheServiceWrites_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("action");
    QTest::newRow("deleted") << "/home/u/x"
                             << "ID";
    QTest::newRow("renamed") << "/home/u/x"
                             << "IR";
    QTest::newRow("no action") << "/home/u/x"
                               << "";
    QTest::newRow("comma") << "/home/u/a, b,c"
                           << "IA";
    QTest::newRow("like the end") << "/x,ID,4,ff,NA,NA,NA,NA,NA,NA"
                                  << "IR";
    QTest::newRow("line end") << "/x\ny"
                              << "IR";
    QTest::newRow("Latin-1") << QStringLiteral("/\u00e4") << "IR";
    QTest::newRow("placeholder of the reserved") << "/x%12"
                                                 << "IR";
    QTest::newRow("empty") << ""
                           << "IR";
}

void TestIocReportRecord::readsWhatTheServiceWrites()
{
    QFETCH(QString, path);
    QFETCH(QString, action);
    const auto record = IocReportRecord::parse(written(path, action));
    QVERIFY(record.has_value());
    QCOMPARE(record->time, moment());
    QCOMPARE(record->path, path);
    QCOMPARE(record->action, action);
    QCOMPARE(record->hashKind, 6);
    QCOMPARE(record->hash, sha256());
}

void TestIocReportRecord::readsAPathWithPlaceholders_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("hash");
    // The values went into the path, in this order: action, kind, hash.
    QTest::newRow("one") << "/a%1b"
                         << "/aIDb" << 6 << sha256();
    QTest::newRow("two") << "/a%1%2b"
                         << "/aID6b" << 0 << sha256();
    QTest::newRow("three") << "/%0/%1/%2" << QStringLiteral("/ID/6/") + sha256() << 0 << QString();
    QTest::newRow("a column's own") << "/a%3"
                                    << "/aID" << 6 << sha256();
}

void TestIocReportRecord::readsAPathWithPlaceholders()
{
    QFETCH(QString, path);
    const auto record = IocReportRecord::parse(written(path));
    QVERIFY2(record.has_value(), written(path).constData());
    QTEST(record->path, "shown");
    QTEST(record->hashKind, "kind");
    QTEST(record->hash, "hash");
}

void TestIocReportRecord::readsAPlaceholderThatTheHashCompletes_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("hash");
    const QString hash = QStringLiteral("00ff").leftJustified(32, QLatin1Char('0'));
    const QString rest = hash.mid(2);
    // Of "00ff...", behind a percent sign, the zeros become the lowest placeholder, and take in a reserved
    // value.
    QTest::newRow("alone") << "/a%%5b" << QStringLiteral("/aNA") + rest + QLatin1Char('b') << "ID" << 4
                           << hash;
    QTest::newRow("behind one") << "/%0%%4" << QStringLiteral("/IDNA") + rest << "" << 4 << hash;
    QTest::newRow("behind two") << "/%0%1%%3" << QStringLiteral("/ID4NA") + rest << "" << 0 << hash;
    QTest::newRow("behind all") << "/%0%1%%2" << QStringLiteral("/ID4NA") + rest << "" << 0 << QString();
}

void TestIocReportRecord::readsAPlaceholderThatTheHashCompletes()
{
    QFETCH(QString, path);
    const QByteArray line =
        written(path, QStringLiteral("ID"), 4, QStringLiteral("00ff").leftJustified(32, QLatin1Char('0')));
    const auto record = IocReportRecord::parse(line);
    QVERIFY2(record.has_value(), line.constData());
    QTEST(record->path, "shown");
    QTEST(record->action, "action");
    QTEST(record->hashKind, "kind");
    QTEST(record->hash, "hash");
}

void TestIocReportRecord::takesNothingElseForTheHash()
{
    // The kind makes a placeholder, which takes the hash in.
    const QByteArray line =
        written(QStringLiteral("/%%4"), QStringLiteral("ID"), 4, QString(32, QLatin1Char('a')));
    const auto record = IocReportRecord::parse(line);
    QVERIFY2(record.has_value(), line.constData());
    QCOMPARE(record->hash, QString());
    QCOMPARE(record->hashKind, 0);
}

void TestIocReportRecord::refusesAnythingElse_data()
{
    QTest::addColumn<QByteArray>("line");
    const QByteArray good = written(QStringLiteral("/x"));
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("cut short") << good.chopped(1);
    QTest::newRow("cut at a comma") << good.chopped(3);
    QTest::newRow("more behind it") << good + ",x";
    QTest::newRow("no time") << good.mid(1);
    QTest::newRow("no such day") << QByteArray(good).replace(0, 2, "32");
    QTest::newRow("only a time") << good.left(20);
    QTest::newRow("too few") << good.left(20) + "NA,NA,NA,NA,NA,NA";
    QTest::newRow("too few reserved") << QByteArray(good).replace(",NA,NA,", ",x,NA,");
    QTest::newRow("too many kept") << good.left(22) + ",NA,NA,NA,NA,%7,%8,%9,%10,%11";
    QTest::newRow("binary") << QByteArray(100, '\xff');
}

void TestIocReportRecord::refusesAnythingElse()
{
    QFETCH(QByteArray, line);
    QVERIFY(!IocReportRecord::parse(line).has_value());
}

void TestIocReportRecord::putsItIntoWords_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("hash");
    QTest::newRow("ID") << "ID" << 4 << "deleted"
                        << "MD5 abc123";
    QTest::newRow("IR") << "IR" << 5 << "renamed"
                        << "SHA-1 abc123";
    QTest::newRow("IA") << "IA" << 6 << "allowed"
                        << "SHA-256 abc123";
    QTest::newRow("none") << "" << 7 << "reported"
                          << "abc123";
}

void TestIocReportRecord::putsItIntoWords()
{
    QFETCH(QString, action);
    QFETCH(int, kind);
    const auto record =
        IocReportRecord::parse(written(QStringLiteral("/x"), action, kind, QStringLiteral("abc123")));
    QVERIFY(record.has_value());
    QTEST(record->result(), "result");
    QTEST(record->hashText(), "hash");
}

QTEST_GUILESS_MAIN(TestIocReportRecord)
#include "tst_iocreportrecord.moc"
