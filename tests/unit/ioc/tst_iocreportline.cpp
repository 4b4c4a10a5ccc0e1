#include "ioc/iocreportline.h"

#include <QLocale>
#include <QTest>

class TestIocReportLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namesTheFileByTheDay_data();
    void namesTheFileByTheDay();
    void fillsElevenFields_data();
    void fillsElevenFields();
    void knowsNoLocale_data();
    void knowsNoLocale();
};

namespace
{
QDateTime moment(int year, int month, int day, int hour, int minute, int second, int milli = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, milli));
}
} // namespace

void TestIocReportLine::namesTheFileByTheDay_data()
{
    QTest::addColumn<QDateTime>("when");
    QTest::addColumn<QString>("name");
    QTest::newRow("a day") << moment(2026, 11, 16, 12, 0, 0) << QStringLiteral("16-11-2026.apmon");
    QTest::newRow("zeros") << moment(2027, 2, 3, 4, 5, 6) << QStringLiteral("03-02-2027.apmon");
    QTest::newRow("before midnight") << moment(2026, 12, 31, 23, 59, 59, 999)
                                     << QStringLiteral("31-12-2026.apmon");
    QTest::newRow("midnight") << moment(2027, 1, 1, 0, 0, 0) << QStringLiteral("01-01-2027.apmon");
}

void TestIocReportLine::namesTheFileByTheDay()
{
    QFETCH(QDateTime, when);
    QTEST(iocReportFileName(when), "name");
}

void TestIocReportLine::fillsElevenFields_data()
{
    QTest::addColumn<QDateTime>("when");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("hash");
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QByteArray>("line");
    const QDateTime when = moment(2026, 11, 16, 9, 8, 7, 6);
    const QString hash = QStringLiteral("abc");
    const QString deleted = QStringLiteral("ID");
    QTest::newRow("plain") << when << QStringLiteral("/home/u/a.exe") << hash << deleted << 4
                           << QByteArray("16-11-2026 09:08:07,/home/u/a.exe,ID,4,abc,NA,NA,NA,NA,NA,NA\n");
    QTest::newRow("before midnight") << moment(2026, 12, 31, 23, 59, 59, 999) << QStringLiteral("/a") << hash
                                     << QStringLiteral("IR") << 5
                                     << QByteArray("31-12-2026 23:59:59,/a,IR,5,abc,NA,NA,NA,NA,NA,NA\n");
    QTest::newRow("midnight") << moment(2027, 1, 1, 0, 0, 0) << QStringLiteral("/a") << hash
                              << QStringLiteral("IA") << 6
                              << QByteArray("01-01-2027 00:00:00,/a,IA,6,abc,NA,NA,NA,NA,NA,NA\n");
    QTest::newRow("no letters") << when << QStringLiteral("/a") << hash << QString() << 6
                                << QByteArray("16-11-2026 09:08:07,/a,,6,abc,NA,NA,NA,NA,NA,NA\n");
    QTest::newRow("a comma shifts") << when << QStringLiteral("/a,b") << hash << deleted << 4
                                    << QByteArray("16-11-2026 09:08:07,/a,b,ID,4,abc,NA,NA,NA,NA,NA,NA\n");
    QTest::newRow("Latin-1") << when << QStringLiteral("/\u00F6\u00FF") << hash << deleted << 4
                             << QByteArray("16-11-2026 09:08:07,/\xF6\xFF,ID,4,abc,NA,NA,NA,NA,NA,NA\n");
    QTest::newRow("beyond Latin-1") << when << QStringLiteral("/\u4E2D\u0100") << hash << deleted << 4
                                    << QByteArray("16-11-2026 09:08:07,/\?\?,ID,4,abc,NA,NA,NA,NA,NA,NA\n");
    // The "NA" that fills the path's %7 is the second of the six; the template's own %7 takes it too.
    QTest::newRow("a reserved field's placeholder")
        << when << QStringLiteral("/a%7b") << hash << deleted << 4
        << QByteArray("16-11-2026 09:08:07,/aNAb,ID,4,abc,NA,NA,NA,NA,NA,NA\n");
    QTest::newRow("the action's placeholder")
        << when << QStringLiteral("/%3") << hash << deleted << 4
        << QByteArray("16-11-2026 09:08:07,/ID,ID,4,abc,NA,NA,NA,NA,NA,NA\n");
    // %1 and %2 of the path are the lowest numbers left, so the action and the kind go there.
    QTest::newRow("placeholders already filled")
        << when << QStringLiteral("/%1") << hash << deleted << 4
        << QByteArray("16-11-2026 09:08:07,/ID,4,abc,NA,NA,NA,NA,NA,NA,%11\n");
    QTest::newRow("a placeholder beyond the last")
        << when << QStringLiteral("/%12") << hash << deleted << 4
        << QByteArray("16-11-2026 09:08:07,/%12,ID,4,abc,NA,NA,NA,NA,NA,NA\n");
    QTest::newRow("a percent sign") << when << QStringLiteral("/100%") << hash << deleted << 4
                                    << QByteArray("16-11-2026 09:08:07,/100%,ID,4,abc,NA,NA,NA,NA,NA,NA\n");
    QTest::newRow("negative kind") << when << QStringLiteral("/a") << hash << deleted << -12
                                   << QByteArray("16-11-2026 09:08:07,/a,ID,-12,abc,NA,NA,NA,NA,NA,NA\n");
    QTest::newRow("nothing") << when << QString() << QString() << QString() << 4
                             << QByteArray("16-11-2026 09:08:07,,,4,,NA,NA,NA,NA,NA,NA\n");
}

void TestIocReportLine::fillsElevenFields()
{
    QFETCH(QDateTime, when);
    QFETCH(QString, path);
    QFETCH(QString, hash);
    QFETCH(QString, action);
    QFETCH(int, kind);
    QTEST(iocReportLine(when, path, hash, action, kind), "line");
}

void TestIocReportLine::knowsNoLocale_data()
{
    QTest::addColumn<QLocale>("locale");
    QTest::newRow("German") << QLocale(QLocale::German, QLocale::Germany);
    QTest::newRow("Arabic") << QLocale(QLocale::Arabic, QLocale::Egypt);
}

void TestIocReportLine::knowsNoLocale()
{
    QFETCH(QLocale, locale);
    QLocale::setDefault(locale);
    const QDateTime when = moment(2026, 11, 16, 9, 8, 7);
    const QString name = iocReportFileName(when);
    const QByteArray line =
        iocReportLine(when, QStringLiteral("/a"), QStringLiteral("h"), QStringLiteral("ID"), 4);
    QLocale::setDefault(QLocale::c());
    QCOMPARE(name, QStringLiteral("16-11-2026.apmon"));
    QCOMPARE(line, QByteArray("16-11-2026 09:08:07,/a,ID,4,h,NA,NA,NA,NA,NA,NA\n"));
}

QTEST_GUILESS_MAIN(TestIocReportLine)
#include "tst_iocreportline.moc"
