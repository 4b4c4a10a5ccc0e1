#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QtGlobal>

/// Whether a firewall keeps others away from a port, as far as one can tell from its rules.
struct FirewallView
{
    enum class Verdict
    {
        /// A rule refuses the port, or everything that no rule lets in is refused.
        Guarded,
        Open,
        /// The rules cannot be read.
        Unknown
    };

    Verdict verdict = Verdict::Unknown;
    /// What was seen, for people.
    QString seen;
};

/// Judges `ruleset`, what `nft -j list ruleset` prints, for TCP `port`. Follows jumps from the chains that
/// see what comes in. A rule that refuses the port guards it whatever else the rule asks; one that lets it in
/// opens it whatever else it asks. Pure.
FirewallView judgeRuleset(const QByteArray& ruleset, quint16 port);

/// The same for the rules of this machine; asks nft, for three seconds at most.
FirewallView lookAtFirewall(quint16 port);

/// The interfaces that others may reach this machine by: "eth0 (192.0.2.1)".
QStringList reachableInterfaces();
