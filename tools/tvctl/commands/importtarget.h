#pragma once

#include "platform/tvcore/iocscanconfig.h"
#include "tvctl/console/output.h"

#include <QString>
#include <QStringList>

/// Where imported hashes go: into the store or, to see what that would add, only to standard output.
class ImportTarget
{
public:
    ImportTarget(Output& output, bool isDryRun);

    /// Takes each of `hashes` once. False when that failed; see `problem`.
    bool take(IOCScanConfig::HASH_TYPE type, const QStringList& hashes);

    /// How many were not in their list before.
    qint64 added() const
    {
        return m_added;
    }
    /// What failed, for people; empty when nothing did.
    const QString& problem() const
    {
        return m_problem;
    }

    /// To be called around everything else: a dry run prints one document around what it shows.
    void begin();
    void end(const QJsonObject& document);

private:
    bool store(IOCScanConfig::HASH_TYPE type, const QStringList& hashes);
    void show(IOCScanConfig::HASH_TYPE type, const QStringList& hashes);

    Output& m_output;
    const bool m_isDryRun;
    qint64 m_added = 0;
    QString m_problem;
};
