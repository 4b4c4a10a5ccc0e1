#include "tvctl/commands/ioclistcommand.h"

#include "tvctl/commands/hashtypeoption.h"
#include "tvctl/commands/session.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <memory>

namespace
{
void printText(Output& output, IOCScanConfig::HASH_TYPE type, bool isNamed)
{
    const QString prefix = isNamed ? HashPages::nameOf(type).leftJustified(8) : QString();
    HashPages::forEach(type, [&output, &prefix](const QStringList& hashes) {
        QString text;
        for (const QString& hash : hashes) {
            text += prefix + printable(hash) + QLatin1Char('\n');
        }
        output.raw(text.toUtf8());
    });
}

/// The elements of an array, a part at a time: the document may be larger than what fits into memory.
void printJson(Output& output, IOCScanConfig::HASH_TYPE type)
{
    bool isFirst = true;
    HashPages::forEach(type, [&output, &isFirst](const QStringList& hashes) {
        const QByteArray array =
            JsonText::write(QJsonDocument(QJsonArray::fromStringList(hashes)), QJsonDocument::Compact);
        output.raw((isFirst ? "" : ",\n") + array.mid(1, array.size() - 2));
        isFirst = false;
    });
}

ExitCode list(Session& session, const HashTypeOption& wanted)
{
    session.requireSettings();
    Output& output = session.output();
    if (!output.isJson()) {
        for (const IOCScanConfig::HASH_TYPE type : wanted.types()) {
            printText(output, type, !wanted.isGiven());
        }
        return ExitCode::Good;
    }
    QByteArray separator = "{\"hashes\": {";
    for (const IOCScanConfig::HASH_TYPE type : wanted.types()) {
        output.raw(separator + "\n\"" + HashPages::nameOf(type).toLatin1() + "\": [");
        printJson(output, type);
        output.raw("]");
        separator = ",";
    }
    output.raw("\n}}\n");
    return ExitCode::Good;
}
} // namespace

void addIocListCommand(const Command& ioc)
{
    const Command command = ioc.addCommand("list", "Print the lists");
    auto type = std::make_shared<HashTypeOption>();
    type->addTo(command, "Only the hashes of this kind");
    command.setAction([type](Session& session) { return list(session, *type); });
}
