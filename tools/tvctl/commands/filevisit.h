#pragma once

#include "tvctl/commands/scanreport.h"
#include "tvctl/console/interruption.h"
#include "tvctl/files/treewalker.h"
#include "tvctl/scanner/exclusions.h"
#include "tvctl/scanner/filecleaner.h"
#include "tvctl/scanner/filescanner.h"

#include <QString>

#include <functional>
#include <optional>

/// What `scan` and `sweep` do with each thing that they come by, told in a report.
class FileVisit
{
public:
    /// All have to live as long; `connection` is open. `exclusions` are null when they are not known. Finds
    /// out how files can be handed to the service, and tells when that is not as safe as it should be.
    FileVisit(ServiceConnection& connection, const Exclusions* exclusions, ScanReport& report);

    /// Infected files are removed as well.
    void setCleaner(const FileCleaner& cleaner)
    {
        m_cleaner.emplace(cleaner);
    }
    /// Whom to tell of each infected file.
    using Listener =
        std::function<void(const QString& path, const QString& virusName, FileCleaner::Result::Kind)>;
    void setListener(Listener listener)
    {
        m_listener = std::move(listener);
    }

    /// It may be that another file was scanned than the one that is there: somebody may have had its path
    /// lead elsewhere.
    bool isByPath() const
    {
        return m_scanner.isByPath();
    }

    /// Somebody wants to end, which is told.
    bool isInterrupted();

    enum class Outcome
    {
        Done,
        /// It was not scanned, or is infected and could not be removed.
        NotDone,
        /// Somebody holds it by a lease; nothing is told of that yet.
        Withheld,
        /// The service is gone, which is told.
        NoService,
        /// Somebody did not want to wait for the service any longer, which is told.
        Interrupted
    };
    /// Scans the File at which `walker` stands.
    Outcome scan(const TreeWalker& walker);

    /// Tells that the File at which `walker` stands was Withheld and is not scanned any more.
    void leaveWithheld(const TreeWalker& walker);

    /// Tells of what `walker` stands at, and is no File and no Directory. `root` is the one that was asked
    /// for.
    void pass(const TreeWalker& walker, const QByteArray& root);

private:
    Outcome detected(const TreeWalker& walker, const FileScanner::Result& result);
    Outcome stop();

    static const Exclusions& noExclusions();

    ServiceConnection& m_connection;
    FileScanner m_scanner;
    ScanReport& m_report;
    const Interruption m_interruption;
    std::optional<FileCleaner> m_cleaner;
    Listener m_listener;
};
