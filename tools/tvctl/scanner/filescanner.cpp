#include "tvctl/scanner/filescanner.h"

#include "common/filename.h"
#include "tvctl/client/servicereply.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace
{
/// A number that other processes rarely use, see below; what is usual lets a process have 1024.
constexpr int rareDescriptor = 800;

QByteArray scanCommand()
{
    return QByteArrayLiteral("SCAN");
}
} // namespace

FileScanner::FileScanner(ServiceConnection& connection, const Exclusions& exclusions)
    : m_connection(connection),
      m_exclusions(exclusions)
{
}

FileScanner::Result FileScanner::scan(const TreeWalker& walker)
{
    const QString path = FileName::toText(walker.path());
    const Request request = makeRequest(scanCommand(), path);
    if (!request.isValid()) {
        return scanOpened(walker, path, request.problem);
    }
    Result result = ask(request);
    if (result.kind == Result::Kind::Failed && !walker.openFile().isValid() && errno == ENOENT) {
        // The monitor may just have cleaned it, or its owner removed it.
        result.kind = Result::Kind::Gone;
    }
    return result;
}

FileScanner::Result FileScanner::scanOpened(const TreeWalker& walker, const QString& path,
                                            const QString& nameProblem)
{
    if (m_exclusions.isFileExcluded(path)) {
        return {Result::Kind::Clean, {}, {}};
    }
    const UniqueFd opened = walker.openFile();
    if (!opened.isValid()) {
        const int error = errno;
        return {error == ENOENT ? Result::Kind::Gone : Result::Kind::Failed,
                {},
                QStringLiteral("%1, and it cannot be opened to hand it over: %2")
                    .arg(nameProblem, qt_error_string(error))};
    }
    // The service runs as root on this machine and follows the kernel's link to what this process has open;
    // that name can always be sent. In another process namespace the number of this process might mean
    // another one there: a rare descriptor makes it likely that the service finds nothing instead of
    // something else.
    const UniqueFd rare(::fcntl(opened.get(), F_DUPFD_CLOEXEC, rareDescriptor));
    const int descriptor = rare.isValid() ? rare.get() : opened.get();
    Result result =
        ask(makeRequest(scanCommand(), QStringLiteral("/proc/%1/fd/%2").arg(::getpid()).arg(descriptor)));
    if (result.kind == Result::Kind::Failed) {
        result.problem =
            QStringLiteral("%1, and what is handed over instead: %2").arg(nameProblem, result.problem);
    }
    return result;
}

FileScanner::Result FileScanner::ask(const Request& request)
{
    const auto reply = m_connection.ask(request);
    if (!reply) {
        return {Result::Kind::NoService, {}, {}};
    }
    const ServiceReply::Scan scan = ServiceReply::scan(*reply);
    switch (scan.result) {
    case ServiceReply::Scan::Result::Clean:
        return {Result::Kind::Clean, {}, {}};
    case ServiceReply::Scan::Result::Infected:
        return {Result::Kind::Infected, scan.virusName, {}};
    case ServiceReply::Scan::Result::Failed:
        return {Result::Kind::Failed, {}, ServiceReply::scanErrorText(scan.errorCode)};
    default:
        return {Result::Kind::Failed,
                {},
                QStringLiteral("the service answered \"%1\"").arg(QString::fromUtf8(*reply))};
    }
}
