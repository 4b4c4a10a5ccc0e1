#pragma once

#include "tvctl/commands/session.h"

#include <QJsonObject>
#include <QString>

/// Excludes a file before it is given back: the service has to know before the file appears. What was added
/// is taken back unless the file came.
class RestoreExclusion
{
public:
    RestoreExclusion(Session& session, const QString& path);

    /// Whether the store excludes it; false as well when the store cannot be read.
    bool isStored() const;

    /// Adds it and lets a running service know, whose answer goes into `document` as for ServiceReload.
    /// Throws ToolError, with the exclusion as it was, when either fails.
    void add(QJsonObject& document);

    /// Undoes `add`, if that changed anything, and says so when it cannot.
    void takeBack();

private:
    Session& m_session;
    const QString m_path;
    bool m_isAdded = false;
    bool m_isServiceTold = false;
};
