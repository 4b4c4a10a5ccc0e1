#include "tvctl/commands/doctorcommand.h"

#include "common/filename.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/columns.h"
#include "tvctl/console/printable.h"
#include "tvctl/health/examination.h"

#include <QJsonArray>
#include <QJsonObject>

namespace
{
struct ResultText
{
    const char* json;
    const char* shown;
    Output::Colour colour;
};

ResultText textOf(Finding::Result result)
{
    switch (result) {
    case Finding::Result::Ok:
        return {"ok", "ok  ", Output::Colour::Good};
    case Finding::Result::Warning:
        return {"warning", "warn", Output::Colour::Warning};
    default:
        return {"failed", "FAIL", Output::Colour::Bad};
    }
}

/// Wide enough for the longest name.
constexpr int nameWidth = 19;

void print(Output& output, const Finding& finding)
{
    const ResultText text = textOf(finding.result);
    QString line = output.coloured(QLatin1String(text.shown), text.colour) + QStringLiteral("  ") +
                   finding.name.leftJustified(nameWidth) + QStringLiteral("  ") + printable(finding.seen);
    if (!finding.fix.isEmpty()) {
        line += QStringLiteral(" -- fix: ") + printable(finding.fix);
    }
    output.line(line);
}

QJsonObject documentOf(const Finding& finding)
{
    return {{QStringLiteral("name"), finding.name},
            {QStringLiteral("result"), QLatin1String(textOf(finding.result).json)},
            {QStringLiteral("seen"), FileName::toDisplay(finding.seen)},
            {QStringLiteral("fix"), finding.fix.isEmpty() ? QJsonValue(QJsonValue::Null)
                                                          : QJsonValue(FileName::toDisplay(finding.fix))}};
}

ExitCode examineAll(Session& session)
{
    Output& output = session.output();
    QJsonArray checks;
    int failed = 0;
    int warnings = 0;
    for (const Finding& finding : examine(session.installation())) {
        failed += finding.result == Finding::Result::Failed ? 1 : 0;
        warnings += finding.result == Finding::Result::Warning ? 1 : 0;
        print(output, finding);
        checks.append(documentOf(finding));
    }
    output.line(
        QStringLiteral("%1 checks: %2 failed, %3 warnings").arg(checks.size()).arg(failed).arg(warnings));
    if (output.isJson()) {
        output.document({{QStringLiteral("checks"), checks},
                         {QStringLiteral("failed"), failed},
                         {QStringLiteral("warnings"), warnings}});
    }
    return failed > 0 ? ExitCode::Found : ExitCode::Good;
}
} // namespace

void addDoctorCommand(const Command& tool)
{
    const Command command = tool.addCommand(
        "doctor", "Look for everything that leaves you unprotected without a word, and say how to mend it");
    command.setAction(examineAll);
}
