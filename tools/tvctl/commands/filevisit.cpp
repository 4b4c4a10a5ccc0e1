#include "tvctl/commands/filevisit.h"

#include "common/filename.h"

FileVisit::FileVisit(ServiceConnection& connection, const Exclusions& exclusions, ScanReport& report)
    : m_connection(connection),
      m_scanner(connection, exclusions),
      m_report(report)
{
    m_connection.setInterruption(m_interruption.descriptor());
    // Any large file takes that long; what is scanned is shown.
    m_connection.setSlowNotice({});
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
    const QString path = FileName::toText(walker.path());
    const FileScanner::Result result = m_scanner.scan(walker);
    switch (result.kind) {
    case Kind::Clean:
        m_report.scanned();
        return Outcome::Done;
    case Kind::Infected:
        m_report.scanned();
        return detected(path, result.virusName);
    case Kind::Failed:
        m_report.failed(path, result.problem);
        return Outcome::NotDone;
    case Kind::Gone:
        return Outcome::Done;
    default:
        m_report.stopped(m_connection.problem());
        return Outcome::NoService;
    }
}

FileVisit::Outcome FileVisit::detected(const QString& path, const QString& virusName)
{
    using Kind = FileCleaner::Result::Kind;
    if (!m_cleaner) {
        m_report.detected(path, virusName, std::nullopt);
        return Outcome::Done;
    }
    const FileCleaner::Result cleaned = m_cleaner->clean(path);
    m_report.detected(path, virusName, cleaned);
    if (m_listener) {
        m_listener(path, virusName, cleaned.kind);
    }
    if (cleaned.kind == Kind::NoService) {
        m_report.stopped(m_connection.problem());
        return Outcome::NoService;
    }
    return cleaned.kind == Kind::NotRemoved ? Outcome::NotDone : Outcome::Done;
}

void FileVisit::pass(const TreeWalker& walker, const QByteArray& root)
{
    const QString path = FileName::toText(walker.path());
    const bool isRoot = walker.path() == root;
    switch (walker.kind()) {
    case TreeWalker::Kind::Unreadable:
        m_report.unreadable(path, qt_error_string(walker.error()));
        break;
    case TreeWalker::Kind::Skipped:
        m_report.skipped();
        if (isRoot) {
            m_report.note(QStringLiteral("%1 is excluded").arg(path));
        }
        break;
    default:
        if (!isRoot) {
            m_report.passedOver();
        } else {
            m_report.failed(path, S_ISLNK(walker.status().st_mode)
                                      ? QStringLiteral("it is a symbolic link, which is not followed")
                                      : QStringLiteral("it is neither a file nor a folder"));
        }
        break;
    }
}
