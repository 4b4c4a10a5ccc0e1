#include "tvctl/commands/detectionslist.h"

#include "common/filename.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/timeargument.h"
#include "tvctl/console/columns.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/timetext.h"
#include "tvctl/detections/detectionfilter.h"
#include "tvctl/detections/detectionforms.h"
#include "tvctl/detections/detectionreader.h"
#include "tvctl/detections/detectionstatus.h"

#include <QJsonArray>
#include <QJsonObject>

#include <memory>
#include <string>

namespace
{
constexpr int usualLimit = 50;
/// These are held in memory at once. Whoever wants more exports them.
constexpr int highestLimit = 10000;

struct Options
{
    std::string since;
    int limit = usualLimit;
    std::string virus;
    std::string path;
};

void printText(Output& output, const QVector<VirusReport>& reports)
{
    if (reports.isEmpty()) {
        output.line(QStringLiteral("no detections"));
        return;
    }
    QVector<QStringList> rows = {
        {QStringLiteral("TIME"), QStringLiteral("RESULT"), QStringLiteral("NAME"), QStringLiteral("PATH")}};
    for (const VirusReport& report : reports) {
        rows.append({TimeText::format(report.getDateTime()), detectionStatusWord(detectionStatusOf(report)),
                     printable(report.getVirusName()), printable(report.getFilePath())});
    }
    const QStringList lines = alignColumns(rows);
    output.line(output.coloured(lines.constFirst(), Output::Colour::Bold));
    for (int index = 0; index < reports.size(); ++index) {
        const bool isFailed = detectionStatusOf(reports.at(index)) == DetectionStatus::Failed;
        const QString& line = lines.at(index + 1);
        output.line(isFailed ? output.coloured(line, Output::Colour::Bad) : line);
    }
}

void printJson(Output& output, const QVector<VirusReport>& reports, bool hasMore)
{
    QJsonArray array;
    for (const VirusReport& report : reports) {
        array.append(DetectionForms::json(report));
    }
    output.document({{QStringLiteral("detections"), array}, {QStringLiteral("more"), hasMore}});
}

ExitCode list(Session& session, const Options& options)
{
    const QDateTime since = timeOf(options.since, "--since");
    DetectionFilter filter;
    filter.setVirus(FileName::toText(QByteArray::fromStdString(options.virus)));
    if (!options.path.empty()) {
        filter.setPath(pathOf(options.path));
    }
    session.requireReports();

    const DetectionReader reader(session.installation(), since);
    QVector<VirusReport> reports = reader.newest(options.limit + 1, filter);
    const bool hasMore = reports.size() > options.limit;
    if (hasMore) {
        reports.removeFirst();
    }
    Output& output = session.output();
    if (output.isJson()) {
        printJson(output, reports, hasMore);
        return ExitCode::Good;
    }
    printText(output, reports);
    if (hasMore) {
        output.note(QStringLiteral("there are older ones; see --limit, or tvctl detections export"));
    }
    return ExitCode::Good;
}
} // namespace

void addDetectionsList(const Command& detections)
{
    const Command command = detections.addCommand("list", "Show the newest detections, the last one last");
    auto options = std::make_shared<Options>();
    command.addOption("--since", options->since, "Only from this time on: 24h, 7d, 2026-11-21 10:00 ...")
        .named("TIME");
    command.addOption("--limit", options->limit, "How many at most")
        .between(1, highestLimit)
        .showingDefault()
        .named("N");
    command
        .addOption("--virus", options->virus,
                   "Only names that this is part of, or that it matches with * ? []; case does not count")
        .named("NAME");
    command.addOption("--path", options->path, "Only this file, or files below this directory").named("PATH");
    command.setAction([options](Session& session) { return list(session, *options); });
}
