#include "tvctl/commands/commandpath.h"

#include "common/filename.h"
#include "tvctl/console/toolerror.h"

#include <QDir>

#include <cstdlib>
#include <memory>

#include <unistd.h>

namespace
{
/// In bytes; empty when there is none any more, or none below the root directory of this process.
QByteArray workingDirectory()
{
    const std::unique_ptr<char, decltype(&::free)> directory(::getcwd(nullptr, 0), &::free);
    const QByteArray path(directory.get());
    return path.startsWith('/') ? path : QByteArray();
}
} // namespace

QString pathOf(const std::string& argument)
{
    // Put behind a directory it would name that one, and without a directory all of the machine.
    if (argument.empty()) {
        throw ToolError(QStringLiteral("a path is empty; name files or folders"));
    }
    QByteArray path = QByteArray::fromStdString(argument);
    if (!path.startsWith('/')) {
        const QByteArray directory = workingDirectory();
        if (directory.isEmpty()) {
            throw ToolError(QStringLiteral("cannot tell where \"%1\" is: the working directory is gone; name "
                                           "a whole path")
                                .arg(FileName::toText(path)));
        }
        path = directory + '/' + path;
    }
    return QDir::cleanPath(FileName::toText(path));
}

QStringList pathsOf(const std::vector<std::string>& arguments)
{
    QStringList paths;
    for (const std::string& argument : arguments) {
        paths += pathOf(argument);
    }
    return paths;
}

QVector<QByteArray> bytePathsOf(const std::vector<std::string>& arguments)
{
    QVector<QByteArray> paths;
    for (const std::string& argument : arguments) {
        paths += FileName::toBytes(pathOf(argument));
    }
    return paths;
}
