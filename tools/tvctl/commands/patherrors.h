#pragma once

#include "tvctl/console/output.h"

#include <QJsonArray>
#include <QString>

/// What went wrong with single files: told at once, and kept for the document.
class PathErrors
{
public:
    explicit PathErrors(Output& output);

    void add(const QString& path, const QString& reason);

    /// Each with `path` and `reason`; empty when no document is wanted.
    const QJsonArray& toJson() const
    {
        return m_array;
    }

private:
    Output& m_output;
    QJsonArray m_array;
};
