#include "tvctl/commands/scancommand.h"

#include "common/filename.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/scanreport.h"
#include "tvctl/console/interruption.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/files/filecounter.h"
#include "tvctl/files/treewalker.h"
#include "tvctl/scanner/exclusions.h"
#include "tvctl/scanner/filecleaner.h"
#include "tvctl/scanner/filescanner.h"

#include <CLI/CLI.hpp>

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
    Exclusions exclusions;
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
    ScanRun(Session& session, const ScanOptions& options)
        : m_connection(session.service()),
          m_settings(readSettings(session)),
          m_scanner(m_connection, m_settings.exclusions),
          m_report(session.output())
    {
        m_connection.setInterruption(m_interruption.descriptor());
        // Any large file takes that long; what is scanned is shown.
        m_connection.setSlowNotice({});
        if (options.isCleaning) {
            m_cleaner.emplace(m_connection, session.installation(), m_settings.isReportOnly);
        }
        for (const QString& path : pathsOf(options.paths)) {
            m_roots += FileName::toBytes(path);
        }
        if (session.output().showsProgress()) {
            m_counter = std::make_unique<FileCounter>(m_roots, skipRule());
        }
    }

    ExitCode run()
    {
        for (const QByteArray& root : qAsConst(m_roots)) {
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
            return m_settings.exclusions.isDirectoryExcluded(path);
        };
    }

    /// False when everything ends.
    bool scanBelow(const QByteArray& root)
    {
        TreeWalker walker(root, skipRule());
        while (walker.next()) {
            if (m_interruption.isRequested()) {
                return stop(QStringLiteral("interrupted"));
            }
            const QString path = FileName::toText(walker.path());
            m_report.proceed(path, m_counter ? m_counter->total() : 0);
            switch (walker.kind()) {
            case TreeWalker::Kind::File:
                if (!scanFile(walker, path)) {
                    return stop(m_connection.problem());
                }
                break;
            case TreeWalker::Kind::Unreadable:
                m_report.unreadable(path, qt_error_string(walker.error()));
                break;
            case TreeWalker::Kind::Skipped:
                m_report.skipped();
                if (walker.path() == root) {
                    m_report.note(QStringLiteral("%1 is excluded").arg(path));
                }
                break;
            case TreeWalker::Kind::Other:
                passOver(walker, path, root);
                break;
            case TreeWalker::Kind::Directory:
                break;
            }
        }
        return true;
    }

    bool stop(const QString& reason)
    {
        m_report.stopped(reason);
        return false;
    }

    /// False when the service is no longer there.
    bool scanFile(const TreeWalker& walker, const QString& path)
    {
        using Kind = FileScanner::Result::Kind;
        const FileScanner::Result result = m_scanner.scan(walker);
        switch (result.kind) {
        case Kind::Clean:
            m_report.scanned();
            return true;
        case Kind::Infected:
            m_report.scanned();
            return detected(path, result.virusName);
        case Kind::Failed:
            m_report.failed(path, result.problem);
            return true;
        case Kind::Gone:
            return true;
        default:
            return false;
        }
    }

    bool detected(const QString& path, const QString& virusName)
    {
        std::optional<FileCleaner::Result> cleaned;
        if (m_cleaner) {
            cleaned = m_cleaner->clean(path);
        }
        m_report.detected(path, virusName, cleaned);
        return !cleaned || cleaned->kind != FileCleaner::Result::Kind::NoService;
    }

    void passOver(const TreeWalker& walker, const QString& path, const QByteArray& root)
    {
        if (walker.path() != root) {
            m_report.passedOver();
            return;
        }
        m_report.failed(path, S_ISLNK(walker.status().st_mode)
                                  ? QStringLiteral("it is a symbolic link, which is not followed")
                                  : QStringLiteral("it is neither a file nor a folder"));
    }

    ServiceConnection& m_connection;
    const KnownSettings m_settings;
    FileScanner m_scanner;
    std::optional<FileCleaner> m_cleaner;
    const Interruption m_interruption;
    ScanReport m_report;
    QVector<QByteArray> m_roots;
    std::unique_ptr<FileCounter> m_counter;
};
} // namespace

void addScanCommand(CLI::App& tool, Action& chosen)
{
    CLI::App* command = tool.add_subcommand("scan", "Have files and all files in folders scanned");
    command->footer("Symbolic links are not followed, and only regular files are scanned. Folders in the "
                    "list of excluded\n"
                    "directories are skipped, by their whole path. Files in the list of excluded files are "
                    "not looked into by\n"
                    "the service, and count as clean.");
    auto options = std::make_shared<ScanOptions>();
    command->add_option("PATH", options->paths, "Files and folders")->required();
    command->add_flag("--clean", options->isCleaning,
                      "Have infected files put into quarantine and removed, if the settings allow it");
    command->callback([options, &chosen] {
        chosen = [options](Session& session) {
            return ScanRun(session, *options).run();
        };
    });
}
