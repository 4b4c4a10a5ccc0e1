#include "socket/clientrequest.h"

#include <QLatin1String>

namespace
{
struct Word
{
    QLatin1String text;
    ClientCommand command;
};

const Word wholeWords[] = {
    {QLatin1String("MODULE"), ClientCommand::Module},   {QLatin1String("SCAN"), ClientCommand::Scan},
    {QLatin1String("CLEAN"), ClientCommand::Clean},     {QLatin1String("SCANURL"), ClientCommand::ScanUrl},
    {QLatin1String("SCANIOC"), ClientCommand::ScanIoc},
};

const Word beginnings[] = {
    {QLatin1String("RELOADDB"), ClientCommand::ReloadDb},
    {QLatin1String("RELOADSETT"), ClientCommand::ReloadSettings},
    {QLatin1String("RELOADIOCDB"), ClientCommand::ReloadIocDb},
    {QLatin1String("RELOADIOCSETT"), ClientCommand::ReloadIocSettings},
};
} // namespace

ClientRequest parseRequest(const QString& message)
{
    const int space = message.indexOf(QLatin1Char(' '));
    if (space <= 0) {
        return {message, QString()};
    }
    ClientRequest request{message.left(space), message.mid(space + 1)};
    request.argument.remove(QLatin1Char('\r')).remove(QLatin1Char('\n'));
    return request;
}

ClientCommand commandOf(const QString& command)
{
    for (const Word& word : wholeWords) {
        if (command.compare(word.text, Qt::CaseInsensitive) == 0) {
            return word.command;
        }
    }
    for (const Word& word : beginnings) {
        if (command.startsWith(word.text, Qt::CaseInsensitive)) {
            return word.command;
        }
    }
    return ClientCommand::Invalid;
}

bool needsRegistration(ClientCommand command)
{
    switch (command) {
    case ClientCommand::Scan:
    case ClientCommand::Clean:
    case ClientCommand::ScanUrl:
    case ClientCommand::ScanIoc:
        return true;
    default:
        return false;
    }
}
