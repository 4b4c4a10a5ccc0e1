#include "tvctl/health/networkexposure.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QSet>
#include <QVector>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace
{
constexpr int nftTimeoutMs = 3000;

QString key(const char* name)
{
    return QLatin1String(name);
}

bool includesPort(const QJsonValue& value, int port)
{
    if (value.isDouble()) {
        return value.toInt() == port;
    }
    if (value.isArray()) {
        for (const auto& element : value.toArray()) {
            if (includesPort(element, port)) {
                return true;
            }
        }
        return false;
    }
    if (!value.isObject()) {
        return false;
    }
    const QJsonObject object = value.toObject();
    if (object.contains(key("range"))) {
        const QJsonArray range = object.value(key("range")).toArray();
        return range.at(0).toInt() <= port && port <= range.at(1).toInt();
    }
    return includesPort(object.value(key("set")), port);
}

/// What a rule does and to what, as far as it is of interest here.
struct Rule
{
    bool isAbout(int port) const
    {
        return asksPort && !isNegated && includesPort(ports, port);
    }
    bool mayBeAbout(int port) const
    {
        // Of a named set nobody has asked what is in it.
        return asksPort && (ports.isString() || includesPort(ports, port) != isNegated);
    }

    bool refuses = false;
    bool accepts = false;
    /// It holds for everything.
    bool isForAll = true;
    bool asksPort = false;
    bool isNegated = false;
    QJsonValue ports;
    QString target;
};

Rule ruleOf(const QJsonArray& statements)
{
    Rule rule;
    for (const QJsonValue& value : statements) {
        const QJsonObject statement = value.toObject();
        if (statement.contains(key("match"))) {
            rule.isForAll = false;
            const QJsonObject match = statement.value(key("match")).toObject();
            const QJsonObject payload = match.value(key("left")).toObject().value(key("payload")).toObject();
            if (payload.value(key("field")).toString() == key("dport") &&
                payload.value(key("protocol")).toString() != key("udp")) {
                rule.asksPort = true;
                rule.isNegated = match.value(key("op")).toString() == key("!=");
                rule.ports = match.value(key("right"));
            }
        }
        rule.refuses = rule.refuses || statement.contains(key("drop")) || statement.contains(key("reject"));
        rule.accepts = rule.accepts || statement.contains(key("accept"));
        // A limit holds for a part of what comes.
        rule.isForAll = rule.isForAll && !statement.contains(key("limit"));
        for (const char* way : {"jump", "goto"}) {
            if (statement.contains(key(way))) {
                rule.target = statement.value(key(way)).toObject().value(key("target")).toString();
            }
        }
    }
    return rule;
}

struct Chain
{
    bool isEntrance = false;
    bool dropsByDefault = false;
    QVector<Rule> rules;
};

/// By "family table name".
using Chains = QMap<QString, Chain>;

QString placeOf(const QJsonObject& object, const QString& chain)
{
    return object.value(key("family")).toString() + QLatin1Char(' ') + object.value(key("table")).toString() +
           QLatin1Char(' ') + chain;
}

Chains chainsOf(const QJsonArray& elements)
{
    Chains chains;
    for (const QJsonValue& element : elements) {
        const QJsonObject chain = element.toObject().value(key("chain")).toObject();
        const QString family = chain.value(key("family")).toString();
        if (family == key("ip") || family == key("inet")) {
            Chain& added = chains[placeOf(chain, chain.value(key("name")).toString())];
            added.isEntrance = chain.value(key("hook")).toString() == key("input");
            added.dropsByDefault = chain.value(key("policy")).toString() == key("drop");
        }
        const QJsonObject rule = element.toObject().value(key("rule")).toObject();
        const auto place = chains.find(placeOf(rule, rule.value(key("chain")).toString()));
        if (place != chains.end()) {
            place->rules += ruleOf(rule.value(key("expr")).toArray());
        }
    }
    return chains;
}

/// What stands in front of the name in the place of each chain of the same table.
QString tableOf(const QString& chain)
{
    return chain.section(QLatin1Char(' '), 0, 1) + QLatin1Char(' ');
}

/// The rules that what comes in at `entrance` may meet.
QVector<Rule> rulesBehind(const Chains& chains, const QString& entrance)
{
    const QString table = tableOf(entrance);
    QVector<Rule> rules;
    QSet<QString> seen = {entrance};
    QStringList waiting = {entrance};
    while (!waiting.isEmpty()) {
        for (const Rule& rule : chains.value(waiting.takeFirst()).rules) {
            rules += rule;
            const QString next = table + rule.target;
            if (!rule.target.isEmpty() && !seen.contains(next)) {
                seen.insert(next);
                waiting += next;
            }
        }
    }
    return rules;
}

bool refusesTheRest(const Chain& entrance)
{
    for (const Rule& rule : entrance.rules) {
        if (rule.isForAll && (rule.accepts || rule.refuses)) {
            return rule.refuses;
        }
    }
    return entrance.dropsByDefault;
}
} // namespace

FirewallView judgeRuleset(const QByteArray& ruleset, quint16 port)
{
    using Verdict = FirewallView::Verdict;
    const QJsonDocument document = QJsonDocument::fromJson(ruleset);
    if (!document.object().contains(key("nftables"))) {
        return {Verdict::Unknown, QStringLiteral("what nft says cannot be understood")};
    }
    const Chains chains = chainsOf(document.object().value(key("nftables")).toArray());
    bool isRefusing = false;
    for (auto chain = chains.cbegin(); chain != chains.cend(); ++chain) {
        if (!chain->isEntrance) {
            continue;
        }
        bool isLetIn = false;
        for (const Rule& rule : rulesBehind(chains, chain.key())) {
            const bool leadsToRefusal = chains.contains(tableOf(chain.key()) + rule.target) &&
                                        refusesTheRest(chains.value(tableOf(chain.key()) + rule.target));
            if (rule.isAbout(port) && (rule.refuses || leadsToRefusal)) {
                return {Verdict::Guarded, QStringLiteral("a firewall rule refuses port %1").arg(port)};
            }
            isLetIn = isLetIn || (rule.mayBeAbout(port) && rule.accepts);
        }
        isRefusing = isRefusing || (refusesTheRest(*chain) && !isLetIn);
    }
    return isRefusing
               ? FirewallView{Verdict::Guarded, QStringLiteral("the firewall refuses what no rule lets in")}
               : FirewallView{Verdict::Open, QStringLiteral("no firewall rule keeps others away")};
}

FirewallView lookAtFirewall(quint16 port)
{
    using Verdict = FirewallView::Verdict;
    // By its whole path: as root, nothing is started that somebody may have put into the way.
    const QString program = QStringLiteral("/usr/sbin/nft");
    if (!QFile::exists(program)) {
        QFile legacy(QStringLiteral("/proc/net/ip_tables_names"));
        const bool hasOthers = legacy.open(QIODevice::ReadOnly) && !legacy.readAll().trimmed().isEmpty();
        return hasOthers ? FirewallView{Verdict::Unknown, QStringLiteral("there are iptables rules, which it "
                                                                         "does not read")}
                         : FirewallView{Verdict::Open, QStringLiteral("no firewall: nft is not installed")};
    }
    QProcess nft;
    // Without the contents of named sets, which may be long and hold addresses, mostly.
    nft.start(program, {QStringLiteral("-j"), QStringLiteral("-t"), QStringLiteral("list"),
                        QStringLiteral("ruleset")});
    if (!nft.waitForFinished(nftTimeoutMs) || nft.exitStatus() != QProcess::NormalExit ||
        nft.exitCode() != 0) {
        nft.kill();
        nft.waitForFinished(nftTimeoutMs);
        return {Verdict::Unknown, QStringLiteral("nft does not tell the firewall's rules")};
    }
    return judgeRuleset(nft.readAllStandardOutput(), port);
}

QStringList reachableInterfaces()
{
    QStringList interfaces;
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) {
        return interfaces;
    }
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET ||
            (entry->ifa_flags & IFF_UP) == 0 || (entry->ifa_flags & IFF_LOOPBACK) != 0) {
            continue;
        }
        char text[INET_ADDRSTRLEN] = {};
        const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
        ::inet_ntop(AF_INET, &address->sin_addr, text, sizeof(text));
        interfaces += QStringLiteral("%1 (%2)").arg(QString::fromUtf8(entry->ifa_name), QLatin1String(text));
    }
    ::freeifaddrs(first);
    return interfaces;
}
