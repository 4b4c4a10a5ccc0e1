#include "tvctl/commands/patherrors.h"

#include "tvctl/console/jsontext.h"

#include <QJsonObject>

PathErrors::PathErrors(Output& output) : m_output(output)
{
}

void PathErrors::add(const QString& path, const QString& reason)
{
    m_output.error(QStringLiteral("%1: %2").arg(path, reason));
    if (m_output.isJson()) {
        QJsonObject error;
        JsonText::insertPath(error, QStringLiteral("path"), path);
        error.insert(QStringLiteral("reason"), reason);
        m_array.append(error);
    }
}
