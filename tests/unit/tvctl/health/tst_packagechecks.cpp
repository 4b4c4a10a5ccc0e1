#include "tvctl/health/packagechecks.h"

#include <QTest>

using Result = Finding::Result;
Q_DECLARE_METATYPE(Finding::Result)

class TestPackageChecks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parsesUnits_data();
    void parsesUnits();
    void judgesUnits_data();
    void judgesUnits();
    void judgesLinks_data();
    void judgesLinks();
    void leavesOthersAlone();
    void sayThatSystemdIsSilent();
};

namespace
{
PackageFacts::Link link(const char* name, mode_t mode)
{
    PackageFacts::Link link;
    link.path = QStringLiteral("/usr/lib/Talvenor/") + QLatin1String(name);
    link.expectedTarget = QStringLiteral("/var/lib/talvenor/") + QLatin1String(name);
    link.expectedMode = mode;
    link.target = link.expectedTarget;
    link.isDirectory = true;
    link.mode = mode;
    return link;
}

/// All is well.
PackageFacts good()
{
    PackageFacts facts;
    facts.isPackage = true;
    const QString loaded = QStringLiteral("loaded");
    const QString active = QStringLiteral("active");
    const QString inactive = QStringLiteral("inactive");
    const QString enabled = QStringLiteral("enabled");
    const QString fixed = QStringLiteral("static");
    facts.units = {{QStringLiteral("tvfilemon.service"), loaded, enabled, active},
                   {QStringLiteral("tvfilemon-firewall.service"), loaded, enabled, active},
                   {QStringLiteral("tvfilemon-limits.service"), loaded, fixed, inactive},
                   {QStringLiteral("tvfilemon-update.timer"), loaded, enabled, active},
                   {QStringLiteral("tvfilemon-sweep.timer"), loaded, enabled, active},
                   {QStringLiteral("tvfilemon-full-sweep.timer"), loaded, fixed, active}};
    facts.links = {link("db", 0755), link("settings", 0700)};
    return facts;
}

void compare(const Finding& finding, Result result, const QString& seen, const QString& fix)
{
    QCOMPARE(finding.result, result);
    QVERIFY2(finding.seen.contains(seen), qPrintable(finding.seen));
    QVERIFY2(finding.fix.contains(fix), qPrintable(finding.fix));
    QCOMPARE(finding.fix.isEmpty(), result == Result::Ok);
}
} // namespace

void TestPackageChecks::parsesUnits_data()
{
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<QString>("expected");
    QTest::newRow("none") << QByteArray() << "";
    QTest::newRow("two") << QByteArray(
                                "Id=a.service\nLoadState=loaded\nActiveState=active\nUnitFileState=enabled\n"
                                "\nId=b.timer\nLoadState=not-found\nActiveState=inactive\n"
                                "UnitFileState=\n")
                         << "a.service loaded enabled active; b.timer not-found  inactive; ";
    QTest::newRow("in another order, with more")
        << QByteArray("LoadState=masked\nOther=x=y\nId=a\nUnitFileState=masked") << "a masked masked ; ";
    QTest::newRow("no unit") << QByteArray("Failed to connect to bus\n\n") << "";
}

void TestPackageChecks::parsesUnits()
{
    QFETCH(QByteArray, output);
    QString parsed;
    for (const PackageFacts::Unit& unit : PackageFacts::parseUnits(output)) {
        parsed +=
            QStringLiteral("%1 %2 %3 %4; ").arg(unit.name, unit.loadState, unit.fileState, unit.activeState);
    }
    QTEST(parsed, "expected");
}

void TestPackageChecks::judgesUnits_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("loadState");
    QTest::addColumn<QString>("fileState");
    QTest::addColumn<QString>("activeState");
    QTest::addColumn<Finding::Result>("result");
    QTest::addColumn<QString>("seen");
    QTest::addColumn<QString>("fix");
    const auto row = [](const char* name, int index, const char* states, Result result, const char* seen,
                        const char* fix) {
        const QStringList words = QString::fromLatin1(states).split(QLatin1Char(' '));
        QTest::newRow(name) << index << words[0] << words[1] << words[2] << result << seen << fix;
    };
    row("well", 0, "loaded enabled active", Result::Ok, "starts at each boot", "");
    row("the service is disabled", 0, "loaded disabled active", Result::Failed,
        "tvfilemon.service is disabled: nothing is protected", "systemctl enable --now tvfilemon.service");
    row("the service is enabled until the next boot", 0, "loaded enabled-runtime active", Result::Failed,
        "tvfilemon.service is disabled", "systemctl enable --now");
    // Another check tells that nobody answers.
    row("the service does not run", 0, "loaded enabled inactive", Result::Ok, "", "");
    row("the service is masked", 0, "masked masked inactive", Result::Failed, "tvfilemon.service is masked",
        "systemctl unmask tvfilemon.service && systemctl enable --now");
    row("the guard is missing", 1, "not-found  inactive", Result::Failed,
        "tvfilemon-firewall.service is missing: any user", "apt install --reinstall tvfilemon");
    row("the guard has failed", 1, "loaded enabled failed", Result::Failed,
        "tvfilemon-firewall.service is not active", "systemctl restart tvfilemon-firewall.service");
    row("the guard is masked", 1, "masked masked inactive", Result::Failed,
        "tvfilemon-firewall.service is masked", "systemctl start tvfilemon-firewall.service");
    row("the guard cannot be read", 1, "bad-setting enabled inactive", Result::Failed, "(bad-setting)",
        "--reinstall");
    row("the limits are masked", 2, "masked masked inactive", Result::Warning, "kernel's limits", "unmask");
    row("no updates", 3, "loaded disabled inactive", Result::Failed, "tvfilemon-update.timer is disabled",
        "enable --now tvfilemon-update.timer");
    row("updates were stopped", 3, "loaded enabled inactive", Result::Failed,
        "tvfilemon-update.timer is not active", "systemctl restart tvfilemon-update.timer");
    row("no sweeps", 4, "loaded disabled inactive", Result::Warning, "tvfilemon-sweep.timer is disabled",
        "enable --now tvfilemon-sweep.timer");
    row("no full sweeps", 5, "masked masked inactive", Result::Warning,
        "tvfilemon-full-sweep.timer is masked",
        "unmask tvfilemon-full-sweep.timer && systemctl start tvfilemon-full-sweep.timer");
    row("full sweeps were stopped", 5, "loaded static inactive", Result::Warning,
        "tvfilemon-full-sweep.timer is not active: what only new signatures find",
        "systemctl restart tvfilemon-full-sweep.timer");
}

void TestPackageChecks::judgesUnits()
{
    QFETCH(int, index);
    QFETCH(QString, loadState);
    QFETCH(QString, fileState);
    QFETCH(QString, activeState);
    QFETCH(Finding::Result, result);
    QFETCH(QString, seen);
    QFETCH(QString, fix);
    PackageFacts facts = good();
    PackageFacts::Unit& unit = facts.units[index];
    unit = {unit.name, loadState, fileState, activeState};
    compare(PackageChecks::units(facts), result, seen, fix);
    // What was not told about is as bad as what is missing.
    facts.units.removeAt(index);
    const Finding absent = PackageChecks::units(facts);
    QVERIFY(absent.result != Result::Ok);
    QVERIFY2(absent.seen.contains(QStringLiteral(" is missing")), qPrintable(absent.seen));
}

void TestPackageChecks::judgesLinks_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<bool>("isDirectory");
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("owner");
    QTest::addColumn<Finding::Result>("result");
    QTest::addColumn<QString>("seen");
    QTest::addColumn<QString>("fix");
    const QString target = QStringLiteral("/var/lib/talvenor/settings");
    QTest::newRow("well") << target << true << 0700 << 0 << Result::Ok << ""
                          << "";
    QTest::newRow("tighter") << target << true << 0500 << 0 << Result::Ok << ""
                             << "";
    QTest::newRow("a directory in its place")
        << "" << true << 0700 << 0 << Result::Failed << "is no link to /var/lib/talvenor/settings"
        << "ln -s /var/lib/talvenor/settings /usr/lib/Talvenor/settings";
    QTest::newRow("to somewhere else") << "/tmp/x" << true << 0700 << 0 << Result::Failed << "is no link to"
                                       << "move /usr/lib/Talvenor/settings away";
    QTest::newRow("into nothing") << target << false << 0 << 0 << Result::Failed << "is no directory"
                                  << "--reinstall";
    QTest::newRow("of others") << target << true << 0700 << 33 << Result::Failed << "belongs to user 33"
                               << "chown root: '/var/lib/talvenor/settings'";
    QTest::newRow("for others") << target << true << 0750 << 0 << Result::Failed
                                << "has mode 0750, wider than 0700"
                                << "chmod 0700";
}

void TestPackageChecks::judgesLinks()
{
    QFETCH(QString, target);
    QFETCH(bool, isDirectory);
    QFETCH(int, mode);
    QFETCH(int, owner);
    QFETCH(Finding::Result, result);
    QFETCH(QString, seen);
    QFETCH(QString, fix);
    PackageFacts facts = good();
    PackageFacts::Link& last = facts.links.last();
    last.target = target;
    last.isDirectory = isDirectory;
    last.mode = static_cast<mode_t>(mode);
    last.owner = static_cast<uid_t>(owner);
    compare(PackageChecks::links(facts), result, seen, fix);
}

void TestPackageChecks::leavesOthersAlone()
{
    compare(PackageChecks::units({}), Result::Ok, QStringLiteral("not installed by the Debian package"), {});
    compare(PackageChecks::links({}), Result::Ok, QStringLiteral("not installed by the Debian package"), {});
    QVERIFY(!PackageFacts::gather(QStringLiteral("/opt/a/root")).isPackage);
}

void TestPackageChecks::sayThatSystemdIsSilent()
{
    PackageFacts facts = good();
    facts.units.clear();
    compare(PackageChecks::units(facts), Result::Warning, QStringLiteral("systemd does not answer"),
            QStringLiteral("systemctl"));
}

QTEST_GUILESS_MAIN(TestPackageChecks)
#include "tst_packagechecks.moc"
