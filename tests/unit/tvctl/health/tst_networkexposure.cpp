#include "tvctl/health/networkexposure.h"

#include <QTest>

using Verdict = FirewallView::Verdict;
Q_DECLARE_METATYPE(FirewallView::Verdict)

class TestNetworkExposure : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void judges_data();
    void judges();
    void doesNotJudgeWhatItDoesNotUnderstand_data();
    void doesNotJudgeWhatItDoesNotUnderstand();
};

namespace
{
QByteArray ruleset(const QByteArrayList& elements)
{
    QByteArray text =
        R"({"nftables": [{"metainfo": {"version": "1.0.6"}}, {"table": {"family": "inet", "name": "t"}})";
    for (const QByteArray& element : elements) {
        text += ", " + element;
    }
    return text + "]}";
}

QByteArray entrance(const QByteArray& policy, const QByteArray& family = "inet",
                    const QByteArray& hook = "input")
{
    return R"({"chain": {"family": ")" + family +
           R"(", "table": "t", "name": "in", "type": "filter", "hook": ")" + hook +
           R"(", "prio": 0, "policy": ")" + policy + R"("}})";
}

const QByteArray other = R"({"chain": {"family": "inet", "table": "t", "name": "other", "handle": 2}})";

QByteArray rule(const QByteArray& statements, const QByteArray& chain = "in",
                const QByteArray& family = "inet")
{
    return R"({"rule": {"family": ")" + family + R"(", "table": "t", "chain": ")" + chain +
           R"(", "handle": 4, "expr": [)" + statements + "]}}";
}

QByteArray port(const QByteArray& right, const QByteArray& op = "==", const QByteArray& protocol = "tcp")
{
    return R"({"match": {"op": ")" + op + R"(", "left": {"payload": {"protocol": ")" + protocol +
           R"(", "field": "dport"}}, "right": )" + right + "}}";
}

const QByteArray fromOutside =
    R"({"match": {"op": "!=", "left": {"meta": {"key": "iifname"}}, "right": "lo"}})";
const QByteArray drop = R"({"drop": null})";
const QByteArray reject = R"({"reject": {"type": "icmpx", "expr": "port-unreachable"}})";
const QByteArray accept = R"({"accept": null})";
const QByteArray jump = R"({"jump": {"target": "other"}})";
const QByteArray counter = R"({"counter": {"packets": 0, "bytes": 0}})";
} // namespace

void TestNetworkExposure::judges_data()
{
    QTest::addColumn<QByteArray>("rules");
    QTest::addColumn<Verdict>("verdict");
    const auto row = [](const char* name, const QByteArrayList& elements, Verdict verdict) {
        QTest::newRow(name) << ruleset(elements) << verdict;
    };
    row("no rules", {}, Verdict::Open);
    row("accepts by default", {entrance("accept")}, Verdict::Open);
    row("drops by default", {entrance("drop")}, Verdict::Guarded);
    row("drops what goes out", {entrance("drop", "inet", "output")}, Verdict::Open);
    row("drops IPv6", {entrance("drop", "ip6")}, Verdict::Open);
    row("drops IPv4", {entrance("drop", "ip")}, Verdict::Guarded);
    row("a rule drops it", {entrance("accept"), rule(port("8889") + "," + drop)}, Verdict::Guarded);
    row("a rule rejects it", {entrance("accept"), rule(port("8889") + "," + counter + "," + reject)},
        Verdict::Guarded);
    row("from outside", {entrance("accept"), rule(fromOutside + "," + port("8889") + "," + drop)},
        Verdict::Guarded);
    row("another port", {entrance("accept"), rule(port("8888") + "," + drop)}, Verdict::Open);
    row("UDP", {entrance("accept"), rule(port("8889", "==", "udp") + "," + drop)}, Verdict::Open);
    row("all but it", {entrance("accept"), rule(port("8889", "!=") + "," + drop)}, Verdict::Open);
    row("a range", {entrance("accept"), rule(port(R"({"range": [8000, 9000]})") + "," + drop)},
        Verdict::Guarded);
    row("a range beside", {entrance("accept"), rule(port(R"({"range": [8000, 8888]})") + "," + drop)},
        Verdict::Open);
    row("a set", {entrance("accept"), rule(port(R"({"set": [22, {"range": [8889, 8890]}]})") + "," + drop)},
        Verdict::Guarded);
    row("a set without it", {entrance("accept"), rule(port(R"({"set": [22, 80]})") + "," + drop)},
        Verdict::Open);
    row("let in", {entrance("drop"), rule(port("8889") + "," + accept)}, Verdict::Open);
    row("let in by a set", {entrance("drop"), rule(port(R"({"set": [22, 8889]})") + "," + accept)},
        Verdict::Open);
    row("maybe let in by a named set", {entrance("drop"), rule(port(R"("@open")") + "," + accept)},
        Verdict::Open);
    row("maybe refused by a named set", {entrance("accept"), rule(port(R"("@shut")") + "," + drop)},
        Verdict::Open);
    row("others let in", {entrance("drop"), rule(port("22") + "," + accept)}, Verdict::Guarded);
    row("the machine itself let in",
        {entrance("drop"),
         rule(R"({"match": {"op": "==", "left": {"meta": {"key": "iif"}}, "right": "lo"}},)" + accept)},
        Verdict::Guarded);
    row("all let in", {entrance("drop"), rule(counter + "," + accept)}, Verdict::Open);
    row("the rest refused", {entrance("accept"), rule(port("22") + "," + accept), rule(reject)},
        Verdict::Guarded);
    row("only some refused", {entrance("accept"), rule(R"({"limit": {"rate": 5, "per": "second"}},)" + drop)},
        Verdict::Open);
    row("dropped behind a jump",
        {entrance("accept"), other, rule(jump), rule(port("8889") + "," + drop, "other")}, Verdict::Guarded);
    row("let in behind a jump",
        {entrance("drop"), other, rule(jump), rule(port("8889") + "," + accept, "other")}, Verdict::Open);
    row("led to a refusal",
        {entrance("accept"), other, rule(port("8889") + "," + jump),
         rule(R"({"match": {"op": "==", "left": {"payload": {"protocol": "ip", "field": "saddr"}}, )"
              R"("right": "@addresses"}},)" +
                  accept,
              "other"),
         rule(counter + "," + drop, "other")},
        Verdict::Guarded);
    row("led to nothing", {entrance("accept"), other, rule(port("8889") + "," + jump)}, Verdict::Open);
    row("led to where there is nothing", {entrance("drop"), rule(port("22") + "," + jump)}, Verdict::Guarded);
    row("a chain that nobody calls", {entrance("accept"), other, rule(port("8889") + "," + drop, "other")},
        Verdict::Open);
    row("a circle", {entrance("accept"), other, rule(jump), rule(jump, "other")}, Verdict::Open);
    row("let in here, dropped there",
        {entrance("drop"), rule(port("8889") + "," + accept),
         R"({"chain": {"family": "ip", "table": "u", "name": "in", "hook": "input", "policy": "drop"}})"},
        Verdict::Guarded);
}

void TestNetworkExposure::judges()
{
    QFETCH(const QByteArray, rules);
    const FirewallView view = judgeRuleset(rules, 8889);
    QTEST(view.verdict, "verdict");
    QVERIFY(!view.seen.isEmpty());
}

void TestNetworkExposure::doesNotJudgeWhatItDoesNotUnderstand_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("no JSON") << QByteArray("table inet t {}");
    QTest::newRow("other JSON") << QByteArray("{}");
    QTest::newRow("cut off") << ruleset({entrance("drop")}).chopped(1);
}

void TestNetworkExposure::doesNotJudgeWhatItDoesNotUnderstand()
{
    QFETCH(const QByteArray, text);
    QCOMPARE(judgeRuleset(text, 8889).verdict, Verdict::Unknown);
}

QTEST_GUILESS_MAIN(TestNetworkExposure)
#include "tst_networkexposure.moc"
