#include "tvctl/commands/detectionsexport.h"

#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/timeargument.h"
#include "tvctl/console/interruption.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/detections/detectionforms.h"
#include "tvctl/detections/detectionreader.h"
#include "tvctl/detections/hostidentity.h"
#include "tvctl/detections/newfile.h"

#include <QJsonObject>

#include <functional>
#include <memory>
#include <string>

namespace
{
using Sink = std::function<void(const QByteArray&)>;

struct Options
{
    std::string format;
    std::string since;
    std::string until;
    std::string file;
};

/// A form of the export, put together from pieces of any number of records.
class Form
{
public:
    explicit Form(const std::string& format) : m_isCsv(format == "csv"), m_isEcs(format == "ecs")
    {
    }

    QByteArray begin() const
    {
        if (m_isCsv) {
            return DetectionForms::csvHeader();
        }
        return m_isEcs ? QByteArray() : QByteArrayLiteral("{\"detections\": [");
    }

    QByteArray records(const QVector<VirusReport>& reports)
    {
        QByteArray bytes;
        for (const VirusReport& report : reports) {
            if (m_isCsv) {
                bytes += DetectionForms::csv(report);
            } else if (m_isEcs) {
                bytes += DetectionForms::line(DetectionForms::ecs(report, m_host));
            } else {
                bytes += m_isFirst ? "\n" : ",\n";
                bytes += DetectionForms::line(DetectionForms::json(report)).chopped(1);
                m_isFirst = false;
            }
        }
        return bytes;
    }

    QByteArray end() const
    {
        return m_isCsv || m_isEcs ? QByteArray() : QByteArrayLiteral("\n]}\n");
    }

private:
    const bool m_isCsv;
    const bool m_isEcs;
    const HostIdentity m_host = HostIdentity::own();
    bool m_isFirst = true;
};

qint64 writeAll(DetectionReader& reader, const std::string& format, const Sink& sink)
{
    Form form(format);
    sink(form.begin());
    qint64 count = 0;
    QVector<VirusReport> reports = reader.next();
    while (!reports.isEmpty()) {
        sink(form.records(reports));
        count += reports.size();
        reports = reader.next();
    }
    sink(form.end());
    return count;
}

ExitCode exportDetections(Session& session, const Options& options)
{
    Output& output = session.output();
    const QDateTime since = timeOf(options.since, "--since");
    const QDateTime until = timeOf(options.until, "--until");
    if (output.isJson() && options.file.empty() && options.format != "json") {
        throw ToolError(QStringLiteral("with --json, %1 needs a file of its own; add -o FILE")
                            .arg(QString::fromStdString(options.format)));
    }
    session.requireReports();
    DetectionReader reader(session.installation(), since, until);
    if (options.file.empty()) {
        writeAll(reader, options.format, [&output](const QByteArray& bytes) { output.raw(bytes); });
        return ExitCode::Good;
    }
    const QString path = pathOf(options.file);
    const Interruption interruption;
    NewFile file(path);
    const qint64 count = writeAll(reader, options.format, [&](const QByteArray& bytes) {
        file.write(bytes);
        if (interruption.isRequested()) {
            throw ToolError(QStringLiteral("interrupted; %1 is as it was").arg(path));
        }
    });
    file.publish();
    output.line(QStringLiteral("exported: %1").arg(count));
    if (output.isJson()) {
        QJsonObject document{{QStringLiteral("exported"), count}};
        JsonText::insertPath(document, QStringLiteral("file"), path);
        output.document(document);
    }
    return ExitCode::Good;
}
} // namespace

void addDetectionsExport(const Command& detections)
{
    const Command command =
        detections.addCommand("export", "Write the records for other programs, oldest first");
    auto options = std::make_shared<Options>();
    command.addOption("--format", options->format, "csv, json, or ecs: the Elastic Common Schema, by lines")
        .required()
        .oneOf({"csv", "json", "ecs"})
        .named("FORMAT");
    command.addOption("--since", options->since, "Only from this time on").named("TIME");
    command.addOption("--until", options->until, "Only before this time").named("TIME");
    command
        .addOption("-o,--output", options->file,
                   "Write this file, which only its owner may read, instead of standard output")
        .named("FILE");
    command.setAction([options](Session& session) { return exportDetections(session, *options); });
}
