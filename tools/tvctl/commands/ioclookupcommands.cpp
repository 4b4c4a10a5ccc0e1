#include "tvctl/commands/ioclookupcommands.h"

#include "common/filename.h"
#include "digest/filedigests.h"
#include "platform/tvcore/iocscanconfig.h"
#include "tvctl/client/servicereply.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/hashpages.h"
#include "tvctl/commands/listedreport.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/interruption.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/files/treewalker.h"
#include "tvctl/installation/storeaccess.h"

#include <QSet>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{
/// To allow a file is 0, to rename it 1, and to delete it 2.
constexpr int lastKnownAction = 2;

/// False when everything ends.
using FileAction = std::function<bool(const TreeWalker& walker, const QString& path)>;

void reportObstacle(const TreeWalker& walker, const QByteArray& root, ListedReport& report)
{
    const QString path = FileName::toText(walker.path());
    if (walker.kind() == TreeWalker::Kind::Unreadable) {
        report.failed(path, qt_error_string(walker.error()));
    } else if (walker.kind() == TreeWalker::Kind::Other && walker.path() == root) {
        report.failed(path, S_ISLNK(walker.status().st_mode)
                                ? QStringLiteral("it is a symbolic link, which is not followed")
                                : QStringLiteral("it is neither a file nor a folder"));
    }
}

void visitFiles(const QStringList& paths, const Interruption& interruption, ListedReport& report,
                const FileAction& visit)
{
    for (const QString& rootPath : paths) {
        const QByteArray root = FileName::toBytes(rootPath);
        TreeWalker walker(root);
        while (walker.next()) {
            if (interruption.isRequested()) {
                report.stopped(QStringLiteral("interrupted"));
                return;
            }
            const QString path = FileName::toText(walker.path());
            report.proceed(path);
            if (walker.kind() != TreeWalker::Kind::File) {
                reportObstacle(walker, root, report);
            } else if (!visit(walker, path)) {
                return;
            }
        }
    }
}

/// A service that does not look into its lists, or does not know what to do with a listed file, calls every
/// file clean.
void requireAnswers(Session& session)
{
    try {
        session.requireSettings();
    } catch (const ToolError& error) {
        session.output().warning(QStringLiteral("whether hashes are looked up at all is unknown: ") +
                                 error.message());
        return;
    }
    const IOCScanSettings settings = IOCScanConfig().getScanSettings();
    StoreAccess::confirmSettings(session.installation());
    if (!settings.getEnable()) {
        throw ToolError(QStringLiteral("the service does not look into its lists and would call everything "
                                       "clean; turn it on: tvctl config set ioc.enabled on"));
    }
    if (settings.getAction() < 0 || settings.getAction() > lastKnownAction) {
        throw ToolError(QStringLiteral("ioc.action is %1, of which the service knows nothing: it would call "
                                       "listed files clean; set another: tvctl config set ioc.action allow")
                            .arg(settings.getAction()));
    }
}

struct ActionWords
{
    QString word;
    QString text;
};

ActionWords wordsFor(ServiceReply::IocScan::Result result)
{
    using Result = ServiceReply::IocScan::Result;
    switch (result) {
    case Result::Allowed:
        return {QStringLiteral("allowed"), QStringLiteral("allowed: it was left alone")};
    case Result::Renamed:
        return {QStringLiteral("renamed"), QStringLiteral("renamed: .IOCOFF was appended to its name")};
    case Result::Deleted:
        return {QStringLiteral("deleted"), QStringLiteral("deleted")};
    default:
        return {QStringLiteral("failed"), QStringLiteral("it could not be renamed or deleted as configured")};
    }
}

/// False when the service is gone.
bool askAbout(ServiceConnection& service, const QString& path, ListedReport& report)
{
    using Result = ServiceReply::IocScan::Result;
    const Request request = makeRequest(QByteArrayLiteral("SCANIOC"), path);
    if (!request.isValid()) {
        // Handing the open file over instead would have the service act on a name that is not the file's.
        report.failed(path, request.problem);
        return true;
    }
    const auto bytes = service.ask(request);
    if (!bytes) {
        report.stopped(service.problem());
        return false;
    }
    const ServiceReply::IocScan reply = ServiceReply::iocScan(*bytes);
    if (reply.result == Result::Unknown) {
        report.failed(path, QStringLiteral("the service answered \"%1\"").arg(QString::fromUtf8(*bytes)));
        return true;
    }
    report.lookedUp();
    if (reply.result != Result::Clean) {
        const ActionWords words = wordsFor(reply.result);
        report.listed(path, reply.hashType.toLower(), reply.hash, words.word, words.text);
    }
    return true;
}

ExitCode scanByService(Session& session, const QStringList& paths)
{
    requireAnswers(session);
    ServiceConnection& service = session.service();
    const Interruption interruption;
    service.setInterruption(interruption.descriptor());
    ListedReport report(session.output());
    visitFiles(paths, interruption, report, [&](const TreeWalker& /*walker*/, const QString& path) {
        return askAbout(service, path, report);
    });
    return report.finish();
}

/// The lists as the service looks into them: one after the other, by the exact text.
class LoadedLists
{
public:
    LoadedLists()
    {
        for (const auto type : HashPages::types()) {
            QSet<QString>& list = m_lists.at(type);
            HashPages::forEach(type, [&list](const QStringList& page) {
                for (const QString& hash : page) {
                    list.insert(hash);
                }
            });
        }
    }

    /// Tells `report` when one of `hashes`, one of each type, is listed.
    void lookUp(const QString& path, const QVector<QString>& hashes, ListedReport& report) const
    {
        for (const auto type : HashPages::types()) {
            if (m_lists.at(type).contains(hashes.at(type))) {
                report.listed(path, HashPages::nameOf(type), hashes.at(type), QStringLiteral("none"),
                              QStringLiteral("listed"));
                return;
            }
        }
    }

private:
    std::array<QSet<QString>, 3> m_lists;
};

ExitCode testHere(Session& session, const QStringList& paths)
{
    session.requireSettings();
    const LoadedLists lists;
    const Interruption interruption;
    ListedReport report(session.output());
    visitFiles(paths, interruption, report, [&](const TreeWalker& walker, const QString& path) {
        const UniqueFd file = walker.openFile();
        if (!file.isValid()) {
            report.failed(path, qt_error_string(errno));
            return true;
        }
        const FileDigests digests =
            digestsOfFile("/proc/self/fd/" + QByteArray::number(file.get()),
                          {QCryptographicHash::Md5, QCryptographicHash::Sha1, QCryptographicHash::Sha256});
        if (digests.hex.contains(QString())) {
            report.failed(path, QStringLiteral("it cannot be read"));
            return true;
        }
        report.lookedUp();
        lists.lookUp(path, digests.hex, report);
        return true;
    });
    return report.finish();
}

void addCommand(const Command& ioc, const char* name, const char* description,
                ExitCode (*run)(Session&, const QStringList&))
{
    const Command command = ioc.addCommand(name, description);
    auto paths = std::make_shared<std::vector<std::string>>();
    command.addOption("PATH", *paths, "Files, and folders with all that is in them").required();
    command.setAction([paths, run](Session& session) { return run(session, pathsOf(*paths)); });
}
} // namespace

void addIocLookupCommands(const Command& ioc)
{
    addCommand(ioc, "scan", "Have the service look files up, and do to listed ones what is configured",
               scanByService);
    addCommand(ioc, "test", "Look files up without the service, and touch nothing", testHere);
}
