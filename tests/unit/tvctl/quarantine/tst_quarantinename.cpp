#include "tvctl/quarantine/quarantinename.h"

#include <QTest>

#include <ctime>

namespace
{
const QByteArray digest = "0123456789abcdef0123456789abcdef";
} // namespace

class TestQuarantineName : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void knowsCopies_data();
    void knowsCopies();
    void knowsPassingNames_data();
    void knowsPassingNames();
    void tellsTheMoments_data();
    void tellsTheMoments();
};

void TestQuarantineName::knowsCopies_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("isCopy");
    const auto row = [](const char* what, const QByteArray& name, bool isCopy) {
        QTest::newRow(what) << name << isCopy;
    };
    const QByteArray name = "2025-03-28_13-02-59_" + digest + ".tvq";
    row("usual", name, true);
    row("midnight of a leap day", "2024-02-29_00-00-00_" + digest + ".tvq", true);
    row("no leap year", "2025-02-29_00-00-00_" + digest + ".tvq", false);
    row("month 13", "2025-13-28_13-02-59_" + digest + ".tvq", false);
    row("month 0", "2025-00-28_13-02-59_" + digest + ".tvq", false);
    row("hour 24", "2025-03-28_24-00-00_" + digest + ".tvq", false);
    row("second 60", "2025-03-28_13-02-60_" + digest + ".tvq", false);
    row("capital digits", "2025-03-28_13-02-59_" + digest.toUpper() + ".tvq", false);
    row("no digit", "2025-03-28_13-02-59_" + digest.left(31) + "g.tvq", false);
    row("one digit short", "2025-03-28_13-02-59_" + digest.left(31) + ".tvq", false);
    row("one digit more", "2025-03-28_13-02-59_" + digest + "0.tvq", false);
    row("capital ending", "2025-03-28_13-02-59_" + digest + ".TVQ", false);
    row("other ending", "2025-03-28_13-02-59_" + digest + ".tvx", false);
    row("no dot", "2025-03-28_13-02-59_" + digest + "xtvq", false);
    row("other separators", "2025/03/28_13-02-59_" + digest + ".tvq", false);
    row("a sign", "2025-03-28_13-02-+9_" + digest + ".tvq", false);
    row("digit of another script", "202\xD9\xA5-03-28_13-02-9_" + digest + ".tvq", false);
    row("byte that is no UTF-8", "202\xB5-03-28_13-02-59_" + digest + ".tvq", false);
    row("line feed behind", name + "\n", false);
    row("zero byte behind", name + QByteArray(1, '\0'), false);
    row("directory in front", "/" + name, false);
    row("parent in front", "../" + name, false);
    row("passing name", name + ".1234.tvq", false);
    row("empty", "", false);
    row("this directory", ".", false);
    row("parent directory", "..", false);
}

void TestQuarantineName::knowsCopies()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, isCopy);
    const auto parsed = QuarantineName::parse(name);
    QCOMPARE(parsed.has_value(), isCopy);
    QCOMPARE(parsed ? parsed->pathDigest() : QByteArray(), isCopy ? digest : QByteArray());
}

void TestQuarantineName::knowsPassingNames_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("isPassing");
    const QByteArray name = "2025-03-28_13-02-59_" + digest + ".tvq";
    QTest::newRow("passing") << name + ".1234.tvq" << true;
    QTest::newRow("first process") << name + ".1.tvq" << true;
    QTest::newRow("copy") << name << false;
    QTest::newRow("no number") << name + "..tvq" << false;
    QTest::newRow("zero") << name + ".0.tvq" << false;
    QTest::newRow("letters") << name + ".12a.tvq" << false;
    QTest::newRow("other ending") << name + ".12.part" << false;
    QTest::newRow("more behind") << name + ".12.tvq.13.tvq" << false;
    QTest::newRow("line feed behind") << name + ".12.tvq\n" << false;
    QTest::newRow("other front") << "x" + name.mid(1) + ".12.tvq" << false;
    QTest::newRow("empty") << QByteArray() << false;
}

void TestQuarantineName::knowsPassingNames()
{
    QFETCH(QByteArray, name);
    QTEST(QuarantineName::isPassing(name), "isPassing");
}

void TestQuarantineName::tellsTheMoments_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QByteArray>("clock");
    QTest::addColumn<QVector<qint64>>("moments");
    using Moments = QVector<qint64>;
    // With rules of its own, so that no zone files are needed: UTC+1, summer time from March to October.
    const QByteArray central = "CET-1CEST,M3.5.0,M10.5.0/3";
    QTest::newRow("UTC") << QByteArray("UTC0") << QByteArray("2025-03-28_13-02-59") << Moments{1743166979};
    QTest::newRow("winter") << central << QByteArray("2025-01-15_12-00-00") << Moments{1736938800};
    QTest::newRow("summer") << central << QByteArray("2025-07-15_12-00-00") << Moments{1752573600};
    QTest::newRow("before clocks go back")
        << central << QByteArray("2025-10-26_01-59-59") << Moments{1761436799};
    QTest::newRow("hour shown twice")
        << central << QByteArray("2025-10-26_02-30-00") << Moments{1761438600, 1761442200};
    QTest::newRow("after it") << central << QByteArray("2025-10-26_03-00-00") << Moments{1761444000};
    QTest::newRow("before clocks go forward")
        << central << QByteArray("2025-03-30_01-59-59") << Moments{1743296399};
    QTest::newRow("hour left out") << central << QByteArray("2025-03-30_02-30-00") << Moments{1743298200};
    QTest::newRow("after the hour left out")
        << central << QByteArray("2025-03-30_03-00-00") << Moments{1743296400};
    QTest::newRow("half an hour, south")
        << QByteArray("LHST-10:30LHDT-11,M10.1.0,M4.1.0") << QByteArray("2025-04-06_01-45-00")
        << Moments{1743864300, 1743866100};
    QTest::newRow("west") << QByteArray("EST5EDT,M3.2.0,M11.1.0") << QByteArray("2025-11-02_01-00-00")
                          << Moments{1762059600, 1762063200};
}

void TestQuarantineName::tellsTheMoments()
{
    QFETCH(QByteArray, zone);
    QFETCH(QByteArray, clock);
    const QByteArray before = qgetenv("TZ");
    qputenv("TZ", zone);
    ::tzset();
    const auto name = QuarantineName::parse(clock + '_' + digest + ".tvq");
    const QVector<qint64> moments = name ? name->moments() : QVector<qint64>();
    before.isNull() ? qunsetenv("TZ") : qputenv("TZ", before);
    ::tzset();
    QTEST(moments, "moments");
}

QTEST_GUILESS_MAIN(TestQuarantineName)
#include "tst_quarantinename.moc"
