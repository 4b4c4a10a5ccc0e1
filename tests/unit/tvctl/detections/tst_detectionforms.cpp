#include "tvctl/detections/detectionforms.h"

#include "common/filename.h"
#include "tvctl/detections/detectionstatus.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTimeZone>
#include <QtTest>

namespace
{
VirusReport sample(int status = 0)
{
    VirusReport report;
    report.setFilePath(QStringLiteral("/home/u/a b"));
    report.setFileName(QStringLiteral("a b"));
    report.setVirusName(QStringLiteral("Test.Name-1"));
    report.setCleanStatus(status);
    report.setModuleName(QStringLiteral("tvfilemon"));
    report.setModuleVersion(QStringLiteral("2.0"));
    report.setDateTime(QDateTime(QDate(2026, 11, 21), QTime(12, 0, 0, 7), QTimeZone("Asia/Tokyo")));
    return report;
}

QJsonValue at(QJsonValue value, const QString& path)
{
    const QStringList keys = path.split(QLatin1Char('.'));
    for (const QString& key : keys) {
        value = value[key];
    }
    return value;
}
} // namespace

class TestDetectionForms : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void status_data();
    void status();
    void json();
    void jsonOfOddNames();
    void ecs();
    void ecsOfAFileAtTheTop();
    void ecsFitsIntoALineOfTheJournal_data();
    void ecsFitsIntoALineOfTheJournal();
    void csv();
    void csvKeepsAnyField_data();
    void csvKeepsAnyField();
    void csvKeepsTheBytesOfAPath();
    void lines();
};

void TestDetectionForms::status_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("0") << 0 << "cleaned"
                       << "success";
    QTest::newRow("-1") << -1 << "reported"
                        << "";
    QTest::newRow("-2") << -2 << "allowed"
                        << "";
    QTest::newRow("1") << 1 << "failed"
                       << "failure";
    QTest::newRow("-3") << -3 << "failed"
                        << "failure";
}

void TestDetectionForms::status()
{
    QFETCH(int, status);
    QFETCH(QString, word);
    const QJsonObject json = DetectionForms::json(sample(status));
    QCOMPARE(json.value(QStringLiteral("status")).toString(), word);
    QCOMPARE(json.value(QStringLiteral("clean_status")).toInt(), status);
    const QJsonObject ecs = DetectionForms::ecs(sample(status), {});
    QCOMPARE(at(ecs, QStringLiteral("event.action")).toString(), word);
    QTEST(at(ecs, QStringLiteral("event.outcome")).toString(), "outcome");
    const bool isDeletion =
        at(ecs, QStringLiteral("event.type")).toArray().contains(QStringLiteral("deletion"));
    QCOMPARE(isDeletion, status == 0);
}

void TestDetectionForms::json()
{
    QCOMPARE(DetectionForms::line(DetectionForms::json(sample())),
             QByteArray("{\"clean_status\":0,\"event_id\":\"0-1795230000007\",\"file_name\":\"a b\",\"id\":0,"
                        "\"module\":\"tvfilemon\",\"module_version\":\"2.0\",\"path\":\"/home/u/a b\","
                        "\"status\":\"cleaned\",\"time\":\"2026-11-21T03:00:00.007Z\","
                        "\"virus\":\"Test.Name-1\"}\n"));
    VirusReport undated = sample();
    undated.setDateTime({});
    QVERIFY(DetectionForms::json(undated).value(QStringLiteral("time")).isNull());
}

void TestDetectionForms::jsonOfOddNames()
{
    VirusReport report = sample();
    report.setFilePath(FileName::toText("/h/\xff"));
    report.setFileName(FileName::toText("\xff"));
    const QJsonObject json = DetectionForms::json(report);
    QCOMPARE(json.value(QStringLiteral("path")).toString(), QStringLiteral("/h/\\xff"));
    QCOMPARE(QByteArray::fromBase64(json.value(QStringLiteral("path_base64")).toString().toLatin1()),
             QByteArray("/h/\xff"));
    QCOMPARE(json.value(QStringLiteral("file_name")).toString(), QStringLiteral("\\xff"));
    QVERIFY(json.contains(QStringLiteral("file_name_base64")));
    const QJsonObject ecs = DetectionForms::ecs(report, {});
    QCOMPARE(at(ecs, QStringLiteral("file.path")).toString(), QStringLiteral("/h/\\xff"));
    QCOMPARE(at(ecs, QStringLiteral("tvfilemon.path_base64")), json.value(QStringLiteral("path_base64")));
}

void TestDetectionForms::ecs()
{
    const QJsonObject ecs = DetectionForms::ecs(sample(), {QStringLiteral("box"), QStringLiteral("ab12")});
    const QPair<const char*, const char*> expected[] = {
        {"@timestamp", "2026-11-21T03:00:00.007Z"},
        {"ecs.version", "8.11.0"},
        {"event.id", "0-1795230000007"},
        {"event.kind", "alert"},
        {"event.module", "tvfilemon"},
        {"event.dataset", "tvfilemon.detections"},
        {"event.provider", "tvfilemon"},
        {"file.path", "/home/u/a b"},
        {"file.name", "a b"},
        {"file.directory", "/home/u"},
        {"rule.name", "Test.Name-1"},
        {"threat.indicator.name", "Test.Name-1"},
        {"threat.indicator.type", "file"},
        {"host.hostname", "box"},
        {"host.id", "ab12"},
        {"observer.product", "tvfilemon"},
        {"observer.version", "2.0"},
        {"message", "Test.Name-1 in /home/u/a b: cleaned"},
    };
    for (const auto& [path, value] : expected) {
        QCOMPARE(at(ecs, QString::fromLatin1(path)).toString(), QString::fromLatin1(value));
    }
    QVERIFY(at(ecs, QStringLiteral("event.category")).toArray().contains(QStringLiteral("malware")));
    QVERIFY(DetectionForms::ecs(sample(), {}).value(QStringLiteral("host")).toObject().isEmpty());
}

void TestDetectionForms::ecsOfAFileAtTheTop()
{
    VirusReport report = sample();
    report.setFilePath(QStringLiteral("/x"));
    QCOMPARE(at(DetectionForms::ecs(report, {}), QStringLiteral("file.directory")).toString(),
             QStringLiteral("/"));
    report.setFilePath(QString());
    QVERIFY(at(DetectionForms::ecs(report, {}), QStringLiteral("file.directory")).isUndefined());
}

void TestDetectionForms::ecsFitsIntoALineOfTheJournal_data()
{
    QTest::addColumn<QByteArray>("unit");
    QTest::addColumn<int>("count");
    QTest::newRow("invalid bytes") << QByteArray("\xff") << 4000;
    QTest::newRow("invalid bytes, too long to be named") << QByteArray("\xff") << 40000;
    QTest::newRow("control characters") << QByteArray("\x01") << 4000;
    QTest::newRow("backslashes") << QByteArray("\\") << 40000;
    QTest::newRow("four bytes each") << QByteArray("\xf0\x9f\x98\x80") << 20000;
    QTest::newRow("invisible") << QByteArray("\xe2\x80\xae") << 20000;
}

void TestDetectionForms::ecsFitsIntoALineOfTheJournal()
{
    QFETCH(QByteArray, unit);
    QFETCH(int, count);
    constexpr int longestLine = 48 * 1024;
    VirusReport report = sample();
    report.setFilePath(FileName::toText("/home/begin/" + unit.repeated(count) + "/end"));
    report.setFileName(FileName::toText(unit.repeated(255 / unit.size())));
    report.setVirusName(FileName::toText(unit.repeated(count)));
    const QByteArray line = DetectionForms::line(DetectionForms::ecs(report, {}));
    QVERIFY2(line.size() < longestLine, QByteArray::number(line.size()));
    const QJsonValue path = at(QJsonDocument::fromJson(line).object(), QStringLiteral("file.path"));
    QVERIFY(path.toString().startsWith(QStringLiteral("/home/begin/")));
    QVERIFY(path.toString().endsWith(QStringLiteral("/end")));
    QVERIFY(path.toString().isValidUtf16());
}

void TestDetectionForms::csv()
{
    QCOMPARE(
        DetectionForms::csvHeader(),
        QByteArray("id,event_id,time,status,virus,path,path_base64,file_name,module,module_version\r\n"));
    QCOMPARE(DetectionForms::csv(sample(-1)),
             QByteArray("0,0-1795230000007,2026-11-21T03:00:00.007Z,reported,Test.Name-1,/home/u/a b,,a b,"
                        "tvfilemon,2.0\r\n"));
}

void TestDetectionForms::csvKeepsAnyField_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("field");
    QTest::newRow("comma") << QByteArray("a,b") << QByteArray("\"a,b\"");
    QTest::newRow("quote") << QByteArray("a\"b") << QByteArray("\"a\"\"b\"");
    QTest::newRow("line feed") << QByteArray("a\nb") << QByteArray("a\\x0ab");
    QTest::newRow("formula") << QByteArray("=1+1") << QByteArray("'=1+1");
    QTest::newRow("plus") << QByteArray("+1") << QByteArray("'+1");
    QTest::newRow("minus") << QByteArray("-1") << QByteArray("'-1");
    QTest::newRow("at") << QByteArray("@x") << QByteArray("'@x");
    QTest::newRow("tab") << QByteArray("\t=1") << QByteArray("\\x09=1");
    QTest::newRow("carriage return") << QByteArray("\r=1") << QByteArray("\\x0d=1");
    QTest::newRow("blank") << QByteArray(" =1") << QByteArray("' =1");
    QTest::newRow("quotation mark") << QByteArray("\"=1") << QByteArray("\"'\"\"=1\"");
    QTest::newRow("wide") << QByteArray("\uFF1D1") << QByteArray("'\uFF1D1");
    QTest::newRow("behind a semicolon") << QByteArray("a;=1;-2; +3") << QByteArray("a;'=1;'-2;' +3");
    QTest::newRow("quoted behind a semicolon") << QByteArray("a;\"@b") << QByteArray("\"a;'\"\"@b\"");
    QTest::newRow("behind a tab") << QByteArray("a\t=1") << QByteArray("a\\x09=1");
    QTest::newRow("semicolon") << QByteArray("a;b=1;") << QByteArray("a;b=1;");
    QTest::newRow("escape") << QByteArray("\x1b[2J") << QByteArray("\\x1b[2J");
    QTest::newRow("second control set") << QByteArray("\u009b2J") << QByteArray("\\x9b2J");
    QTest::newRow("turns around") << QByteArray("a\u202egpj") << QByteArray("a\\u202egpj");
    QTest::newRow("quoted formula") << QByteArray("=A(\"x\")") << QByteArray("\"'=A(\"\"x\"\")\"");
    QTest::newRow("in the middle") << QByteArray("a=1") << QByteArray("a=1");
    QTest::newRow("UTF-8") << QByteArray("\xc3\xa4") << QByteArray("\xc3\xa4");
    QTest::newRow("no UTF-8") << QByteArray("\xff") << QByteArray("\\xff");
}

void TestDetectionForms::csvKeepsAnyField()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, field);
    VirusReport report;
    report.setFileName(FileName::toText(name));
    QCOMPARE(DetectionForms::csv(report), "0,0-0,,cleaned,,,," + field + ",,\r\n");
}

void TestDetectionForms::csvKeepsTheBytesOfAPath()
{
    VirusReport report;
    report.setFilePath(QStringLiteral("/a\n\u202e"));
    QCOMPARE(DetectionForms::csv(report),
             "0,0-0,,cleaned,,/a\\x0a\\u202e," + QByteArray("/a\n\u202e").toBase64() + ",,,\r\n");
    report.setFilePath(QStringLiteral("/a;=1"));
    QCOMPARE(DetectionForms::csv(report),
             "0,0-0,,cleaned,,/a;'=1," + QByteArray("/a;=1").toBase64() + ",,,\r\n");
}

void TestDetectionForms::lines()
{
    VirusReport report = sample();
    report.setFilePath(QStringLiteral("/two\nlines\x1b[2J"));
    const QByteArray line = DetectionForms::line(DetectionForms::json(report));
    QCOMPARE(line.count('\n'), 1);
    QVERIFY(!line.contains('\x1b'));
    QCOMPARE(QJsonDocument::fromJson(line)[QStringLiteral("path")].toString(), report.getFilePath());
}

QTEST_GUILESS_MAIN(TestDetectionForms)
#include "tst_detectionforms.moc"
