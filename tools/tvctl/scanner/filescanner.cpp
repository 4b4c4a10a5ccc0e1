#include "tvctl/scanner/filescanner.h"

#include "common/filename.h"
#include "tvctl/client/servicereply.h"
#include "tvctl/files/filesystems.h"
#include "tvctl/scanner/handover.h"

#include <cerrno>

namespace
{
QByteArray scanCommand()
{
    return QByteArrayLiteral("SCAN");
}

bool isGone(const TreeWalker& walker)
{
    return !walker.openFile().isValid() && errno == ENOENT;
}

FileScanner::Result whyNotOpened(int error)
{
    FileScanner::Result result;
    if (error == ENOENT) {
        result.kind = FileScanner::Result::Kind::Gone;
    } else if (error == EWOULDBLOCK) {
        result.kind = FileScanner::Result::Kind::Withheld;
    } else {
        result.problem =
            QStringLiteral("it cannot be opened to hand it over: %1").arg(qt_error_string(error));
    }
    return result;
}
} // namespace

FileScanner::FileScanner(ServiceConnection& connection, const Exclusions& exclusions)
    : m_connection(connection),
      m_exclusions(exclusions)
{
}

FileScanner::Result FileScanner::scan(const TreeWalker& walker)
{
    Result result;
    if (m_isByPath) {
        const Request request = makeRequest(scanCommand(), FileName::toText(walker.path()));
        result = request.isValid() ? scanPath(walker, request) : scanOpened(walker);
        result.scanned.reset();
        if (!request.isValid() && result.kind == Result::Kind::Failed) {
            result.problem = QStringLiteral("%1, and %2").arg(request.problem, result.problem);
        }
    } else {
        result = scanOpened(walker);
    }
    return result;
}

FileScanner::Result FileScanner::scanPath(const TreeWalker& walker, const Request& request)
{
    Result result = ask(request);
    if (result.kind == Result::Kind::Failed && isGone(walker)) {
        // The monitor may just have cleaned it, or its owner removed it.
        result.kind = Result::Kind::Gone;
    }
    return result;
}

FileScanner::Result FileScanner::scanOpened(const TreeWalker& walker)
{
    Result result;
    if (m_exclusions.isFileExcluded(walker.path())) {
        result.kind = Result::Kind::Clean;
        return result;
    }
    const UniqueFd opened = walker.openFile();
    struct stat status = {};
    if (!opened.isValid() || ::fstat(opened.get(), &status) != 0) {
        return whyNotOpened(errno);
    }
    const auto known = m_links.find(status);
    if (known) {
        result.kind = known->isEmpty() ? Result::Kind::Clean : Result::Kind::Infected;
        result.virusName = *known;
    } else {
        result =
            scanPath(walker, makeRequest(scanCommand(), FileName::toText(HandOver(opened.get()).path())));
    }
    result.scanned = status;
    const bool isScanned = result.kind == Result::Kind::Clean || result.kind == Result::Kind::Infected;
    if (isScanned && !known && FileSystems::keepsChangeTimes(walker.fileSystem())) {
        m_links.add(status, result.virusName);
    }
    return result;
}

FileScanner::Result FileScanner::ask(const Request& request)
{
    const auto reply = m_connection.ask(request);
    if (!reply) {
        return {Result::Kind::NoService, {}, {}, {}};
    }
    const ServiceReply::Scan scan = ServiceReply::scan(*reply);
    switch (scan.result) {
    case ServiceReply::Scan::Result::Clean:
        return {Result::Kind::Clean, {}, {}, {}};
    case ServiceReply::Scan::Result::Infected:
        return {Result::Kind::Infected, scan.virusName, {}, {}};
    case ServiceReply::Scan::Result::Failed:
        return {Result::Kind::Failed, {}, ServiceReply::scanErrorText(scan.errorCode), {}};
    default:
        return {Result::Kind::Failed,
                {},
                QStringLiteral("the service answered \"%1\"").arg(QString::fromUtf8(*reply)),
                {}};
    }
}
