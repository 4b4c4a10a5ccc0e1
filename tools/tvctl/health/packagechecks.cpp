#include "tvctl/health/packagechecks.h"

#include "tvctl/console/modetext.h"

namespace
{
QString noPackage()
{
    return QStringLiteral("not installed by the Debian package");
}

QString installAgain()
{
    return QStringLiteral("apt install --reinstall tvfilemon");
}

/// What is asked of a unit, and what its absence costs.
struct Demand
{
    QString name;
    bool hasToBeEnabled;
    bool hasToBeActive;
    Finding::Result otherwise;
    QString loss;
};

QVector<Demand> demands()
{
    using Result = Finding::Result;
    return {
        {QStringLiteral("tvfilemon.service"), true, false, Result::Failed,
         QStringLiteral("nothing is protected after the next boot")},
        {QStringLiteral("tvfilemon-firewall.service"), false, true, Result::Failed,
         QStringLiteral("any user may use the port of the service")},
        {QStringLiteral("tvfilemon-update.timer"), true, true, Result::Failed,
         QStringLiteral("the signatures get old")},
        {QStringLiteral("tvfilemon-limits.service"), false, false, Result::Warning,
         QStringLiteral("the kernel's limits are not raised")},
        {QStringLiteral("tvfilemon-sweep.timer"), true, true, Result::Warning,
         QStringLiteral("what real-time protection missed is not found")},
        {QStringLiteral("tvfilemon-full-sweep.timer"), false, true, Result::Warning,
         QStringLiteral("what only new signatures find is not found")},
    };
}

PackageFacts::Unit unitOf(const PackageFacts& facts, const QString& name)
{
    for (const PackageFacts::Unit& unit : facts.units) {
        if (unit.name == name) {
            return unit;
        }
    }
    return {name, QStringLiteral("not-found"), {}, {}};
}

/// What is wrong with the unit and what to do about it; an empty text for nothing.
QString problemOf(const PackageFacts::Unit& unit, const Demand& demand, QString& fix)
{
    if (unit.loadState == QLatin1String("masked")) {
        fix = QStringLiteral("systemctl unmask %1 && systemctl %2 %1")
                  .arg(demand.name,
                       demand.hasToBeEnabled ? QStringLiteral("enable --now") : QStringLiteral("start"));
        return QStringLiteral("%1 is masked").arg(demand.name);
    }
    if (unit.loadState != QLatin1String("loaded")) {
        fix = installAgain();
        return unit.loadState == QLatin1String("not-found")
                   ? QStringLiteral("%1 is missing").arg(demand.name)
                   : QStringLiteral("%1 cannot be used (%2)").arg(demand.name, unit.loadState);
    }
    if (demand.hasToBeEnabled && unit.fileState != QLatin1String("enabled")) {
        fix = QStringLiteral("systemctl enable --now %1").arg(demand.name);
        return QStringLiteral("%1 is disabled").arg(demand.name);
    }
    if (demand.hasToBeActive && unit.activeState != QLatin1String("active")) {
        fix = QStringLiteral("systemctl restart %1; systemctl status %1 tells why").arg(demand.name);
        return QStringLiteral("%1 is not active").arg(demand.name);
    }
    return {};
}

} // namespace

Finding PackageChecks::units(const PackageFacts& facts)
{
    const QString name = QStringLiteral("units");
    if (!facts.isPackage) {
        return Finding::ok(name, noPackage());
    }
    if (facts.units.isEmpty()) {
        return Finding::warning(name, QStringLiteral("not checked: systemd does not answer"),
                                QStringLiteral("systemctl is-system-running tells more"));
    }
    // The weightiest first: one of the failures goes before one of the warnings.
    const QVector<Demand> all = demands();
    for (const Demand& demand : all) {
        QString fix;
        const QString problem = problemOf(unitOf(facts, demand.name), demand, fix);
        if (!problem.isEmpty()) {
            return {name, demand.otherwise, QStringLiteral("%1: %2").arg(problem, demand.loss), fix};
        }
    }
    return Finding::ok(name,
                       QStringLiteral("the service starts at each boot, with its guard and its timers"));
}

Finding PackageChecks::links(const PackageFacts& facts)
{
    const QString name = QStringLiteral("links");
    if (!facts.isPackage) {
        return Finding::ok(name, noPackage());
    }
    for (const PackageFacts::Link& link : facts.links) {
        if (link.target != link.expectedTarget) {
            return Finding::failed(
                name, QStringLiteral("%1 is no link to %2").arg(link.path, link.expectedTarget),
                QStringLiteral(
                    "systemctl stop tvfilemon, move %1 away, ln -s %2 %1, systemctl start tvfilemon")
                    .arg(link.path, link.expectedTarget));
        }
        if (!link.isDirectory) {
            return Finding::failed(name, QStringLiteral("%1 is no directory").arg(link.target),
                                   installAgain());
        }
        if (link.owner != 0) {
            return Finding::failed(name,
                                   QStringLiteral("%1 belongs to user %2").arg(link.target).arg(link.owner),
                                   QStringLiteral("chown root: '%1'").arg(link.target));
        }
        if ((link.mode & ~link.expectedMode) != 0) {
            return Finding::failed(
                name,
                QStringLiteral("%1 has mode %2, wider than %3")
                    .arg(link.target, modeText(link.mode), modeText(link.expectedMode)),
                QStringLiteral("chmod %1 '%2'").arg(modeText(link.expectedMode), link.target));
        }
    }
    return Finding::ok(name, QStringLiteral("what changes lies in /var/lib/talvenor and /var/log/talvenor"));
}
