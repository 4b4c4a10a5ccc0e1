#include "tvctl/commands/statuscommand.h"

#include "common/filename.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/statusview.h"
#include "tvctl/installation/localadvice.h"

#include <QDir>

#include <cerrno>
#include <chrono>

#include <unistd.h>

using std::chrono::milliseconds;

namespace
{
/// It may be busy: whoever asks for the status does not want to wait for that.
constexpr milliseconds serviceLimit(3000);
constexpr milliseconds walkLimit(2000);

void measureQuarantine(StatusView& view, const QString& path)
{
    // It is made with the first copy.
    if (::access(FileName::toBytes(path).constData(), R_OK | X_OK) != 0 && errno != ENOENT) {
        return;
    }
    const QFileInfoList copies = QDir(path).entryInfoList(QDir::Files);
    view.quarantineFiles = copies.size();
    for (const QFileInfo& copy : copies) {
        view.quarantineBytes += copy.size();
    }
}

ExitCode showStatus(Session& session)
{
    const Installation& installation = session.installation();
    StatusView view;
    ServiceConnection connection;
    view.time = QDateTime::currentDateTimeUtc();
    view.service = ServiceFacts::gather(installation, connection, serviceLimit);
    view.stores = StoreFacts::read(installation);
    view.files = signaturesOf(installation);
    view.update = UpdateStatus::read(installation.updateStatusFile());
    view.watches = WatchFacts::gather(view.service, walkLimit);
    measureQuarantine(view, installation.quarantine());
    view.verdict = judge(view.service, view.stores, view.files, view.watches, view.time);
    const LocalAdvice advice(installation);
    for (QString& warning : view.verdict.warnings) {
        warning = advice.wordedFor(warning);
    }

    Output& output = session.output();
    output.lines(view.lines(output));
    if (output.isJson()) {
        output.document(view.document());
    }
    switch (view.verdict.state) {
    case Verdict::State::Protected:
        return view.stores.hasReports() ? ExitCode::Good : ExitCode::Error;
    case Verdict::State::NotProtected:
        return ExitCode::Found;
    default:
        return ExitCode::Error;
    }
}
} // namespace

void addStatusCommand(const Command& tool)
{
    const Command command = tool.addCommand("status", "Show whether you are protected");
    command.setAction(showStatus);
}
