#include "tvctl/commands/sweepcommand.h"

#include "common/common.h"
#include "common/filename.h"
#include "platform/tvcore/virusconfig.h"
#include "platform/tvcore/virusreport.h"
#include "tvctl/commands/commandcapabilities.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/filevisit.h"
#include "tvctl/commands/scanreport.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/shortpath.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/timetext.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/health/watchneed.h"
#include "tvctl/sweep/background.h"
#include "tvctl/sweep/sweep.h"

#include <QDateTime>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

namespace
{
struct SweepOptions
{
    std::vector<std::string> paths;
    bool isFull = false;
};

/// Those that are named; otherwise what the service watches.
QVector<QByteArray> rootsOf(const SweepOptions& options)
{
    if (!options.paths.empty()) {
        return bytePathsOf(options.paths);
    }
    QVector<QByteArray> roots;
    for (const QString& root : WatchNeed::watchedRoots()) {
        roots += FileName::toBytes(root);
    }
    return roots;
}

int cleanStatusOf(FileCleaner::Result::Kind kind)
{
    switch (kind) {
    case FileCleaner::Result::Kind::Removed:
        return 0;
    case FileCleaner::Result::Kind::ReportOnly:
        return -1;
    default:
        return 1;
    }
}

/// The directory of the state, held for this sweep alone.
StateDirectory lockedState(const Session& session)
{
    StateDirectory directory(FileName::toBytes(session.installation().settings()));
    if (!directory.isValid() || !directory.lock("tvsweep.lock")) {
        const int error = errno;
        throw ToolError(error == EWOULDBLOCK
                            ? QStringLiteral("another sweep is running; try again when it has ended")
                            : QStringLiteral("cannot keep the state of the sweep in %1: %2; run it as root")
                                  .arg(session.installation().settings(), qt_error_string(error)));
    }
    return directory;
}

/// How long the kernel lets a program keep its lease of a file that somebody else wants to open, and some
/// more.
int leaseBreakMs()
{
    constexpr int usual = 45;
    constexpr int most = 120;
    constexpr int msecsPerSecond = 1000;
    QFile file(QStringLiteral("/proc/sys/fs/lease-break-time"));
    bool isNumber = file.open(QIODevice::ReadOnly);
    const int seconds = isNumber ? file.readAll().trimmed().toInt(&isNumber) : usual;
    return (std::clamp(isNumber ? seconds : usual, 0, most) + 1) * msecsPerSecond;
}

/// Stores detections the way the monitor does.
class DetectionRecords
{
public:
    void add(const QString& path, const QString& virusName, FileCleaner::Result::Kind cleaned)
    {
        VirusReport report;
        report.setFileName(FileName::toDisplay(path.section(QLatin1Char('/'), -1)));
        report.setFilePath(FileName::toDisplay(path));
        report.setVirusName(virusName);
        report.setCleanStatus(cleanStatusOf(cleaned));
        report.setModuleName(QStringLiteral("tvsweep"));
        report.setModuleVersion(Common::getBuildDateTime());
        report.setDateTime(QDateTime::currentDateTime());
        // What could not be stored goes with the next one that can.
        m_waiting = m_config.addVirusReport(report) ? 0 : m_waiting + 1;
    }

    int waiting() const
    {
        return m_waiting;
    }

private:
    VirusConfig m_config;
    int m_waiting = 0;
};

/// One run of the command.
class SweepRun : private Sweep::Visitor
{
public:
    SweepRun(Session& session, const SweepOptions& options, const QVector<QByteArray>& roots)
        : m_output(session.output()),
          m_installation(session.installation()),
          m_isDefault(options.paths.empty()),
          m_state(lockedState(session)),
          m_exclusions(Exclusions::read()),
          m_report(session.output()),
          m_visit(session.service(), &m_exclusions, m_report),
          m_roots(roots),
          m_sweep(m_state, m_roots, options.isFull, skipRule())
    {
        m_visit.setCleaner(
            FileCleaner(session.service(), session.installation(), FileCleaner::isReportOnlyStored()));
        m_visit.setListener(
            [this](const QString& path, const QString& virusName, FileCleaner::Result::Kind cleaned) {
                m_records.add(path, virusName, cleaned);
            });
    }

    ExitCode run()
    {
        announce();
        const bool isFinished = m_sweep.run(*this);
        if (!isFinished) {
            m_report.note(QStringLiteral("the next sweep goes on from here"));
        }
        if (m_records.waiting() > 0) {
            m_report.problem(QStringLiteral("%1 detections could not be stored as records; see tvctl doctor")
                                 .arg(m_records.waiting()));
        }
        const auto since = m_sweep.since();
        QJsonObject more = {
            {QStringLiteral("full"), m_sweep.isFull()},
            {QStringLiteral("since"),
             JsonText::time(since ? QDateTime::fromMSecsSinceEpoch(*since) : QDateTime())},
            {QStringLiteral("resumed"), !m_sweep.resumedAt().isEmpty()},
            {QStringLiteral("finished"), isFinished},
        };
        return m_report.finish(more);
    }

private:
    TreeWalker::SkipRule skipRule() const
    {
        // What the service writes itself; in the quarantine is nothing but what is infected.
        const QByteArray own[] = {FileName::toBytes(m_installation.quarantine()),
                                  FileName::toBytes(m_installation.logs()),
                                  FileName::toBytes(m_installation.settings())};
        return [this, quarantine = own[0], logs = own[1], settings = own[2]](const QByteArray& path) {
            return path == quarantine || path == logs || path == settings ||
                   m_exclusions.isDirectoryExcluded(path);
        };
    }

    void announce()
    {
        if (m_sweep.isStateDamaged()) {
            m_report.note(QStringLiteral("the state of the last sweep is damaged; everything is scanned"));
        }
        const auto since = m_sweep.since();
        m_output.line(since ? QStringLiteral("scanning what changed since %1")
                                  .arg(TimeText::format(QDateTime::fromMSecsSinceEpoch(*since)))
                            : QStringLiteral("scanning everything"));
        if (!m_sweep.resumedAt().isEmpty()) {
            m_output.line(QStringLiteral("going on at %1")
                              .arg(printable(FileName::toText(shortPath(m_sweep.resumedAt())))));
        }
    }

    bool isStopped(const TreeWalker& walker) override
    {
        if (m_visit.isInterrupted()) {
            return true;
        }
        if (walker.kind() == TreeWalker::Kind::File) {
            m_report.lookedAt();
        }
        m_report.proceed(walker.path(), 0);
        return false;
    }

    Verdict changed(const TreeWalker& walker) override
    {
        switch (m_visit.scan(walker)) {
        case FileVisit::Outcome::Done:
            return m_visit.isByPath() ? Verdict::Again : Verdict::Done;
        case FileVisit::Outcome::NotDone:
            return Verdict::Again;
        case FileVisit::Outcome::Withheld:
            return Verdict::Withheld;
        case FileVisit::Outcome::Interrupted:
            return Verdict::Interrupted;
        default:
            return Verdict::Stop;
        }
    }

    void passed(const TreeWalker& walker) override
    {
        // Not every machine has all that the service would watch.
        if (!m_isDefault || walker.kind() != TreeWalker::Kind::Unreadable || walker.error() != ENOENT) {
            m_visit.pass(walker, m_roots.contains(walker.path()) ? walker.path() : QByteArray());
        }
    }

    void leftWithheld(const TreeWalker& walker) override
    {
        m_visit.leaveWithheld(walker);
    }

    int patienceMs() const override
    {
        return leaseBreakMs();
    }

    void stumbled(const TreeWalker& walker) override
    {
        m_report.failed(
            FileName::toText(recordedPath(walker.path())),
            QStringLiteral("the last two sweeps ended while it was scanned; it is left to the next"));
    }

    void notKept(const QString& problem) override
    {
        m_report.problem(
            QStringLiteral(
                "the state of this sweep cannot be kept in %1: %2; the next one does not know of it")
                .arg(m_installation.settings(), problem));
    }

    Output& m_output;
    const Installation m_installation;
    const bool m_isDefault;
    const StateDirectory m_state;
    const Exclusions m_exclusions;
    ScanReport m_report;
    FileVisit m_visit;
    DetectionRecords m_records;
    const QVector<QByteArray> m_roots;
    Sweep m_sweep;
};

ExitCode sweep(Session& session, const SweepOptions& options)
{
    const QVector<QByteArray> roots = rootsOf(options);
    requireDroppedCapabilities();
    session.requireSettings();
    session.requireReports();
    goToBackground();
    return SweepRun(session, options, roots).run();
}
} // namespace

void addSweepCommand(const Command& tool)
{
    const Command command = tool.addCommand("sweep", "Scan what changed since the last sweep, and clean it");
    command.setFooter(
        "Without PATH it sweeps what the service watches, /home and /media. Each set of PATHs "
        "has a last sweep of\n"
        "its own; the first one scans everything. A sweep that was interrupted goes on where it "
        "was. Infected\n"
        "files are treated as scan.action says, and recorded. New signatures may find something "
        "in files that\n"
        "did not change: use --full.");
    auto options = std::make_shared<SweepOptions>();
    command.addOption("PATH", options->paths, "Files and folders");
    command.addFlag("--full", options->isFull, "Scan everything");
    command.setAction([options](Session& session) { return sweep(session, *options); });
}
