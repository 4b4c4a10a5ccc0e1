#include "tvctl/commands/selftestcommand.h"

#include "common/filename.h"
#include "tvctl/commands/commandpath.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/timetext.h"
#include "tvctl/health/selftest.h"

#include <chrono>
#include <memory>
#include <string>

namespace
{
using Outcome = SelfTestResult::Outcome;

constexpr int usualSeconds = 10;
constexpr int mostSeconds = 3600;

struct Options
{
    std::string directory;
    int seconds = usualSeconds;
};

const char* nameOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Removed:
        return "removed";
    case Outcome::Reported:
        return "reported";
    case Outcome::NotDetected:
        return "not_detected";
    default:
        return "unknown";
    }
}

ExitCode codeOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Removed:
    case Outcome::Reported:
        return ExitCode::Good;
    case Outcome::NotDetected:
        return ExitCode::Found;
    default:
        return ExitCode::Error;
    }
}

QString statusText(int status)
{
    switch (status) {
    case 0:
        return QStringLiteral("cleaned");
    case -1:
        return QStringLiteral("report only");
    default:
        return QStringLiteral("cleaning failed");
    }
}

QString headline(const Output& output, const SelfTestResult& result)
{
    const QString when = QStringLiteral("on try %1 after %2 ms").arg(result.tries).arg(result.milliseconds);
    switch (result.outcome) {
    case Outcome::Removed:
        return output.coloured(QStringLiteral("Detected and removed "), Output::Colour::Good) + when;
    case Outcome::Reported:
        return output.coloured(QStringLiteral("Detected and reported "), Output::Colour::Good) + when;
    case Outcome::NotDetected:
        return output.coloured(QStringLiteral("NOT DETECTED: "), Output::Colour::Bad) +
               printable(result.explanation);
    default:
        return output.coloured(QStringLiteral("Cannot tell: "), Output::Colour::Warning) +
               printable(result.explanation);
    }
}

void print(Output& output, const SelfTestResult& result)
{
    output.line(headline(output, result));
    if (!result.path.isEmpty()) {
        output.line(QStringLiteral("file:    ") + printable(result.path) + QStringLiteral(", gone again"));
    }
    if (result.record) {
        output.line(QStringLiteral("record:  %1, %2, %3 (stays among the detections)")
                        .arg(printable(result.record->getVirusName()),
                             statusText(result.record->getCleanStatus()),
                             TimeText::format(result.record->getDateTime())));
    }
    if (!result.path.isEmpty() && !result.recordProblem.isEmpty()) {
        output.line(QStringLiteral("record:  it cannot be read: ") + printable(result.recordProblem));
    }
    if (!result.fix.isEmpty()) {
        output.line(QStringLiteral("fix:     ") + printable(result.fix));
    }
}

QJsonValue textOrNull(const QString& text)
{
    return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(FileName::toDisplay(text));
}

QJsonObject documentOf(const SelfTestResult& result)
{
    const bool isDetected = result.outcome == Outcome::Removed || result.outcome == Outcome::Reported;
    QJsonObject document = {{QStringLiteral("outcome"), QLatin1String(nameOf(result.outcome))},
                            {QStringLiteral("detected"), isDetected},
                            {QStringLiteral("tries"), result.tries},
                            {QStringLiteral("milliseconds"), result.milliseconds},
                            {QStringLiteral("explanation"), textOrNull(result.explanation)},
                            {QStringLiteral("fix"), textOrNull(result.fix)},
                            {QStringLiteral("path"), QJsonValue()},
                            {QStringLiteral("record"), QJsonValue()},
                            {QStringLiteral("record_problem"), textOrNull(result.recordProblem)}};
    if (!result.path.isEmpty()) {
        JsonText::insertPath(document, QStringLiteral("path"), result.path);
    }
    if (result.record) {
        document.insert(QStringLiteral("record"),
                        QJsonObject{{QStringLiteral("id"), result.record->getId()},
                                    {QStringLiteral("virus"), result.record->getVirusName()},
                                    {QStringLiteral("clean_status"), result.record->getCleanStatus()},
                                    {QStringLiteral("time"), JsonText::time(result.record->getDateTime())}});
    }
    return document;
}

ExitCode tryIt(Session& session, const Options& options)
{
    const QString directory = options.directory.empty()
                                  ? SelfTest::usualDirectory()
                                  : SelfTest::watchedDirectory(pathOf(options.directory));
    SelfTest test(session.installation(), directory, std::chrono::seconds(options.seconds));
    const SelfTestResult result = test.run();
    print(session.output(), result);
    if (session.output().isJson()) {
        session.output().document(documentOf(result));
    }
    return codeOf(result.outcome);
}
} // namespace

void addSelftestCommand(const Command& tool)
{
    const Command command = tool.addCommand(
        "selftest", "Write a harmless file that every scanner reports, and see what becomes of it");
    auto options = std::make_shared<Options>();
    command
        .addOption("--directory", options->directory,
                   "Where to write it: a watched directory (default: a watched root, or your home)")
        .named("DIR");
    command.addOption("--timeout", options->seconds, "How many seconds to wait (default: 10)")
        .between(1, mostSeconds)
        .named("SECONDS");
    command.setAction([options](Session& session) { return tryIt(session, *options); });
}
