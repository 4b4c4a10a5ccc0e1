#include "tvctl/client/request.h"

#include "common/filename.h"

namespace
{
constexpr int maxRequestBytes = 4096;

QString problemOf(const QString& argument)
{
    if (FileName::toDisplay(argument) != argument) {
        return QStringLiteral("the name is not UTF-8, which the service's protocol cannot carry");
    }
    if (argument.contains(QLatin1Char('\n')) || argument.contains(QLatin1Char('\r'))) {
        return QStringLiteral("there is a line end in it, which the service's protocol cannot carry");
    }
    if (argument.contains(QChar::Null)) {
        return QStringLiteral("there is a zero byte in it, which the service's protocol cannot carry");
    }
    return {};
}
} // namespace

Request makeRequest(const QByteArray& command, const QString& argument)
{
    Request request{command + ' ' + FileName::toBytes(argument), problemOf(argument)};
    if (request.isValid() && request.bytes.size() > maxRequestBytes) {
        request.problem = QStringLiteral("it is longer than the %1 bytes that the service's protocol carries")
                              .arg(maxRequestBytes - command.size() - 1);
    }
    return request;
}

Request makeRequest(const QByteArray& command)
{
    return {command, {}};
}
