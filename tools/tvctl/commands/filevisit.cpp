#include "tvctl/commands/filevisit.h"

#include "common/filename.h"
#include "tvctl/commands/shortpath.h"
#include "tvctl/scanner/handover.h"

namespace
{
QString recordedPathOf(const TreeWalker& walker)
{
    return FileName::toText(recordedPath(walker.path()));
}
} // namespace

FileVisit::FileVisit(ServiceConnection& connection, const Exclusions* exclusions, ScanReport& report)
    : m_connection(connection),
      m_scanner(connection, exclusions != nullptr ? *exclusions : noExclusions()),
      m_report(report)
{
    m_connection.setInterruption(m_interruption.descriptor());
    // Any large file takes that long; what is scanned is shown.
    m_connection.setSlowNotice({});
    if (exclusions == nullptr || !HandOver::isPossible(m_connection)) {
        m_scanner.goByPath();
        if (m_connection.state() == ServiceConnection::State::Open) {
            m_report.note(
                QStringLiteral("tvfilemon cannot be handed open files from here; they are scanned by "
                               "their paths, which others may change meanwhile"));
        }
    }
}

bool FileVisit::isInterrupted()
{
    if (!m_interruption.isRequested()) {
        return false;
    }
    m_report.stopped(QStringLiteral("interrupted"));
    return true;
}

FileVisit::Outcome FileVisit::scan(const TreeWalker& walker)
{
    using Kind = FileScanner::Result::Kind;
    const FileScanner::Result result = m_scanner.scan(walker);
    switch (result.kind) {
    case Kind::Clean:
        m_report.scanned();
        return Outcome::Done;
    case Kind::Infected:
        m_report.scanned();
        return detected(walker, result);
    case Kind::Failed:
        m_report.failed(recordedPathOf(walker), result.problem);
        return Outcome::NotDone;
    case Kind::Withheld:
        return Outcome::Withheld;
    case Kind::Gone:
        return Outcome::Done;
    default:
        return stop();
    }
}

FileVisit::Outcome FileVisit::detected(const TreeWalker& walker, const FileScanner::Result& result)
{
    using Kind = FileCleaner::Result::Kind;
    const QString path = recordedPathOf(walker);
    if (!m_cleaner) {
        m_report.detected(path, result.virusName, std::nullopt);
        return Outcome::Done;
    }
    const FileCleaner::Result cleaned = m_cleaner->clean(walker, result.scanned);
    m_report.detected(path, result.virusName, cleaned);
    if (m_listener) {
        m_listener(path, result.virusName, cleaned.kind);
    }
    if (cleaned.kind == Kind::NoService) {
        return stop();
    }
    return cleaned.kind == Kind::NotRemoved ? Outcome::NotDone : Outcome::Done;
}

FileVisit::Outcome FileVisit::stop()
{
    m_report.stopped(m_connection.problem());
    return m_connection.state() == ServiceConnection::State::Interrupted ? Outcome::Interrupted
                                                                         : Outcome::NoService;
}

const Exclusions& FileVisit::noExclusions()
{
    static const Exclusions none;
    return none;
}

void FileVisit::leaveWithheld(const TreeWalker& walker)
{
    m_report.failed(recordedPathOf(walker), QStringLiteral("another program holds it by a lease"));
}

void FileVisit::pass(const TreeWalker& walker, const QByteArray& root)
{
    const bool isRoot = walker.path() == root;
    switch (walker.kind()) {
    case TreeWalker::Kind::Unreadable:
        m_report.unreadable(recordedPathOf(walker), qt_error_string(walker.error()));
        break;
    case TreeWalker::Kind::Skipped:
        m_report.skipped();
        if (isRoot) {
            m_report.note(QStringLiteral("%1 is excluded").arg(recordedPathOf(walker)));
        }
        break;
    default:
        if (!isRoot) {
            m_report.passedOver();
        } else {
            m_report.failed(recordedPathOf(walker),
                            S_ISLNK(walker.status().st_mode)
                                ? QStringLiteral("it is a symbolic link, which is not followed")
                                : QStringLiteral("it is neither a file nor a folder"));
        }
        break;
    }
}
