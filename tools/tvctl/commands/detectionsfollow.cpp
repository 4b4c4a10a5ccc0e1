#include "tvctl/commands/detectionsfollow.h"

#include "common/filename.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/timeargument.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/detections/detectioncursor.h"
#include "tvctl/detections/detectionfollower.h"
#include "tvctl/detections/detectionforms.h"
#include "tvctl/detections/detectionreader.h"
#include "tvctl/detections/hostidentity.h"
#include "tvctl/detections/streamoutput.h"

#include <memory>
#include <optional>
#include <string>

namespace
{
/// A record has to be out within a second; a look costs some ten microseconds.
constexpr int pollIntervalMs = 250;

struct Options
{
    std::string format = "json";
    std::string since;
    std::string afterId;
    std::string cursor;
};

class Stream
{
public:
    /// `cursor` is null, or keeps how far it has come.
    Stream(Session& session, bool isEcs, DetectionCursor* cursor)
        : m_session(session),
          m_isEcs(isEcs),
          m_cursor(cursor)
    {
    }

    /// False when the command has to end.
    bool write(const QVector<VirusReport>& reports)
    {
        for (const VirusReport& report : reports) {
            const QJsonObject object =
                m_isEcs ? DetectionForms::ecs(report, m_host) : DetectionForms::json(report);
            if (!m_output.write(DetectionForms::line(object))) {
                return false;
            }
            // Behind the line: what ends this in between has the line come twice, and not be missing.
            if (m_cursor != nullptr) {
                m_cursor->moveTo(DetectionId(report));
            }
        }
        return true;
    }

    void follow(const DetectionId& after)
    {
        DetectionFollower follower(after);
        bool goesOn = true;
        while (goesOn) {
            const QVector<VirusReport> reports = follower.next();
            const QStringList notices = follower.takeNotices();
            for (const QString& notice : notices) {
                m_session.output().warning(notice);
            }
            goesOn = reports.isEmpty() ? m_output.wait(pollIntervalMs) : write(reports);
        }
    }

private:
    Session& m_session;
    const bool m_isEcs;
    DetectionCursor* const m_cursor;
    const HostIdentity m_host = HostIdentity::own();
    StreamOutput m_output;
};

/// What is stored now is old news unless somebody asks for it.
DetectionId newestOf(const Session& session)
{
    const QVector<VirusReport> newest = DetectionReader(session.installation(), {}).newest(1);
    return newest.isEmpty() ? DetectionId() : DetectionId(newest.constFirst());
}

DetectionId idOf(const std::string& argument)
{
    const QString text = FileName::toText(QByteArray::fromStdString(argument));
    const auto id = DetectionId::parse(text);
    if (!id) {
        throw ToolError(
            QStringLiteral("--after-id takes no \"%1\"; give the event_id of a line that came").arg(text));
    }
    return *id;
}

ExitCode follow(Session& session, const Options& options)
{
    const QDateTime since = timeOf(options.since, "--since");
    DetectionId after;
    if (!options.afterId.empty()) {
        after = idOf(options.afterId);
    }
    session.requireReports();
    std::optional<DetectionCursor> cursor;
    if (!options.cursor.empty()) {
        cursor.emplace(FileName::toText(QByteArray::fromStdString(options.cursor)));
        after = cursor->last();
    }

    Stream stream(session, options.format == "ecs", cursor ? &*cursor : nullptr);
    if (options.afterId.empty() && !cursor) {
        after = newestOf(session);
    }
    if (since.isValid()) {
        DetectionReader reader(session.installation(), since);
        QVector<VirusReport> reports = reader.next();
        while (!reports.isEmpty()) {
            // What has come in meanwhile is left to the follower.
            while (!reports.isEmpty() && reports.constLast().getId() > after.number()) {
                reports.removeLast();
            }
            if (!stream.write(reports)) {
                return ExitCode::Good;
            }
            reports = reader.next();
        }
    }
    stream.follow(after);
    return ExitCode::Good;
}
} // namespace

void addDetectionsFollow(const Command& detections)
{
    const Command command = detections.addCommand(
        "follow", "Print each new detection as a line of JSON, until it is interrupted");
    auto options = std::make_shared<Options>();
    command.addOption("--format", options->format, "json, or ecs: the Elastic Common Schema")
        .oneOf({"json", "ecs"})
        .showingDefault()
        .named("FORMAT");
    const CommandOption since =
        command.addOption("--since", options->since, "Begin with those from this time on").named("TIME");
    const CommandOption afterId =
        command
            .addOption("--after-id", options->afterId,
                       "Begin behind this one: the event_id (in ecs event.id) of the last line that came")
            .notWith(since)
            .named("ID");
    command
        .addOption("--cursor", options->cursor,
                   "Begin where the last one with this file ended, the first time with the oldest detection")
        .notWith(since)
        .notWith(afterId)
        .named("FILE");
    command.setAction([options](Session& session) { return follow(session, *options); });
}
