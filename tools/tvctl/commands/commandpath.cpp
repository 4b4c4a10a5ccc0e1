#include "tvctl/commands/commandpath.h"

#include "common/filename.h"

#include <QDir>
#include <QStringList>

QString pathOf(const std::string& argument)
{
    if (argument.empty()) {
        return {};
    }
    const QString path = FileName::toText(QByteArray::fromStdString(argument));
    return QDir::cleanPath(path.startsWith(QLatin1Char('/')) ? path
                                                             : QDir::currentPath() + QLatin1Char('/') + path);
}

QStringList pathsOf(const std::vector<std::string>& arguments)
{
    QStringList paths;
    for (const std::string& argument : arguments) {
        paths += pathOf(argument);
    }
    return paths;
}
