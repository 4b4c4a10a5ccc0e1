#include "tvctl/commands/detectionsreport.h"

#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/timeargument.h"
#include "tvctl/console/interruption.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/detections/detectionreader.h"
#include "tvctl/detections/hostidentity.h"
#include "tvctl/detections/iocreports.h"
#include "tvctl/detections/newfile.h"
#include "tvctl/detections/reportpage.h"
#include "tvctl/detections/reportsummary.h"

#include <QJsonObject>

#include <memory>
#include <string>

namespace
{
struct Options
{
    std::string since;
    std::string file;
};

/// The page goes away again then.
void failIfRequested(const Interruption& interruption, const QString& path)
{
    if (interruption.isRequested()) {
        throw ToolError(QStringLiteral("interrupted; %1 is as it was").arg(path));
    }
}

ExitCode report(Session& session, const Options& options)
{
    const QDateTime since = timeOf(options.since, "--since");
    session.requireReports();
    const QString path = pathOf(options.file);
    const Interruption interruption;
    NewFile file(path);
    ReportSummary summary(since, QDateTime::currentDateTime());
    DetectionReader reader(session.installation(), since);
    for (auto page = reader.next(); !page.isEmpty(); page = reader.next()) {
        failIfRequested(interruption, path);
        for (const VirusReport& detection : qAsConst(page)) {
            summary.add(detection);
        }
    }
    Output& output = session.output();
    const IocReports::Outcome outcome =
        IocReports::read(session.installation().reports(), since,
                         [&summary](const IocReportRecord& record) { summary.add(record); });
    summary.setUnreadable(outcome.unreadableLines + outcome.unreadableFiles);
    if (outcome.unreadableFiles > 0) {
        output.warning(QStringLiteral("%1 of the reports in %2 cannot be read and are left out")
                           .arg(QString::number(outcome.unreadableFiles), session.installation().reports()));
    }
    failIfRequested(interruption, path);
    file.write(ReportPage::build(summary.toJson(HostIdentity::own().hostname)));
    file.publish();

    output.line(QStringLiteral("detections: %1, hash list matches: %2")
                    .arg(summary.detections())
                    .arg(summary.hashMatches()));
    if (output.isJson()) {
        QJsonObject document{{QStringLiteral("detections"), summary.detections()},
                             {QStringLiteral("hash_matches"), summary.hashMatches()}};
        JsonText::insertPath(document, QStringLiteral("file"), path);
        output.document(document);
    }
    return ExitCode::Good;
}
} // namespace

void addDetectionsReport(const Command& detections)
{
    const Command command =
        detections.addCommand("report", "Make one HTML page of the detections, which needs no network");
    auto options = std::make_shared<Options>();
    command.addOption("--since", options->since, "Only from this time on").named("TIME");
    command.addOption("-o,--output", options->file, "The page, which only its owner may read")
        .required()
        .named("FILE.html");
    command.setAction([options](Session& session) { return report(session, *options); });
}
