#include "tvctl/commands/timeargument.h"

#include "common/filename.h"
#include "tvctl/console/timetext.h"
#include "tvctl/console/toolerror.h"

QDateTime timeOf(const std::string& argument, const char* option)
{
    if (argument.empty()) {
        return {};
    }
    const QString text = FileName::toText(QByteArray::fromStdString(argument));
    const auto time = TimeText::parse(text, QDateTime::currentDateTime());
    if (!time) {
        throw ToolError(QStringLiteral("%1 takes no \"%2\"; give %3")
                            .arg(QString::fromLatin1(option), text, TimeText::accepted()));
    }
    return *time;
}
