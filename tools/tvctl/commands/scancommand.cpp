#include "tvctl/commands/scancommand.h"

#include "tvctl/commands/commandcapabilities.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/filevisit.h"
#include "tvctl/commands/scanreport.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/files/filecounter.h"
#include "tvctl/files/treewalker.h"
#include "tvctl/scanner/exclusions.h"
#include "tvctl/scanner/filecleaner.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace
{
struct ScanOptions
{
    std::vector<std::string> paths;
    bool isCleaning = false;
};

/// What the settings say, as far as they can be read.
struct KnownSettings
{
    std::optional<Exclusions> exclusions;
    std::optional<bool> isReportOnly;
};

KnownSettings readSettings(Session& session)
{
    try {
        session.requireSettings();
        return {Exclusions::read(), FileCleaner::isReportOnlyStored()};
    } catch (const ToolError& error) {
        session.output().note(QStringLiteral("no folder is left out: ") + error.message());
        return {};
    }
}

/// One run of the command.
class ScanRun
{
public:
    ScanRun(Session& session, const QVector<QByteArray>& roots, bool isCleaning)
        : m_connection(session.service()),
          m_settings(readSettings(session)),
          m_report(session.output()),
          m_visit(m_connection, m_settings.exclusions ? &*m_settings.exclusions : nullptr, m_report),
          m_roots(roots)
    {
        if (isCleaning) {
            m_visit.setCleaner(FileCleaner(m_connection, session.installation(), m_settings.isReportOnly));
        }
        if (session.output().showsProgress()) {
            m_counter = std::make_unique<FileCounter>(m_roots, skipRule());
        }
    }

    ExitCode run()
    {
        for (const QByteArray& root : m_roots) {
            if (!scanBelow(root)) {
                break;
            }
        }
        m_counter.reset();
        return m_report.finish();
    }

private:
    TreeWalker::SkipRule skipRule() const
    {
        return [this](const QByteArray& path) {
            return m_settings.exclusions && m_settings.exclusions->isDirectoryExcluded(path);
        };
    }

    /// False when everything ends.
    bool scanBelow(const QByteArray& root)
    {
        TreeWalker walker(root, skipRule());
        while (walker.next()) {
            if (m_visit.isInterrupted()) {
                return false;
            }
            m_report.proceed(walker.path(), m_counter ? m_counter->total() : 0);
            if (walker.kind() == TreeWalker::Kind::File) {
                const FileVisit::Outcome outcome = m_visit.scan(walker);
                if (outcome == FileVisit::Outcome::NoService || outcome == FileVisit::Outcome::Interrupted) {
                    return false;
                }
                if (outcome == FileVisit::Outcome::Withheld) {
                    m_visit.leaveWithheld(walker);
                }
            } else if (walker.kind() != TreeWalker::Kind::Directory) {
                m_visit.pass(walker, root);
            }
        }
        return true;
    }

    ServiceConnection& m_connection;
    const KnownSettings m_settings;
    ScanReport m_report;
    FileVisit m_visit;
    const QVector<QByteArray> m_roots;
    std::unique_ptr<FileCounter> m_counter;
};
} // namespace

void addScanCommand(const Command& tool)
{
    const Command command = tool.addCommand("scan", "Have files and all files in folders scanned");
    command.setFooter("Symbolic links are not followed, and only regular files are scanned. Folders in the "
                      "list of excluded\n"
                      "directories are skipped, by their whole path. Files in the list of excluded files are "
                      "not looked into by\n"
                      "the service, and count as clean.");
    auto options = std::make_shared<ScanOptions>();
    command.addOption("PATH", options->paths, "Files and folders").required();
    command.addFlag("--clean", options->isCleaning,
                    "Have infected files put into quarantine and removed, if the settings allow it");
    command.setAction([options](Session& session) {
        requireDroppedCapabilities();
        return ScanRun(session, bytePathsOf(options->paths), options->isCleaning).run();
    });
}
