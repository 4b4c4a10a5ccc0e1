#include "tvctl/detections/reportsummary.h"

#include "common/filename.h"
#include "tvctl/console/timetext.h"

#include <QJsonDocument>
#include <QtTest>

namespace
{
const QDateTime& now()
{
    static const QDateTime time(QDate(2026, 11, 21), QTime(12, 0));
    return time;
}

VirusReport report(const QString& virus, const QString& path, int status, const QDateTime& time)
{
    VirusReport made;
    made.setVirusName(virus);
    made.setFilePath(path);
    made.setCleanStatus(status);
    made.setModuleName(QStringLiteral("tvfilemon"));
    made.setDateTime(time);
    return made;
}

IocReportRecord match(const QString& path, const QDateTime& time)
{
    IocReportRecord record;
    record.time = time;
    record.path = path;
    record.action = QStringLiteral("ID");
    record.hashKind = 4;
    record.hash = QStringLiteral("ab");
    return record;
}

QString text(const QJsonValue& value)
{
    return QString::fromUtf8(
               QJsonDocument(QJsonObject{{QStringLiteral("v"), value}}).toJson(QJsonDocument::Compact))
        .mid(5)
        .chopped(1);
}
} // namespace

class TestReportSummary : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sumsUp();
    void ordersTheTable();
    void keepsTheNewestRows();
    void showsForeignTextHarmlessly();
    void ofNothing();
};

void TestReportSummary::sumsUp()
{
    ReportSummary summary(now().addDays(-4), now());
    summary.add(report(QStringLiteral("A"), QStringLiteral("/d/1"), 0, now().addDays(-2)));
    summary.add(report(QStringLiteral("A"), QStringLiteral("/d/2"), 0, now().addDays(-1)));
    summary.add(report(QStringLiteral("B"), QStringLiteral("/x"), -1, now()));
    summary.add(report(QStringLiteral("C"), QStringLiteral("/d/e/3"), -2, now()));
    summary.add(report(QStringLiteral("C"), QStringLiteral("/d/3"), 1, QDateTime()));
    summary.add(match(QStringLiteral("/d/4"), now()));
    summary.setUnreadable(7);
    QCOMPARE(summary.detections(), 5LL);
    QCOMPARE(summary.hashMatches(), 1LL);

    const QJsonObject json = summary.toJson(QStringLiteral("box"));
    QCOMPARE(json[QStringLiteral("host")].toString(), QStringLiteral("box"));
    QCOMPARE(json[QStringLiteral("since")].toString(), TimeText::format(now().addDays(-4)));
    QCOMPARE(text(json[QStringLiteral("counts")]),
             QStringLiteral(R"({"allowed":1,"cleaned":2,"failed":1,"hash":1,"reported":1})"));
    QCOMPARE(json[QStringLiteral("undated")].toInt(), 1);
    QCOMPARE(json[QStringLiteral("unreadable")].toInt(), 7);
    QCOMPARE(text(json[QStringLiteral("names")]), QStringLiteral(R"([["A",2],["C",2],["B",1]])"));
    QCOMPARE(text(json[QStringLiteral("folders")]), QStringLiteral(R"([["/d",4],["/",1],["/d/e",1]])"));
    QCOMPARE(text(json[QStringLiteral("timeline")]),
             QStringLiteral(R"({"bars":[["2026-11-17T00:00",0,0,0,0,0],["2026-11-18T00:00",0,0,0,0,0],)"
                            R"(["2026-11-19T00:00",1,0,0,0,0],["2026-11-20T00:00",1,0,0,0,0],)"
                            R"(["2026-11-21T00:00",0,1,1,0,1]],"unit":"day"})"));
    QVERIFY(!json[QStringLiteral("cut")].toBool());
    QVERIFY(json[QStringLiteral("exact")].toBool());
}

void TestReportSummary::ordersTheTable()
{
    ReportSummary summary({}, now());
    summary.add(report(QStringLiteral("A"), QStringLiteral("/1"), 0, now().addSecs(-50)));
    summary.add(report(QStringLiteral("B"), QStringLiteral("/2"), 0, QDateTime()));
    summary.add(report(QStringLiteral("C"), QStringLiteral("/3"), 1, now().addSecs(-10)));
    summary.add(match(QStringLiteral("/4"), now().addSecs(-30)));
    QCOMPARE(text(summary.toJson({})[QStringLiteral("rows")]),
             QStringLiteral(R"([["2026-11-21 11:59:50","failed","C","/3","tvfilemon"],)"
                            R"(["2026-11-21 11:59:30","deleted","MD5 ab","/4","hash list"],)"
                            R"(["2026-11-21 11:59:10","cleaned","A","/1","tvfilemon"],)"
                            R"(["-","cleaned","B","/2","tvfilemon"]])"));
}

void TestReportSummary::keepsTheNewestRows()
{
    constexpr int tooMany = ReportSummary::maxRows + 5;
    ReportSummary summary({}, now());
    for (int index = 0; index < tooMany; ++index) {
        summary.add(report(QString::number(index), QStringLiteral("/x"), 0, now().addSecs(index - tooMany)));
    }
    const QJsonObject json = summary.toJson({});
    const QJsonArray rows = json[QStringLiteral("rows")].toArray();
    QCOMPARE(rows.size(), ReportSummary::maxRows);
    QCOMPARE(rows.first()[2].toString(), QString::number(tooMany - 1));
    QCOMPARE(rows.last()[2].toString(), QStringLiteral("5"));
    QVERIFY(json[QStringLiteral("cut")].toBool());
    QCOMPARE(json[QStringLiteral("counts")][QStringLiteral("cleaned")].toInt(), tooMany);
}

void TestReportSummary::showsForeignTextHarmlessly()
{
    ReportSummary summary({}, now());
    summary.add(report(QStringLiteral("a\u202eb"), FileName::toText("/d\n/\xff\x1b[2J"), 0, now()));
    const QJsonArray row = summary.toJson({})[QStringLiteral("rows")].toArray().first().toArray();
    QCOMPARE(row.at(2).toString(), QStringLiteral("a\\u202eb"));
    QCOMPARE(row.at(3).toString(), QStringLiteral("/d\\x0a/\\xff\\x1b[2J"));
    QCOMPARE(text(summary.toJson({})[QStringLiteral("folders")]), QStringLiteral(R"([["/d\\x0a",1]])"));
}

void TestReportSummary::ofNothing()
{
    const QJsonObject json = ReportSummary({}, now()).toJson(QStringLiteral("box"));
    QVERIFY(json[QStringLiteral("since")].isNull());
    QVERIFY(json[QStringLiteral("rows")].toArray().isEmpty());
    QVERIFY(!json[QStringLiteral("cut")].toBool());
}

QTEST_GUILESS_MAIN(TestReportSummary)
#include "tst_reportsummary.moc"
