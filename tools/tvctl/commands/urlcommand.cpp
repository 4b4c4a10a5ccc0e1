#include "tvctl/commands/urlcommand.h"

#include "common/filename.h"
#include "tvctl/client/servicereply.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/toolerror.h"

#include <QJsonArray>
#include <QJsonObject>

#include <memory>
#include <string>
#include <vector>

namespace
{
ExitCode scanTexts(Session& session, const std::vector<std::string>& texts)
{
    using Result = ServiceReply::Scan::Result;
    Output& output = session.output();
    QJsonArray results;
    bool isFound = false;
    for (const std::string& bytes : texts) {
        const QString text = FileName::toText(QByteArray::fromStdString(bytes));
        const ServiceReply::Scan reply =
            ServiceReply::scan(session.ask(makeRequest(QByteArrayLiteral("SCANURL"), text)));
        QJsonObject object;
        JsonText::insertPath(object, QStringLiteral("text"), text);
        switch (reply.result) {
        case Result::Clean:
            output.line(QStringLiteral("%1: clean").arg(printable(text)));
            object.insert(QStringLiteral("result"), QStringLiteral("clean"));
            break;
        case Result::Infected:
            isFound = true;
            output.line(printable(text) + QStringLiteral(": ") +
                        output.coloured(QStringLiteral("infected, ") + printable(reply.virusName),
                                        Output::Colour::Bad));
            object.insert(QStringLiteral("result"), QStringLiteral("infected"));
            object.insert(QStringLiteral("virus"), reply.virusName);
            break;
        default:
            throw ToolError(QStringLiteral("tvfilemon could not scan the text: %1")
                                .arg(ServiceReply::scanErrorText(reply.errorCode)));
        }
        results.append(object);
    }
    if (output.isJson()) {
        output.document({{QStringLiteral("results"), results}});
    }
    return isFound ? ExitCode::Found : ExitCode::Good;
}
} // namespace

void addUrlCommand(const Command& tool)
{
    const Command command =
        tool.addCommand("url", "Scan texts, web addresses for example; nothing is fetched");
    auto texts = std::make_shared<std::vector<std::string>>();
    command.addOption("TEXT", *texts, "What to scan").required();
    command.setAction([texts](Session& session) { return scanTexts(session, *texts); });
}
